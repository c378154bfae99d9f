// Checks that the face of AppKit and Foundation stays thin: every member that platform/*.h declares has its definition in
// platform/macos/, which forwards to the method of its name, in an autorelease pool, without a branch or a loop.
//
//   node tests/face/thin.mjs SOURCE_FOLDER [NM PROGRAM-OBJECT...]
//
// Reads the text, as Apple's headers are not everywhere: comments and literals are left out, and what could hide
// something from a reader of the text (macros, conditional compilation) is refused. With NM, the members that the
// program's object files want are held against those that were found, so that none is overlooked.
import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';

const [source, nm, ...objects] = process.argv.slice(2);
const failures = [];

// The file that may have branches and loops: what cannot be passed on as it is. Each is there for one reason.
const conversions = 'platform/macos/Conversions.h';
const converting = {
  array: 'a C++ list becomes an object, element by element',
  numbers: 'the same, of numbers',
  handles: 'an object becomes a C++ list, element by element',
  instanceOf: 'a handle of a class that the object is not of would be a lie',
  forwarder: 'no delegate has no forwarder',
};
// Members whose method has another name, and what of it stands in their definition.
const renamed = {
  'Alert::make': 'init', 'Menu::make': 'init', 'UUID::make': 'UUID', 'MenuItem::MenuItem': 'initWithTitle',
  'MenuItem::setTargetAction': 'action', 'Slider::setTargetAction': 'action',
  'BezierPath::appendArc': 'appendBezierPathWithArcWithCenter', 'TapDescription::setPrivate': 'privateTap',
  'URL::URLWithString': 'initWithString', 'HTTPURLResponse::cast': 'NSHTTPURLResponse', MouseInRect: 'NSMouseInRect',
  ApplicationDidChangeScreenParametersNotification: 'NSApplicationDidChangeScreenParametersNotification',
  WorkspaceDidWakeNotification: 'NSWorkspaceDidWakeNotification',
};
// Members without a pool of their own.
const withoutPool = {
  'Application::run': 'the event loop has its own, and does not return',
  'Data::bytes': 'what it answers may live no longer than a pool',
  MouseInRect: 'a C function',
  ApplicationDidChangeScreenParametersNotification: 'a constant',
  WorkspaceDidWakeNotification: 'a constant',
  'MenuItem::MenuItem': 'that of the function that it calls',
};
const deciding = new Set(['if', 'else', 'for', 'while', 'do', 'switch', 'case', 'goto', 'try', 'catch', 'throw', '?', '&&', '||',
  'and', 'or', '@try', '@catch', '@finally', '@throw', 'asm', '__asm__', 'co_await', 'co_yield']);
const looping = /^(enumerate|makeObjects|for_each|transform$|accumulate$|generate)/;

