// A browser without a window, driven by the DevTools protocol over two pipes.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import http from 'node:http';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Listens to the records of the desk at this port, from the one after `after`, as the page does: `take` gets the id and the
// text of each, and `ended` is called when the desk has ended the stream. The function that ends it from here.
export function follow(port, take, { after = '', ended = () => {} } = {}) {
  const headers = after ? { 'Last-Event-ID': after } : {};
  const sent = http.get({ host: '127.0.0.1', port, path: '/trace', agent: false, headers }, (response) => {
    let unread = '';
    response.setEncoding('utf8').on('data', (piece) => {
      unread += piece;
      const events = unread.split('\n\n');
      unread = events.pop();
      for (const event of events) {
        const [, id, text] = /^id: (.*)\ndata: (.*)$/.exec(event) ?? [];
        if (id) take(id, text);
      }
    });
    response.on('end', ended);
  });
  sent.on('error', () => {});
  return () => sent.destroy();
}

export class Browser {
  #next = 1;
  #waiting = new Map();
  #listeners = [];

  constructor(program = process.env.CHROMIUM ?? 'chromium') {
    this.folder = mkdtempSync(join(tmpdir(), 'desk-browser-'));
    // A container's user namespace has no place for the browser's own sandbox; it visits nothing but the desk.
    this.process = spawn(program, ['--headless=new', '--remote-debugging-pipe', '--no-sandbox', '--disable-gpu', '--hide-scrollbars', '--mute-audio',
      '--no-first-run', '--disable-background-networking', '--disable-component-update', '--autoplay-policy=no-user-gesture-required',
      `--user-data-dir=${this.folder}`, 'about:blank'], { stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'] });
    this.exited = new Promise((resolve) => this.process.on('exit', resolve));
    this.process.on('error', (error) => { throw new Error(`${program}: ${error.message}`); });
    let unread = '';
    this.process.stdio[4].setEncoding('utf8').on('data', (text) => {
      unread += text;
      const messages = unread.split('\0');
      unread = messages.pop();
      for (const message of messages) this.#receive(JSON.parse(message));
    });
  }

  #receive(message) {
    const waiting = this.#waiting.get(message.id);
    this.#waiting.delete(message.id);
    if (!waiting) for (const listener of this.#listeners) listener(message);
    else if (message.error) waiting.reject(new Error(message.error.message));
    else waiting.resolve(message.result);
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.#next++;
    this.process.stdio[3].write(JSON.stringify({ id, method, params, sessionId }) + '\0');
    return new Promise((resolve, reject) => this.#waiting.set(id, { resolve, reject }));
  }
  listen(listener) { this.#listeners.push(listener); }

  async open(url, { width = 1440, height = 900, dark = false, scale = 1 } = {}) {
    const { targetId } = await this.send('Target.createTarget', { url: 'about:blank', newWindow: true });
    const { sessionId } = await this.send('Target.attachToTarget', { targetId, flatten: true });
    const tab = new Tab(this, sessionId, targetId);
    await tab.send('Page.enable');
    await tab.send('Runtime.enable');
    await tab.send('Log.enable');
    await tab.resize(width, height, scale);
    await tab.setDark(dark);
    await tab.send('Page.navigate', { url });
    await tab.until('document.readyState === "complete"', 'the page');
    return tab;
  }

  async close() {
    this.send('Browser.close').catch(() => {});
    await Promise.race([this.exited, sleep(5000).then(() => this.process.kill('SIGKILL'))]);
    await this.exited;
    rmSync(this.folder, { recursive: true, force: true, maxRetries: 5 });
  }
}

export class Tab {
  // What the page complains of: uncaught errors, what its policy forbids, and what cannot be loaded.
  problems = [];

  constructor(browser, session, target) {
    Object.assign(this, { browser, session, target });
    browser.listen(({ sessionId, method, params }) => {
      if (sessionId !== session) return;
      if (method === 'Runtime.exceptionThrown') this.problems.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
      if (method === 'Log.entryAdded' && params.entry.level === 'error') this.problems.push(`${params.entry.text} ${params.entry.url ?? ''}`);
    });
  }

  send(method, params) { return this.browser.send(method, params, this.session); }

  async run(expression) {
    const { result, exceptionDetails } = await this.send('Runtime.evaluate', { expression, awaitPromise: true, returnByValue: true });
    if (exceptionDetails) throw new Error(`${expression}: ${exceptionDetails.exception?.description ?? exceptionDetails.text}`);
    return result.value;
  }
  // Waits until the expression is true; its value.
  async until(expression, what, within = 30000) {
    for (const end = Date.now() + within; ; await sleep(15)) {
      const value = await this.run(expression).catch((error) => { if (Date.now() > end) throw error; });
      if (value) return value;
      if (Date.now() > end) throw new Error(`waited in vain for ${what}: ${expression}`);
    }
  }

  resize(width, height, scale = 1) {
    return this.send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: scale, mobile: false });
  }
  setDark(dark, reduced = false) {
    return this.send('Emulation.setEmulatedMedia', { features: [{ name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' },
      { name: 'prefers-reduced-motion', value: reduced ? 'reduce' : 'no-preference' }] });
  }

  // The middle of what the selector finds.
  async middle(selector) {
    const box = await this.until(`(() => { const e = document.querySelector(${JSON.stringify(selector)}); if (!e) return null;
      e.scrollIntoView({ block: 'nearest' }); const b = e.getBoundingClientRect(); return { x: b.x, y: b.y, width: b.width, height: b.height }; })()`, selector);
    return { ...box, cx: box.x + box.width / 2, cy: box.y + box.height / 2 };
  }
  mouse(type, x, y, buttons = 1) {
    return this.send('Input.dispatchMouseEvent', { type, x, y, button: type === 'mouseMoved' ? 'none' : 'left', buttons, clickCount: 1 });
  }
  async click(selector) {
    const { cx, cy } = await this.middle(selector);
    await this.mouse('mouseMoved', cx, cy, 0);
    await this.mouse('mousePressed', cx, cy);
    await this.mouse('mouseReleased', cx, cy, 0);
  }
  async key(key, { code = key, text = undefined } = {}) {
    const codes = { F1: 112, F2: 113, F10: 121, F11: 122, F12: 123, Escape: 27, Tab: 9, Enter: 13, ArrowRight: 39, ArrowLeft: 37, ArrowDown: 40 };
    const windowsVirtualKeyCode = codes[key] ?? 0;
    await this.send('Input.dispatchKeyEvent', { type: 'keyDown', key, code, text, windowsVirtualKeyCode });
    await this.send('Input.dispatchKeyEvent', { type: 'keyUp', key, code, windowsVirtualKeyCode });
  }
  async picture() {
    const { data } = await this.send('Page.captureScreenshot', { format: 'png' });
    return Buffer.from(data, 'base64');
  }
  close() { return this.browser.send('Target.closeTarget', { targetId: this.target }); }
}
