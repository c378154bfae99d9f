// The desk page in a real browser: what a person does at it, and what they see.
//
//   node desk-page.mjs DALVANE_DESK [--pictures FOLDER]
import assert from 'node:assert/strict';
import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Browser, follow, sleep } from './Browser.mjs';

const desk = process.argv[2];
const pictures = process.argv[3] === '--pictures' ? process.argv[4] : null;
const folder = mkdtempSync(join(tmpdir(), 'desk-page-'));

// ---- The server ----

async function start(...options) {
  const process = spawn(desk, ['serve', ...options], { stdio: ['ignore', 'pipe', 'inherit'] });
  const [said] = await once(process.stdout.setEncoding('utf8'), 'data');
  const url = /http:\/\/127\.0\.0\.1:\d+\//.exec(said)?.[0];
  assert.ok(url, `no address: ${said}`);
  return { process, url, port: Number(new URL(url).port) };
}

// A request as a stranger could make it, with any headers.
function request(port, path, { method = 'GET', headers = {}, body = undefined } = {}) {
  return new Promise((resolve, reject) => {
    const sent = http.request({ host: '127.0.0.1', port, path, method, headers, agent: false }, (response) => {
      let text = '';
      response.setEncoding('utf8').on('data', (piece) => { text += piece; }).on('end', () => resolve({ status: response.statusCode, headers: response.headers, text }));
    });
    sent.on('error', reject);
    sent.end(body);
  });
}
const act = (port, line) => request(port, '/do', { method: 'POST', body: typeof line === 'string' ? line : JSON.stringify(line) });

// Everything that the desk says, as [id, record].
function record(port, after = '') {
  const records = [];
  return { records, close: follow(port, (id, text) => records.push([id, text]), { after }) };
}

const tests = [];
const test = (name, body) => tests.push({ name, body });
const until = async (condition, what, within = 10000) => {
  for (const end = Date.now() + within; !(await condition()); await sleep(10)) assert.ok(Date.now() < end, `waited in vain for ${what}`);
};

// ---- What strangers get ----

test('only this computer’s own page reaches the machine', async ({ port }) => {
  const page = await request(port, '/');
  assert.equal(page.status, 200);
  assert.equal(page.headers['content-security-policy'], "default-src 'self'");
  const line = JSON.stringify({ do: 'pointer', at: [9, 9] });
  for (const headers of [{ Host: 'evil.example' }, { Host: `127.0.0.1:${port + 1}` }, { Origin: 'http://evil.example' }, { Origin: 'null' }]) {
    assert.equal((await request(port, '/do', { method: 'POST', headers, body: line })).status, 403, JSON.stringify(headers));
    for (const path of ['/', '/state', '/trace', '/scenario', '/nothing']) assert.equal((await request(port, path, { headers })).status, 403, path);
  }
  assert.notDeepEqual(JSON.parse((await request(port, '/state')).text).seat.pointer, [9, 9]);
  assert.equal((await request(port, '/do', { method: 'POST', headers: { Origin: `http://localhost:${port}`, Host: `localhost:${port}` }, body: line })).status, 200);
  assert.deepEqual(JSON.parse((await request(port, '/state')).text).seat.pointer, [9, 9]);
  assert.equal((await request(port, '/nothing')).status, 404);
  // What a refused request carries is not taken for another one.
  const inner = `POST /do HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nContent-Length: ${line.length}\r\n\r\n${JSON.stringify({ do: 'pointer', at: [8, 8] })}`;
  const socket = net.connect(port, '127.0.0.1').resume();
  socket.on('error', () => {});
  socket.write(`POST /do HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nOrigin: http://evil.example\r\nContent-Length: ${inner.length}\r\n\r\n${inner}`);
  await Promise.race([once(socket, 'close'), sleep(2000)]);
  assert.deepEqual(JSON.parse((await request(port, '/state')).text).seat.pointer, [9, 9]);
  assert.equal((await act(port, { do: 'pointer', at: [2700, 760] })).status, 200);
});