// The words and signs of a file, without comments, literals and includes.
function tokensOf(path) {
  const text = readFileSync(join(source, path), 'utf8')
    .replace(/\/\*[^]*?\*\/|\/\/[^\n]*|(@?)"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'/g, (found) =>
      found.startsWith('/') ? ' ' : ' ""');
  if (/\\\n|R ""|%:/.test(text)) failures.push(`${path}: has lines or literals that cannot be read so simply`);
  const code = text.replace(/^[ \t]*#[ \t]*(\w+)(.*)$/gm, (line, directive, rest) => {
    if (!['include', 'import'].includes(directive) && !(directive === 'pragma' && rest.trim() === 'once')) {
      failures.push(`${path}: ${line.trim()}: no conditions and no macros in the face`);
    }
    return '';
  });
  return code.match(/@?[A-Za-z_]\w*|""|\d[\w.']*|::|->|&&|\|\||==|[^\s\w]/g) ?? [];
}

const opening = '([{';
const closing = ')]}';

// The index behind what the bracket at `i` opens.
function behind(tokens, i) {
  let depth = 0;
  for (; i < tokens.length; ++i) {
    if (opening.includes(tokens[i])) ++depth;
    if (closing.includes(tokens[i]) && --depth === 0) return i + 1;
  }
  throw new Error('a bracket is not closed');
}

// Of the tokens before a body or a semicolon: the function's name and the number of its parameters; null: no function.
function signatureOf(words) {
  let angles = 0;
  for (let i = 1; i < words.length; ++i) {
    if (words[i] === '<') ++angles;
    if (words[i] === '>') --angles;
    if (words[i] === '=' && angles === 0) return null;
    if (words[i] !== '(' || angles > 0 || !/^\w+$/.test(words[i - 1])) continue;
    let start = i - 1;
    while (words[start - 1] === '::' && /^\w+$/.test(words[start - 2] ?? '')) start -= 2;
    const end = behind(words, i);
    const parameters = words.slice(i + 1, end - 1);
    let depth = 0;
    const commas = parameters.filter((word) => {
      if ('([{<'.includes(word)) ++depth;
      if (')]}>'.includes(word)) --depth;
      return word === ',' && depth === 0;
    });
    return {
      name: words.slice(start, i).join(''), count: parameters.length ? commas.length + 1 : 0,
      isConst: words[end] === 'const', rest: words.slice(end).join(' '),
    };
  }
  return null;
}

// Calls `found` for each declaration and definition: with its scope, its words, and the tokens of its body, if it has one.
function walk(tokens, scope, found) {
  let words = [];
  for (let i = 0; i < tokens.length;) {
    const token = tokens[i];
    if (/^@(interface|implementation)$/.test(token)) {  // what it holds is told by AppKit, not called by the program
      i = tokens.indexOf('@end', i) + 1;
    } else if (token === '{') {
      const end = behind(tokens, i);
      const body = tokens.slice(i + 1, end - 1);
      const isClass = /^(class|struct)$/.test(words[0]);
      if (words[0] === 'namespace') {
        walk(body, [...scope, ...words.slice(1).filter((word) => word !== '::')], found);
      } else if (isClass) {
        walk(body, [...scope, words[1]], found);
      } else if (words[0] !== 'enum') {
        found(scope, words, body);
      }
      i = end;
      if (tokens[i] === ';') ++i;
      words = [];
    } else if (token === ';') {
      if (words.length) found(scope, words, null);
      words = [];
      ++i;
    } else if (token === ':' && /^(public|private|protected)$/.test(words.at(-1)) && words.length === 1) {
      words = [];
      ++i;
    } else if (token === '(') {
      const end = behind(tokens, i);
      words.push(...tokens.slice(i, end));
      i = end;
    } else {
      words.push(token);
      ++i;
    }
  }
}

// ---- What is declared ----

const members = new Map();
const inlined = new Set();
const face = readdirSync(join(source, 'platform')).filter((name) => name.endsWith('.h')).map((name) => `platform/${name}`);
for (const path of face) {
  walk(tokensOf(path), [], (scope, words, body) => {
    if (!['NS', 'CA'].includes(scope[0]) || ['using', 'friend', 'template', 'static_assert'].includes(words[0])) return;
    const signature = signatureOf(words);
    if (!signature) return;
    const name = [...scope.slice(1), signature.name].join('::');
    if (body) return void inlined.add(name);
    if (/= (0|default|delete)$/.test(signature.rest)) return void inlined.add(name);
    const list = members.get(name) ?? [];
    members.set(name, [...list, { ...signature, path, space: scope[0] }]);
  });
}
const all = [...members.values()].flat();
if (all.length < 100) failures.push(`only ${all.length} members were found: the check is blind`);

// ---- What is defined ----

const definitions = [];
const files = readdirSync(join(source, 'platform/macos')).sort();
for (const file of files) {
  const path = `platform/macos/${file}`;
  const tokens = tokensOf(path);
  if (path === conversions) {
    walk(tokens, [], (scope, words, body) => {
      const signature = body && signatureOf(words);
      if (signature && !converting[signature.name]) failures.push(`${path}: ${signature.name} is none of those that belong there`);
    });
    continue;
  }
  for (const token of tokens) {
    if (deciding.has(token)) failures.push(`${path}: "${token}": the face only forwards`);
    if (looping.test(token)) failures.push(`${path}: "${token}" is a loop: the face only forwards`);
  }
  walk(tokens, [], (scope, words, body) => {
    if (!body || !['NS', 'CA'].includes(scope[0]) || ['static', 'template', 'inline'].includes(words[0])) return;
    const signature = signatureOf(words);
    if (signature) definitions.push({ ...signature, name: [...scope.slice(1), signature.name].join('::'), path, space: scope[0], body });
  });
}

// In the words of Objective-C: setFoo is also what assigns foo, and isFoo what reads it.
function names(name) {
  const last = name.split('::').at(-1);
  const property = last.replace(/^set(?=.)/, '');
  return [renamed[name] ?? [last, property, property[0].toLowerCase() + property.slice(1)]].flat();
}

for (const member of all) {
  const name = [...members.keys()].find((key) => members.get(key).includes(member));
  const found = definitions.filter((one) => one.name === name && one.space === member.space && one.count === member.count &&
    one.isConst === member.isConst);
  if (found.length !== 1) {
    failures.push(`${member.path}: ${member.space}::${name} has ${found.length || 'no'} definition${found.length ? 's' : ''} in platform/macos`);
    continue;
  }
  const [{ body, rest, path }] = found;
  const words = [...body, ...rest.split(' ')];
  const isNamed = names(name).some((one) => words.includes(one));
  if (!isNamed && !(name === 'MenuItem::MenuItem' && rest.includes('makeItem'))) {
    failures.push(`${path}: ${name} forwards to no method of its name`);
  }
  if (body[0] !== '@autoreleasepool' && !withoutPool[name]) failures.push(`${path}: ${name} has no autorelease pool`);
}
for (const definition of definitions) {
  if (!members.has(definition.name)) failures.push(`${definition.path}: ${definition.name} is declared in no header of platform/`);
}

// ---- What is built ----

const built = readFileSync(join(source, 'cmake/Mac.cmake'), 'utf8').match(/set\(DALVANE_PLATFORM_MACOS([^)]*)\)/)?.[1].trim().split(/\s+/) ?? [];
const there = files.filter((file) => file.endsWith('.mm')).map((file) => `platform/macos/${file}`);
if (built.join() !== there.join()) failures.push(`cmake/Mac.cmake builds ${built.join(', ')}`);

if (nm) {
  const wanted = execFileSync(nm, ['--undefined-only', '--demangle', '--just-symbol-name', ...objects], { encoding: 'utf8', maxBuffer: 1 << 28 })
    .split('\n').filter((line) => /^(NS|CA)::/.test(line)).map((line) => line.replace(/\(.*/, '').replace(/^\w+::/, '').replace(/\[.*/, ''));
  if (wanted.length < 100) failures.push(`the program's object files want ${wanted.length} members: the check is blind`);
  for (const name of new Set(wanted)) {
    if (!members.has(name)) failures.push(`the program calls ${name}, which was not found in platform/`);
  }
}

for (const failure of failures) console.log(`FAILED: ${failure}`);
console.log(`${all.length} members, ${definitions.length} definitions in ${there.length} files`);
process.exitCode = failures.length ? 1 : 0;
