// The status menu, as the program has laid it out, with sliders to drag.

import { element, find, place, symbol } from './dom.js';
import { act, now } from './machine.js';

const knob = 8;  // its width in the machine's own slider
let menu = null;
let shape = '';
let anchor = null;
let dragged = null;  // the row's caption
let opener = null;

export function openMenu(button) {
  anchor = button;
  opener = button;
  act({ do: 'menu', open: now.state.menu === null });
}

const close = () => act({ do: 'menu', open: false });

// ---- Sliders ----

// One move is under way at a time; those that come meanwhile replace each other.
let waiting = null;
let underWay = false;
async function slide(line) {
  waiting = line;
  if (underWay) return;
  underWay = true;
  while (waiting) {
    const next = waiting;
    waiting = null;
    await act(next);
  }
  underWay = false;
}

function drag(slider, row) {
  const { minimum, maximum, caption } = row;
  const valueAt = (event) => {
    const box = slider.getBoundingClientRect();
    const part = (event.clientX - box.left - knob / 2) / (box.width - knob);
    return Math.round((minimum + Math.min(Math.max(part, 0), 1) * (maximum - minimum)) * 100) / 100;
  };
  const move = (event, release) => slide({ do: 'slide', row: caption, to: valueAt(event), ...(release ? {} : { release: false }) });
  slider.addEventListener('pointerdown', (event) => {
    if (event.button !== 0) return;
    slider.setPointerCapture(event.pointerId);
    slider.focus();
    dragged = caption;
    move(event, false);
    event.preventDefault();
  });
  slider.addEventListener('pointermove', (event) => { if (dragged === caption) move(event, false); });
  for (const end of ['pointerup', 'pointercancel']) {
    slider.addEventListener(end, (event) => {
      if (dragged !== caption) return;
      dragged = null;
      move(event, true);
    });
  }
  slider.addEventListener('keydown', (event) => {
    const value = Number(slider.getAttribute('aria-valuenow'));
    const step = row.ticks > 1 ? (maximum - minimum) / (row.ticks - 1) : (maximum - minimum) / 16;
    const to = { ArrowLeft: value - step, ArrowDown: value - step, ArrowRight: value + step, ArrowUp: value + step, Home: minimum, End: maximum,
      PageUp: value + 4 * step, PageDown: value - 4 * step }[event.key];
    if (to === undefined) return;
    slide({ do: 'slide', row: caption, to: Math.min(Math.max(to, minimum), maximum) });
    event.preventDefault();
    event.stopPropagation();
  });
}

function makeSlider(row) {
  const [x, y, w, h] = row.slider_frame;
  const track = element('i', { class: 'filled' });
  const handle = element('i', { class: 'knob' });
  const slider = element('div', { class: 'slider', role: 'slider', tabindex: '0', 'aria-label': row.label || row.caption,
    'aria-valuemin': row.minimum, 'aria-valuemax': row.maximum, 'aria-valuenow': row.value }, element('i', { class: 'track' }), track);
  for (let i = 0; i < row.ticks; ++i) {
    const tick = element('i', { class: 'tick' });
    tick.style.left = `${knob / 2 + i / Math.max(row.ticks - 1, 1) * (w - knob)}px`;
    slider.append(tick);
  }
  slider.append(handle);
  place(slider, x, y, w, h);
  drag(slider, row);
  const caption = element('span', { class: 'caption', 'aria-hidden': 'true' }, row.shown_caption);
  const shown = row.symbol ? symbol(row.symbol.includes('sun') ? 'sun' : row.symbol.includes('slash') ? 'muted' : 'speakerHigh') : null;
  return element('div', { class: 'row' }, caption, shown, slider);
}

function setSlider(slider, { value, minimum, maximum, slider_frame: [, , w] }) {
  const part = maximum > minimum ? (value - minimum) / (maximum - minimum) : 0;
  slider.setAttribute('aria-valuenow', String(Math.round(value * 100) / 100));
  slider.querySelector('.knob').style.left = `${part * (w - knob)}px`;
  slider.querySelector('.filled').style.width = `${part * (w - knob) + knob / 2}px`;
}

