// The machine at the other end: what is done to it, and what it tells.

const listeners = { record: [], state: [], pulse: [], machine: [] };
export const on = (what, listener) => listeners[what].push(listener);
const tell = (what, ...values) => listeners[what].forEach((listener) => listener(...values));

// The newest of each; null: not yet known.
export const now = { state: null, pulse: null, machine: null };

let stream = null;
let last = { machine: 0, number: -1, id: '' };

function hear(event) {
  const [machine, number, cause] = event.lastEventId.split('-').map(Number);
  if (machine === last.machine && number <= last.number) return;
  last = { machine, number, id: event.lastEventId };
  tell('record', JSON.parse(event.data), { machine, number, cause, text: event.data });
}

export function connect() {
  if (stream) return;
  stream = new EventSource('trace?with=state&after=' + last.id);
  stream.onmessage = hear;
  for (const what of ['state', 'pulse', 'machine']) {
    stream.addEventListener(what, (event) => {
      now[what] = JSON.parse(event.data || 'null');
      if (now[what]) tell(what, now[what]);
    });
  }
}

// A tab that nobody sees needs no stream, of which a browser has only a few.
document.addEventListener('visibilitychange', () => {
  if (!document.hidden) return connect();
  stream?.close();
  stream = null;
});

async function post(path, body) {
  const response = await fetch(path, { method: 'POST', body });
  if (!response.ok) throw new Error((await response.text()).trim());
}

let complain = () => {};
export const onRefusal = (listener) => { complain = listener; };

// Lines arrive in the order in which they are done here. True: it was carried out.
let before = Promise.resolve();
export function act(line) {
  const done = before.then(() => post('do', typeof line === 'string' ? line : JSON.stringify(line)));
  before = done.catch(() => {});
  return done.then(() => true, (error) => (complain(error.message), false));
}

export const setClock = (clock) => post('clock', clock).catch((error) => complain(error.message));
export const begin = (furnished, seed = '1') =>
  post('begin', JSON.stringify({ furnished, seed })).then(() => true, (error) => (complain(error.message), false));
