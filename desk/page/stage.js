// The screens as they are arranged, each as bright as it is, with the menu bar, pop-ups and the pointer.

import { element, find, symbol } from './dom.js';
import { act, now, on } from './machine.js';
import { openMenu, placeMenu } from './menu.js';

const stage = find('stage');
const screens = new Map();  // by display
const room = 34;            // px below the screens, for what they stand on

// Where the arrangement lies on the stage.
let scale = 1;
let origin = { x: 0, top: 0 };

function arrange(displays) {
  const frames = displays.map((display) => display.frame);
  if (frames.length === 0) return;
  const left = Math.min(...frames.map(([x]) => x));
  const right = Math.max(...frames.map(([x, , w]) => x + w));
  const bottom = Math.min(...frames.map(([, y]) => y));
  const top = Math.max(...frames.map(([, y, , h]) => y + h));
  const gap = 26 * (displays.length - 1);
  const bounds = stage.getBoundingClientRect();
  scale = Math.min((bounds.width - 76 - gap) / (right - left), (bounds.height - 24 - room) / (top - bottom));
  const width = (right - left) * scale + gap;
  origin = { x: (bounds.width - width) / 2 - left * scale, top: (bounds.height - room - (top - bottom) * scale) / 2 + top * scale };
  const inOrder = [...displays].sort((one, other) => one.frame[0] - other.frame[0]);
  inOrder.forEach((display, index) => {
    const [x, y, w, h] = display.frame;
    const { style } = screens.get(display.id).body;
    style.left = `${origin.x + x * scale + index * 26}px`;
    style.top = `${origin.top - (y + h) * scale}px`;
    style.width = `${w * scale}px`;
    style.height = `${h * scale}px`;
  });
}

function movePointer(display, x, y) {
  const [left, bottom, width, height] = display.frame;
  const inside = (value, least, size) => Math.round(Math.min(Math.max(value, least), least + size - 1));
  act({ do: 'pointer', at: [inside(x, left, width), inside(y, bottom, height)] });
}

function clicked(event, id) {
  const display = shown(id);
  const box = screens.get(id).picture.getBoundingClientRect();
  const [left, bottom, width, height] = display.frame;
  movePointer(display, left + (event.clientX - box.left) / box.width * width,
    bottom + (1 - (event.clientY - box.top) / box.height) * height);
}

function typed(event, id) {
  const steps = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, 1], ArrowDown: [0, -1] };
  const display = shown(id);
  const [left, bottom, width, height] = display.frame;
  const [x, y] = now.state.seat.pointer;
  const isHere = x >= left && x < left + width && y >= bottom && y < bottom + height;
  if (event.key === 'Enter' || event.key === ' ') movePointer(display, left + width / 2, bottom + height / 2);
  else if (steps[event.key] && isHere) movePointer(display, x + steps[event.key][0] * 80, y + steps[event.key][1] * 80);
  else return;
  event.preventDefault();
}

const shown = (id) => now.state.seat.displays.find((display) => display.id === id);

function makeScreen(display) {
  const status = element('button', { type: 'button', class: 'status', 'aria-haspopup': 'dialog', 'aria-expanded': 'false' });
  status.addEventListener('click', () => openMenu(status));
  const bar = element('div', { class: 'menubar' }, element('span', { class: 'app', 'aria-hidden': 'true' }, 'Finder'), status,
    element('span', { class: 'clockface', 'aria-hidden': 'true' }));
  const dim = element('div', { class: 'dim' });
  const popup = element('div', { class: 'popup', hidden: true });
  const pointer = element('svg:svg', { class: 'pointer', viewBox: '0 0 14 20', 'aria-hidden': 'true' },
    element('svg:path', { d: 'M1.5 1.5v14.2l3.5-3.3 2.3 5.6 2.5-1-2.3-5.5h4.8Z' }));
  const label = element('span', { class: 'name' });
  const picture = element('div', { class: 'picture' },
    element('div', { class: 'paper', role: 'button', tabindex: '0', onclick: (event) => clicked(event, display.id), onkeydown: (event) => typed(event, display.id) }),
    label, bar, popup, dim, pointer);
  const body = element('div', { class: display.builtin ? 'screen notebook' : 'screen', 'data-display': display.id }, picture, element('div', { class: 'foot' }));
  stage.append(body);
  return { body, picture, dim, popup, pointer, label, status, paper: picture.firstChild, popped: null };
}

