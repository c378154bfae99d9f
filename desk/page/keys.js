// The row of media keys: pressed, held and typed.

import { element, find, symbol } from './dom.js';
import { act } from './machine.js';

const repeatsAfter = 400;  // ms, then every
const repeatsEvery = 90;

const keys = [
  { key: 'brightnessDown', name: 'Brightness down', symbol: 'sunMin', code: 'F1' },
  { key: 'brightnessUp', name: 'Brightness up', symbol: 'sun', code: 'F2' },
  { key: 'mute', name: 'Mute', symbol: 'speaker', code: 'F10' },
  { key: 'volumeDown', name: 'Volume down', symbol: 'speakerLow', code: 'F11' },
  { key: 'volumeUp', name: 'Volume up', symbol: 'speakerHigh', code: 'F12' },
];

let held = null;

function press(key) {
  if (held) release();
  held = { key, timer: 0 };
  key.button.classList.add('down');
  act({ do: 'key', key: key.key, action: 'press' });
  // The next repetition waits until this one has been carried out: a slow connection makes no queue.
  const repeat = async () => {
    const mine = held;
    await act({ do: 'key', key: key.key, action: 'press', repeat: true });
    if (held === mine && mine) mine.timer = setTimeout(repeat, repeatsEvery);
  };
  held.timer = setTimeout(repeat, repeatsAfter);
}

function release() {
  if (!held) return;
  const { key, timer } = held;
  held = null;
  clearTimeout(timer);
  key.button.classList.remove('down');
  act({ do: 'key', key: key.key, action: 'release' });
}

for (const key of keys) {
  key.button = element('button', { type: 'button', class: 'cap', 'aria-label': key.name, 'aria-keyshortcuts': key.code, 'data-key': key.key, title: `${key.name} (${key.code})` },
    symbol(key.symbol), element('span', { class: 'code', 'aria-hidden': 'true' }, key.code));
  key.button.addEventListener('pointerdown', (event) => {
    if (event.button !== 0) return;
    key.button.setPointerCapture(event.pointerId);
    press(key);
  });
  for (const end of ['pointerup', 'pointercancel', 'lostpointercapture']) key.button.addEventListener(end, () => { if (held?.key === key) release(); });
  key.button.addEventListener('contextmenu', (event) => event.preventDefault());
  key.button.addEventListener('blur', () => { if (held?.key === key) release(); });
}
find('keys').append(...keys.map((key) => key.button));

// A screen reader clicks without a pointer or a key.
find('keys').addEventListener('click', (event) => {
  const key = keys.find((each) => each.button.contains(event.target));
  if (key && event.detail === 0 && !typedAt) { press(key); release(); }
});

let typedAt = 0;
document.addEventListener('keydown', (event) => {
  const focused = keys.find((key) => key.button === document.activeElement && (event.key === ' ' || event.key === 'Enter'));
  const key = keys.find((each) => each.code === event.key) ?? focused;
  if (!key || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  typedAt = 1;
  if (!event.repeat && held?.key !== key) press(key);
});
document.addEventListener('keyup', (event) => {
  const isTyped = keys.some((each) => each.code === event.key) || event.key === ' ' || event.key === 'Enter';
  if (held && isTyped) {
    event.preventDefault();
    release();
  }
  setTimeout(() => { typedAt = 0; });
});
window.addEventListener('blur', release);