test('lines that are wrong are refused, with the reason', async ({ port }) => {
  for (const [line, reason] of [['{"do":"jump"}', 'unknown "do": "jump"'], ['nonsense', 'no scenario line'], ['{"do":"display","id":77,"gone":true}', 'there is no display 77'],
    ['{"do":"advance","seconds":86401}', 'a day'], ['['.repeat(60000), 'nested too deeply'], ['', 'no scenario line']]) {
    const answer = await act(port, line);
    assert.equal(answer.status, 400, line.slice(0, 40));
    assert.ok(answer.text.includes(reason), answer.text);
  }
  const long = (size) => JSON.stringify({ do: 'preference', key: 'x', value: 'y'.repeat(size - 40) });
  assert.equal(long(65536).length, 65536);
  assert.equal((await act(port, long(65536))).status, 200);
  assert.equal((await act(port, long(65537))).status, 403);
  assert.equal((await act(port, { do: 'preference', key: 'x', value: null })).status, 200);
  for (const body of ['', 'x', '{}', '{"furnished":1,"seed":"1"}', '{"furnished":true,"seed":"x"}']) {
    assert.equal((await request(port, '/begin', { method: 'POST', body })).status, 400, body);
  }
  assert.equal((await request(port, '/clock', { method: 'POST', body: 'fast' })).status, 400);
});

test('a port that is taken is said, and ends the command', ({ port }) => {
  const second = spawnSync(desk, ['serve', '--port', String(port)], { encoding: 'utf8', timeout: 20000 });
  assert.equal(second.status, 1);
  assert.match(second.stderr, new RegExp(`port ${port} .* cannot be used`));
  for (const wrong of [['--port'], ['--port', 'x'], ['--port', '65536'], ['--part', '1']]) {
    assert.equal(spawnSync(desk, ['serve', ...wrong], { timeout: 20000 }).status, 2, wrong.join(' '));
  }
});

// ---- What a person does ----

const slider = (name) => `document.querySelector('.slider[aria-label="${name}"]')`;
const valueOf = (name) => `Number(${slider(name)}?.getAttribute('aria-valuenow'))`;
const light = "Number(document.querySelector('[data-display=\"2\"]').dataset.light)";
const dim = "Number(getComputedStyle(document.querySelector('[data-display=\"2\"] .dim')).opacity)";
const level = "Number(document.getElementById('level').dataset.level)";

test('brightness up moves the monitor, the pop-up and the slider of the open menu', async ({ page }) => {
  await page.until('document.querySelector(".pointed .status svg")', 'the icon');
  assert.equal(await page.run('document.querySelector(".pointed").dataset.display'), '2');
  await page.click('.pointed .status');
  await page.until(slider('Studio'), 'the menu');
  const before = { light: await page.run(light), dim: await page.run(dim), slider: await page.run(valueOf('Studio')) };
  await page.click('[data-key=brightnessUp]');
  await page.until(`${light} > ${before.light}`, 'the monitor to shine');
  await page.until(`${dim} < ${before.dim}`, 'the picture to become brighter');
  await page.until(`document.querySelector('[data-display="2"] .popup:not([hidden], .gone) .symbol')`, 'the pop-up');
  await page.until(`${valueOf('Studio')} === ${before.slider + 1}`, 'the slider');
  assert.equal(await page.run(`document.querySelectorAll('[data-display="2"] .chicklets .on').length`), before.slider + 1);
  await page.until(`document.querySelector('[data-display="2"] .popup.gone')`, 'the pop-up to fade after its second');
});