function drawIcon(button, icon) {
  const text = JSON.stringify(icon);
  if (button.dataset.icon === text) return;
  button.dataset.icon = text;
  button.replaceChildren();
  button.hidden = !icon;
  if (!icon) return;
  button.setAttribute('aria-label', `${icon.description ?? 'Status item'}: menu`);
  button.append(element('svg:svg', { viewBox: `0 0 ${icon.width} ${icon.height}`, width: icon.width, height: icon.height, 'aria-hidden': 'true' },
    ...icon.paths.map((path) => path.op === 'fill'
      ? element('svg:path', { d: path.d, fill: 'currentColor' })
      : element('svg:path', { d: path.d, fill: 'none', stroke: 'currentColor', 'stroke-width': path.line_width, 'stroke-linecap': path.cap }))));
}

let drawn = '';
function draw(state) {
  const { displays, pointer } = state.seat;
  const visible = displays.filter((display) => display.mirrors === null);
  for (const [id, screen] of screens) {
    if (visible.some((display) => display.id === id)) continue;
    screen.body.remove();
    screens.delete(id);
  }
  for (const display of visible) {
    if (!screens.has(display.id)) screens.set(display.id, makeScreen(display));
    const screen = screens.get(display.id);
    const light = display.brightness === null || !display.maximum ? 1 : display.brightness / display.maximum;
    const percent = Math.round(light * 100);
    screen.dim.style.opacity = String(0.86 * (1 - light) ** 1.3);
    screen.body.dataset.light = percent;
    screen.label.textContent = display.brightness === null ? display.name : `${display.name} · ${percent} %`;
    screen.paper.setAttribute('aria-label', `${display.name}${display.brightness === null ? '' : `, brightness ${percent} %`}: move the pointer here`);
    drawIcon(screen.status, state.icon);
    screen.status.setAttribute('aria-expanded', String(state.menu !== null));
    const [x, y, w, h] = display.frame;
    const isHere = pointer[0] >= x && pointer[0] < x + w && pointer[1] >= y && pointer[1] < y + h;
    screen.pointer.toggleAttribute('hidden', !isHere);
    screen.pointer.style.left = `${(pointer[0] - x) / w * 100}%`;
    screen.pointer.style.top = `${(1 - (pointer[1] - y) / h) * 100}%`;
    screen.body.classList.toggle('pointed', isHere);
  }
  const frames = JSON.stringify(visible.map((display) => [display.id, display.frame]));
  if (frames !== drawn) {
    drawn = frames;
    arrange(visible);
  }
  stage.classList.toggle('empty', visible.length === 0);
  const home = [...screens.values()].find((screen) => screen.body.classList.contains('pointed')) ?? [...screens.values()][0];
  placeMenu(state.menu, home?.status ?? stage);
}

new ResizeObserver(() => {
  if (!now.state) return;
  drawn = '';
  draw(now.state);
}).observe(stage);

// ---- Pop-ups ----

function pop(record) {
  const { args } = record;
  const screen = screens.get(args.display);
  if (!screen) return;
  const isLight = args.image === 1;
  const name = isLight ? 'Brightness' : args.image === 4 ? 'Muted' : 'Volume';
  const chicklets = element('div', { class: 'chicklets' });
  for (let i = 0; i < args.total; ++i) chicklets.append(element('i', { class: i < args.filled ? 'on' : null }));
  screen.popup.replaceChildren(symbol(isLight ? 'sun' : args.image === 4 ? 'muted' : 'speakerHigh'), chicklets);
  screen.popup.dataset.filled = args.filled;
  screen.popup.hidden = false;
  screen.popup.classList.remove('gone');
  screen.popped = record.t + args.fade / 1000;
  find('said').textContent = `${name} ${args.filled} of ${args.total}, ${shown(args.display)?.name ?? ''}`;
}

// They stay for their second of the machine's time.
function fade({ t }) {
  for (const screen of screens.values()) {
    if (screen.popped === null || t < screen.popped) continue;
    screen.popped = null;
    screen.popup.classList.add('gone');
  }
  const minutes = Math.floor(t / 60);
  const face = `${9 + Math.floor(minutes / 60) % 15}:${String(41 + minutes % 60 > 59 ? (41 + minutes) % 60 : 41 + minutes % 60).padStart(2, '0')}`;
  document.querySelectorAll('.clockface').forEach((each) => { if (each.textContent !== face) each.textContent = face; });
}

let old = 0;
on('record', (record, { machine }) => {
  if (machine !== old) screens.forEach((screen) => { screen.popup.hidden = true; screen.popped = null; });
  old = machine;
  const isNew = !now.pulse || record.t > now.pulse.t - 1;
  if (record.what === 'call' && record.api === 'OSDManager.showImage' && isNew) pop(record);
});
on('state', draw);
on('pulse', fade);
