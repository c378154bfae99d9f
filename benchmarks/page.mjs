// How quick the desk page is: node benchmarks/page.mjs DALVANE_DESK
//
// From a key press in the page to the pixel that it changes, as the browser has put it on the screen; and what many tabs
// and many lines do to it.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import http from 'node:http';
import { Browser, follow, sleep } from '../tests/browser/Browser.mjs';

const presses = 60;
const tabs = 100;
const seconds = 10;

const server = spawn(process.argv[2], ['serve', '--port', '0'], { stdio: ['ignore', 'pipe', 'inherit'] });
const [said] = await once(server.stdout.setEncoding('utf8'), 'data');
const url = /http:\S+\//.exec(said)[0];
const port = Number(new URL(url).port);

const middle = (values) => values.toSorted?.((a, b) => a - b)[values.length >> 1] ?? [...values].sort((a, b) => a - b)[values.length >> 1];
const worst = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length * 0.95)];
const memory = (pid) => Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;
const children = (pid) => readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8').trim().split(' ').map(Number);
const both = () => [memory(server.pid), ...allChildren(server.pid).map(memory)].map((mb) => mb.toFixed(1)).join(' + ') + ' MB';
function allChildren(pid) {
  try { return children(pid).filter(Boolean); } catch { return []; }
}

const agent = new http.Agent({ keepAlive: false, maxSockets: 16 });
const act = (line) => new Promise((resolve, reject) => {
  const sent = http.request({ host: '127.0.0.1', port, path: '/do', method: 'POST', agent }, (response) => { response.resume(); response.on('end', () => resolve(response.statusCode)); });
  sent.on('error', reject);
  sent.end(JSON.stringify(line));
});
function listen() {
  const seen = { records: 0, gaps: 0, last: -1 };
  const take = (id) => {
    const number = Number(id.split('-')[1]);
    if (seen.last >= 0 && number !== seen.last + 1) ++seen.gaps;
    seen.last = number;
    ++seen.records;
  };
  seen.close = follow(port, take, { ended: () => { seen.ended = true; } });
  return seen;
}

// From the event of the press, by the browser's own clock, to the second frame after the change is in the document: by
// then the first has been painted.
async function latency(page) {
  const times = [];
  for (let i = 0; i < presses; ++i) {
    const key = Math.floor(i / 4) % 2 === 0 ? 'brightnessUp' : 'brightnessDown';
    const cap = await page.middle(`[data-key=${key}]`);
    await page.run(`window.measured = new Promise((resolve) => {
      const screen = document.querySelector('[data-display="2"]');
      let began = 0;
      addEventListener('pointerdown', (event) => { began = event.timeStamp; }, { once: true, capture: true });
      const seen = new MutationObserver(() => {
        seen.disconnect();
        requestAnimationFrame(() => requestAnimationFrame(() => resolve(performance.now() - began)));
      });
      seen.observe(screen, { subtree: true, childList: true, attributes: true, attributeFilter: ['data-filled', 'data-light', 'hidden', 'class'] });
    }); true`);
    await page.mouse('mousePressed', cap.cx, cap.cy);
    times.push(await page.run('window.measured'));
    await page.mouse('mouseReleased', cap.cx, cap.cy, 0);
    await sleep(150);
  }
  return times;
}

const browser = new Browser();
const page = await browser.open(url);
await page.until('document.querySelector(".pointed .status svg")', 'the desk');
await sleep(500);
let times = await latency(page);
console.log(`key press to changed pixel: median ${middle(times).toFixed(1)} ms, 95 % ${worst(times).toFixed(1)} ms (${presses} presses)`);

console.log(`memory of server and machine: ${both()}`);
const streams = Array.from({ length: tabs }, listen);
await sleep(1000);
times = await latency(page);
console.log(`with ${tabs} more streams: median ${middle(times).toFixed(1)} ms, 95 % ${worst(times).toFixed(1)} ms`);
await page.close();
await browser.close();

for (const round of [1, 2]) {
  const began = performance.now();
  let sent = 0;
  const work = Array.from({ length: 8 }, async () => {
    while (performance.now() - began < seconds * 1000) {
      if (sent > (performance.now() - began) * 1.05) { await sleep(2); continue; }
      ++sent;
      if (await act({ do: 'pointer', at: [1600 + sent % 500, 700] }) !== 200) throw new Error('refused');
    }
  });
  await Promise.all(work);
  const took = (performance.now() - began) / 1000;
  await sleep(1500);
  const last = Math.max(...streams.map((each) => each.last));
  console.log(`round ${round}: ${Math.round(sent / took)} lines a second for ${took.toFixed(0)} s with ${tabs} streams; streams that missed a record or ended: ` +
    `${streams.filter((each) => each.gaps > 0 || each.ended || each.last !== last).length}; memory ${both()}`);
}
streams.forEach((each) => each.close());
server.kill('SIGTERM');
await once(server, 'exit');
process.exit(0);