test('dragging the volume slider lowers the level at the speaker', async ({ page }) => {
  await page.until(slider('Television'), 'the slider');
  await page.until(`${level} > 0.1`, 'the music');
  const before = { level: await page.run(level), value: await page.run(valueOf('Television')) };
  const box = await page.middle('.slider[aria-label=Television]');
  const at = (value) => box.x + 4 + value / 16 * (box.width - 8);
  await page.mouse('mousePressed', at(before.value), box.cy);
  for (const value of [before.value - 2.2, before.value - 4.3, 5.1]) {
    await page.mouse('mouseMoved', at(value), box.cy);
    await sleep(30);
  }
  await page.until(`${valueOf('Television')} === 5`, 'the slider, on a tick mark');
  await page.until(`${level} < ${before.level / 4}`, 'the level to fall');
  await page.mouse('mouseReleased', at(5.1), box.cy, 0);
  // And by the keyboard.
  await page.run(`${slider('Television')}.focus()`);
  await page.key('ArrowRight');
  await page.until(`${valueOf('Television')} === 6`, 'the slider, by the keyboard');
  await page.key('Escape');
  await page.until('!document.querySelector(".menu")', 'the menu to close');
});

test('keys are typed and held, and act where the pointer was clicked to', async ({ page }) => {
  await page.key('F2');
  await page.until(`${light} >= 75`, 'the monitor, by the typed key');
  const paper = await page.middle('[data-display="3"] .paper');
  await page.mouse('mousePressed', paper.cx, paper.cy);
  await page.mouse('mouseReleased', paper.cx, paper.cy, 0);
  await page.until('document.querySelector("[data-display=\\"3\\"]").classList.contains("pointed")', 'the pointer');
  const portrait = "Number(document.querySelector('[data-display=\"3\"]').dataset.light)";
  const before = await page.run(portrait);
  const cap = await page.middle('[data-key=brightnessUp]');
  await page.mouse('mousePressed', cap.cx, cap.cy);
  await page.until(`${portrait} >= ${before + 18}`, 'the held key to go on');
  await page.mouse('mouseReleased', cap.cx, cap.cy, 0);
  assert.equal(await page.run(`${light} < 80`), true);
});

test('an update is found, answered and installed', async ({ page, port }) => {
  const version = async () => JSON.parse((await request(port, '/state')).text).bundle.version;
  await page.click('.pointed .status');
  await page.until('document.querySelector(".menu")', 'the menu');
  const item = `[...document.querySelectorAll('.menu .item')].find((each) => /^(Update to|Check for Updates)/.test(each.textContent))`;
  await page.until(item, 'the item');
  await page.run(`${item}.click()`);
  for (let alerts = 0; alerts < 4 && await version() !== '9.0.0'; ++alerts) {
    await until(async () => await version() === '9.0.0' || await page.run('!!document.querySelector("[role=alertdialog] .default")'), 'an alert or the update', 20000);
    if (await version() === '9.0.0') break;
    assert.equal(await page.run('document.querySelector("[role=alertdialog]").contains(document.activeElement)'), true);
    await page.click('[role=alertdialog] .default');
    await sleep(300);
  }
  await until(async () => await version() === '9.0.0', 'the new version', 20000);
  await page.until('document.getElementById("program").textContent.startsWith("9.0.0")', 'the new version in the page');
});

test('each record is tied to what caused it', async ({ page }) => {
  await page.click('#tab-record');
  await page.click('[data-key=brightnessUp]');
  const lit = `[...document.querySelectorAll('#rows .kind-light')].pop()`;
  await page.until(`${lit}?.querySelector('.cause')?.textContent.startsWith('← key')`, 'the light and the key that caused it');
  await page.run(`${lit}.querySelector('.cause').click()`);
  await page.until('!document.getElementById("trail").hidden', 'what the line caused');
  const kinds = await page.run(`[...new Set([...document.querySelectorAll('#rows li')].map((row) => row.className))].sort()`);
  for (const kind of ['kind-do', 'kind-input', 'kind-popup', 'kind-wire', 'kind-light']) assert.ok(kinds.includes(kind), `${kind} of ${kinds}`);
  await page.click('#trail button');
  await page.run(`(() => { const box = document.getElementById('search'); box.value = 'shines'; box.dispatchEvent(new Event('input')); })()`);
  await page.until(`[...document.querySelectorAll('#rows li')].every((row) => row.classList.contains('kind-light')) && document.querySelector('#rows li')`, 'the search');
  await page.run(`(() => { const box = document.getElementById('search'); box.value = ''; box.dispatchEvent(new Event('input')); })()`);
  await page.click('#kinds .kind-wire');
  await page.until(`document.querySelector('#rows li') && !document.querySelector('#rows .kind-wire')`, 'the filter');
  await page.click('#kinds .kind-wire');
  await page.click('#tab-machine');
});