// ---- The menu ----

function makeItem(item) {
  const [x, y, w, h] = item.frame;
  let made;
  if (item.separator) made = element('div', { class: 'separator', role: 'separator' });
  else if (item.slider) made = element('div', { class: 'holder', role: 'group', 'aria-label': item.slider.caption }, makeSlider(item.slider));
  else if (item.header) made = element('div', { class: 'header' }, item.title);
  else {
    const key = item.key ? element('span', { class: 'key', 'aria-hidden': 'true' }, '⌘' + item.key.toUpperCase()) : null;
    made = element('button', { type: 'button', class: 'item', 'aria-pressed': item.ticked ? 'true' : null,
      'aria-disabled': item.enabled ? null : 'true', tabindex: '-1' },
    element('span', { class: 'mark', 'aria-hidden': 'true' }, item.ticked ? '✓' : ''), element('span', {}, item.title), key);
    if (item.enabled) made.addEventListener('click', () => act({ do: 'click', item: item.title }));
  }
  place(made, x, y, w, h);
  return made;
}

const stopsIn = (shown) => [...shown.querySelectorAll('.slider, .item:not([aria-disabled])')];

function typed(event) {
  if (event.key !== 'ArrowDown' && event.key !== 'ArrowUp') return;
  const stops = stopsIn(menu);
  const at = stops.indexOf(document.activeElement);
  stops[(at + (event.key === 'ArrowDown' ? 1 : -1) + stops.length) % stops.length]?.focus();
  event.preventDefault();
}

function build(items) {
  menu?.remove();
  menu = element('div', { class: 'menu', role: 'dialog', 'aria-label': 'Dalvane’s menu', onkeydown: typed });
  const bottom = Math.max(...items.map((item) => item.frame[1] + item.frame[3]), 0);
  const width = Math.max(...items.map((item) => item.frame[2]), 0);
  menu.append(...items.map(makeItem));
  menu.style.width = `${width}px`;
  menu.style.height = `${bottom + 5}px`;
  find('stage').append(menu);
}

function put() {
  const stage = find('stage').getBoundingClientRect();
  const at = anchor.getBoundingClientRect();
  const width = menu.offsetWidth;
  // It stays on its screen where that is much wider; otherwise it would hide what the keys show there.
  const screen = anchor.closest('.picture')?.getBoundingClientRect() ?? stage;
  const right = screen.width > 2.6 * width ? screen.right - 8 : stage.right - 4;
  const left = Math.max(Math.min(at.left, right - width) - stage.left, 4);
  menu.style.left = `${left}px`;
  menu.style.top = `${at.bottom - stage.top + 3}px`;
}

export function placeMenu(items, home) {
  if (!items) {
    if (menu?.contains(document.activeElement)) opener?.focus();
    menu?.remove();
    menu = null;
    shape = '';
    dragged = null;
    return;
  }
  if (!anchor?.isConnected || anchor.hidden) anchor = home;
  const newShape = JSON.stringify(items, (key, value) => (key === 'value' ? undefined : value));
  if (newShape !== shape) {
    const wasOpen = shape !== '';
    // Who was at an item of a menu that changes stays there.
    const at = wasOpen ? stopsIn(menu).indexOf(document.activeElement) : opener ? 0 : -1;
    shape = newShape;
    build(items);
    put();
    if (at >= 0) stopsIn(menu)[at]?.focus({ preventScroll: true });
  }
  const sliders = menu.querySelectorAll('.slider');
  items.filter((item) => item.slider).forEach((item, index) => setSlider(sliders[index], item.slider));
  put();
}

// Escape closes it wherever the focus is, and so does a click beside it.
document.addEventListener('keydown', (event) => {
  if (!menu || event.key !== 'Escape' || event.target.closest('.sheet')) return;
  close();
  event.preventDefault();
});
document.addEventListener('pointerdown', (event) => {
  if (menu && !menu.contains(event.target) && event.target.closest('.stage') && !event.target.closest('.status, .sheet')) close();
});