test('the clock stands, steps, and goes an hour on', async ({ page, port }) => {
  let column = 2700;
  const t = async () => {
    const stream = record(port);
    const at = `"at":[${++column},`;
    await act(port, { do: 'pointer', at: [column, 760] });
    const mine = () => stream.records.find(([, record]) => record.includes(at));
    await until(mine, 'the record');
    stream.close();
    return JSON.parse(mine()[1]).t;
  };
  await page.click('#paused');
  await page.until('document.getElementById("paused").getAttribute("aria-pressed") === "true"', 'the clock to stand');
  const before = await t();
  await sleep(200);
  assert.equal(await t(), before);
  await page.click('#step');
  await until(async () => Math.abs(await t() - before - 0.1) < 1e-9, 'a step');
  await page.click('#hour');
  await until(async () => await t() > before + 3600, 'the hour', 60000);
  await page.click('#live');
  await page.until('document.getElementById("live").getAttribute("aria-pressed") === "true"', 'the clock to go');
});

// The records without those that say how much time was let pass: here it passed by itself.
const withoutTime = (records) => records.filter((record) => !record.includes('"what":"do","line":{"do":"advance"'));

test('what was done is saved, and played again it is the same trace', async ({ page, port, trace }) => {
  await page.click('#paused');
  await page.until('document.getElementById("paused").getAttribute("aria-pressed") === "true"', 'the clock to stand');
  const scenario = await page.run('fetch(document.getElementById("save").href).then((response) => response.text())');
  await sleep(200);
  const file = join(folder, 'saved.scenario');
  writeFileSync(file, scenario);
  const played = withoutTime(execFileSync(desk, ['play', file], { encoding: 'utf8', maxBuffer: 1 << 28 }).trimEnd().split('\n'));
  const here = withoutTime(trace.records.map(([, record]) => record));
  assert.ok(here.length > 120, `${here.length} records`);
  for (let i = 0; i < here.length; ++i) assert.equal(played[i], here[i], `record ${i}`);
  // After the last line `play` ends the program, which the desk has not.
  assert.ok(played.slice(here.length).some((record) => record.includes('"what":"exit"')));
  assert.ok(!played.some((record) => record.includes('"what":"leak"') || record.includes('"what":"fatal"')));
});

test('a saved scenario is opened and played line by line', async ({ page, port, trace }) => {
  const lines = ['// dalvane-desk play --seed 7 FILE', '{"do":"display","id":5,"name":"Only","frame":[0,0,1920,1080],"vendor":4268,"product":41200,"serial":7,"monitor":{"current":10,"maximum":100}}', '',
    '{"do":"pointer","at":[900,500]}', '{"do":"launch"}', '{"do":"advance","seconds":1.5}', '{"do":"key","key":"brightnessUp"}', '{"do":"settle"}'];
  const path = join(folder, 'opened.scenario');
  writeFileSync(path, lines.join('\n'));
  const { root } = await page.send('DOM.getDocument');
  const { nodeId } = await page.send('DOM.querySelector', { nodeId: root.nodeId, selector: '#file' });
  await page.send('DOM.setFileInputFiles', { nodeId, files: [path] });
  await page.until('document.getElementById("upcoming").textContent.startsWith("1 of 6")', 'the first line');
  await page.click('#next');
  await page.until('document.querySelectorAll(".screen").length === 1 && document.querySelector("[data-display=\\"5\\"]")', 'the only display');
  await page.click('#rest');
  await page.until('document.getElementById("upcoming").textContent.includes("last line")', 'the end');
  await page.until('Number(document.querySelector("[data-display=\\"5\\"]").dataset.light) > 10', 'the light');
  const stream = record(port);
  await until(() => stream.records.some(([, record]) => record.includes('"do":"settle"')), 'the trace');
  await sleep(100);
  stream.close();
  const played = execFileSync(desk, ['play', '--seed', '7', path], { encoding: 'utf8' }).trimEnd().split('\n');
  const here = stream.records.map(([, record]) => record);
  assert.ok(here.length > 10);
  assert.deepEqual(played.slice(0, here.length), here);
});

test('a machine that stops is shown, can still be saved, and another begins', async ({ page, port }) => {
  // The program's own main thread ends with what it cannot survive.
  await act(port, { do: 'quit' });
  assert.equal((await act(port, { do: 'bundle', version: null })).status, 200);
  await act(port, { do: 'launch' });
  await page.until('!document.getElementById("stopped").hidden', 'the notice');
  assert.match(await page.run('document.getElementById("reason").textContent'), /no CFBundleShortVersionString/);
  const refused = await act(port, { do: 'settle' });
  assert.equal(refused.status, 409);
  const file = join(folder, 'stopped.scenario');
  writeFileSync(file, (await request(port, '/scenario')).text);
  const played = spawnSync(desk, ['play', '--seed', '7', file], { encoding: 'utf8' });
  assert.equal(played.status, 1);
  assert.match(played.stdout, /"what":"fatal".*no CFBundleShortVersionString/);
  await page.click('#anew');
  await page.until('document.getElementById("stopped").hidden && document.querySelectorAll(".screen").length === 3', 'the new desk');
  assert.equal((await act(port, { do: 'pointer', at: [2700, 760] })).status, 200);
});

test('a machine that crashes takes nothing down, and the line that it crashed at is kept', async ({ page, port, process: { pid } }) => {
  const machine = Number(execFileSync('sh', ['-c', `grep -l "^PPid:[[:space:]]*${pid}$" /proc/[0-9]*/status | grep -o "[0-9]*"`], { encoding: 'utf8' }).trim());
  process.kill(machine, 'SIGSTOP');
  const answer = act(port, { do: 'pointer', at: [1999, 99] });
  await sleep(300);
  process.kill(machine, 'SIGSEGV');
  process.kill(machine, 'SIGCONT');
  assert.equal((await answer).status, 409);
  await page.until('document.getElementById("reason").textContent.includes("signal 11")', 'the notice');
  assert.match((await request(port, '/scenario')).text, /"at":\[1999,99\]}\n$/);
  await page.click('#anew');
  await page.until('document.getElementById("stopped").hidden && document.querySelector(".pointed .status svg")', 'the new desk');
});

test('questions for a permission hold the clock until they are answered', async ({ page, port }) => {
  await page.until('document.querySelector(".pointed .status svg")', 'the program');
  for (const line of [{ do: 'quit' }, { do: 'capture', permission: 'undetermined' }, { do: 'launch' }]) assert.equal((await act(port, line)).status, 200);
  await page.until('document.getElementById("live").classList.contains("held") && document.querySelector("[role=alertdialog]")', 'the question');
  await sleep(1500);
  await page.run(`[...document.querySelectorAll('[role=alertdialog] button')].find((each) => each.textContent === 'Allow').click()`);
  await page.until('!document.querySelector("[role=alertdialog]")', 'the question to go');
  await until(async () => JSON.parse((await request(port, '/state')).text).taps === 1, 'the tap');
});

test('several tabs show one machine, and one that stands still harms nobody', async ({ browser, page, port, url }) => {
  const second = await browser.open(url);
  await second.until('document.querySelector(".status svg")', 'the second tab');
  // This one opens streams and never reads.
  const stuck = Array.from({ length: 5 }, () => {
    const socket = net.connect(port, '127.0.0.1');
    socket.pause();
    socket.on('error', () => {});
    socket.write(`GET /trace?with=state HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\n\r\n`);
    return socket;
  });
  const stream = record(port);
  await sleep(200);
  const first = stream.records.length;
  for (let i = 0; i < 300; ++i) assert.equal((await act(port, { do: 'pointer', at: [1600 + i, 700] })).status, 200);
  await until(() => stream.records.length >= first + 300, 'every record');
  const numbers = stream.records.map(([id]) => Number(id.split('-')[1]));
  numbers.forEach((number, i) => assert.equal(number, numbers[0] + i));
  // Whoever comes back goes on where they were.
  const back = record(port, stream.records.at(-10)[0]);
  await until(() => back.records.length >= 9, 'the rest');
  assert.equal(back.records[0][0], stream.records.at(-9)[0]);
  back.close();
  stream.close();
  stuck.forEach((socket) => socket.destroy());
  await second.run(`document.querySelector('[data-key=mute]').focus()`);
  await second.click('[data-key=mute]');
  for (const tab of [second, page]) await tab.until(`document.getElementById('said').textContent.startsWith('Muted')`, 'the pop-up in both tabs');
  await second.click('[data-key=mute]');
  assert.deepEqual(second.problems, []);
  await second.close();
});

test('the sound can be listened to', async ({ page, port }) => {
  // Also after nobody could.
  assert.equal((await act(port, { do: 'advance', seconds: 60 })).status, 200);
  await page.click('[data-listen=after]');
  await page.until('document.querySelector("[data-listen=after]").getAttribute("aria-pressed") === "true"', 'the choice');
  // What comes is samples of both sides. A busy computer may miss a cycle, as a Mac would.
  const blocks = await page.run(`new Promise((resolve) => {
    const blocks = [];
    const sound = new EventSource('sound');
    sound.onmessage = (event) => { if (blocks.push(event.data) === 15) { sound.close(); resolve(blocks); } };
  })`);
  const loudest = blocks.map((block) => {
    const [rate, text] = block.split(' ');
    assert.equal(rate, '48000');
    const samples = new Int16Array(Uint8Array.from(Buffer.from(text, 'base64')).buffer);
    assert.equal(samples.length, 1024);
    return [0, 1].map((side) => Math.max(...samples.filter((_, i) => i % 2 === side).map(Math.abs)) / 32768);
  });
  const [before, after] = [0, 1].map((side) => loudest.map((block) => block[side]).sort((a, b) => a - b)[7]);
  assert.ok(before > 0.3, `before: ${before}`);
  assert.ok(after > 0.01 && after < before * 0.7, `after: ${after}`);
  await page.click('[data-listen=off]');
});

// ---- Access, and how it looks ----

const axe = readFileSync(fileURLToPath(import.meta.resolve('axe-core/axe.min.js')), 'utf8');
async function violations(page) {
  await page.run(axe.replace(/^/, '') + '; true');
  return page.run(`axe.run(document, { resultTypes: ['violations'] }).then(({ violations }) =>
    violations.map(({ id, help, nodes }) => id + ': ' + help + ' — ' + nodes.map((node) => node.html.slice(0, 140) + ' ' + (node.any[0]?.message ?? '')).join(' | ')))`);
}

test('axe-core finds nothing to complain of', async ({ page }) => {
  for (const dark of [false, true]) {
    await page.setDark(dark, true);
    await page.run('document.querySelectorAll("details").forEach((each) => { each.open = true; })');
    await page.click('.pointed .status');
    await page.until('document.querySelector(".menu")', 'the menu');
    assert.deepEqual(await violations(page), [], 'the machine and the open menu');
    // Also when the focus was in what a changed menu has no more.
    await page.run('document.activeElement.blur()');
    await page.key('Escape');
    await page.until('!document.querySelector(".menu")', 'the menu to close');
    await page.click('#tab-record');
    await page.until('document.querySelector("#rows li")', 'the record');
    assert.deepEqual(await violations(page), [], 'the record');
    await page.click('#tab-machine');
    await page.run('document.querySelectorAll("details").forEach((each, index) => { each.open = index < 2; })');
  }
  await page.setDark(false);
});

test('it fits from a tablet to a large screen', async ({ page }) => {
  for (const [width, height] of [[768, 1024], [1024, 768], [1440, 900], [2560, 1440]]) {
    await page.resize(width, height);
    await sleep(250);
    assert.ok(await page.run('document.documentElement.scrollWidth <= innerWidth'), `${width} px: it is wider than the window`);
    const clipped = await page.run(`[...document.querySelectorAll('.front button, .toolbar button, .toolbar a')].filter((each) => {
      const box = each.getBoundingClientRect(); return box.left < 0 || box.right > innerWidth || box.width < 20; }).map((each) => each.textContent)`);
    assert.deepEqual(clipped, [], `${width} px`);
    const covered = await page.run(`(() => { const b = document.querySelector('.keys').getBoundingClientRect();
      return [...document.querySelectorAll('.television .caption *')].filter((each) => { const a = each.getBoundingClientRect();
        return a.right > b.left && a.bottom > b.top && b.right > a.left && b.bottom > a.top; }).map((each) => each.textContent); })()`);
    assert.deepEqual(covered, [], `${width} px: the keys cover what is said of the sound`);
    await page.run('document.querySelectorAll("details").forEach((each) => { each.open = true; })');
    assert.ok(await page.run(`(() => { const panel = document.getElementById('machine'); return panel.scrollWidth <= panel.clientWidth; })()`), `${width} px: the controls are too wide`);
    await page.run('document.querySelectorAll("details").forEach((each, index) => { each.open = index < 2; })');
  }
  await page.resize(1440, 900);
});

test('the pictures of the page are taken', async ({ page, port }) => {
  await page.until('!document.querySelector("[role=alertdialog]")', 'no alert');
  const before = await page.run('performance.now()');
  await page.click('#anew');
  await page.until(`document.querySelectorAll(".screen").length === 3 && document.querySelector(".pointed .status svg") && performance.now() > ${before} + 1500`, 'the desk');
  await page.click('.pointed .status');
  await page.until(slider('Studio'), 'the menu');
  for (const dark of [false, true]) {
    await page.setDark(dark);
    await page.click('[data-key=brightnessUp]');
    await page.until(`document.querySelector('[data-display="2"] .popup:not([hidden], .gone)')`, 'the pop-up');
    await page.until(`${valueOf('Studio')} > 10`, 'the slider');
    await page.until(`${level} > 0.1`, 'the music');
    await sleep(250);
    const picture = await page.picture();
    assert.ok(picture.length > 50000);
    if (pictures) writeFileSync(join(pictures, dark ? 'desk-dark.png' : 'desk.png'), picture);
  }
});

// ---- All of them, on one machine ----

const server = await start('--port', '0');
const browser = new Browser();
let failed = 0;
const trace = record(server.port);
const page = await browser.open(server.url);
for (const { name, body } of tests) {
  const began = Date.now();
  try {
    await body({ ...server, browser, page, trace });
    console.log(`ok      ${name} (${Date.now() - began} ms)`);
  } catch (error) {
    ++failed;
    console.log(`FAILED  ${name}\n${error.stack}`);
  }
}
// What was refused on purpose is said by the browser, too.
const problems = page.problems.filter((problem) => !/status of (400|409)/.test(problem));
if (problems.length > 0) {
  ++failed;
  console.log(`FAILED  the page complains:\n${problems.join('\n')}`);
}
await browser.close();
trace.close();
server.process.kill('SIGTERM');
const [status] = await Promise.race([once(server.process, 'exit'), sleep(10000).then(() => ['none'])]);
if (status !== 0) {
  ++failed;
  console.log(`FAILED  the server ended with ${status}`);
  server.process.kill('SIGKILL');
}
rmSync(folder, { recursive: true, force: true });
console.log(failed === 0 ? `all ${tests.length} passed` : `${failed} failed`);
process.exit(failed === 0 ? 0 : 1);
