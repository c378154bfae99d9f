// The machine's own controls: whatever can happen to it.

import { element, find } from './dom.js';
import { act, now, on } from './machine.js';

const panel = find('machine');
const feedURL = 'https://releases.dalvane.example/Dalvane-';

const button = (text, action, title) => element('button', { type: 'button', onclick: action, title }, text);
const doing = (text, line, title) => button(text, () => act(typeof line === 'function' ? line() : line), title);

function choice(label, options, onchange) {
  const select = element('select', { 'aria-label': label }, ...options.map(([value, text]) => element('option', { value }, text)));
  select.addEventListener('change', () => onchange(select.value, select));
  return select;
}
function labelled(text, control) {
  return element('label', { class: 'field' }, element('span', {}, text), control);
}
function toggle(text, onchange) {
  const box = element('input', { type: 'checkbox', role: 'switch' });
  box.addEventListener('change', () => onchange(box.checked));
  return { field: element('label', { class: 'field' }, element('span', {}, text), box), box };
}
function section(title, isOpen, ...children) {
  return element('details', { open: isOpen }, element('summary', {}, title), element('div', { class: 'body' }, ...children));
}
const buttons = (...children) => element('div', { class: 'buttons' }, ...children);

// ---- Power ----

const runs = doing('Quit Dalvane', () => (now.state.running ? { do: 'quit' } : { do: 'launch' }));
const power = section('Program and power', true,
  buttons(runs, doing('Sleep for an hour', { do: 'sleep', seconds: 3600 }, 'The Mac sleeps and wakes again'),
    doing('Wake', { do: 'wake' }, 'The Mac wakes up'), doing('Let it settle', { do: 'settle' }, 'Time passes until nothing is due')));

// ---- Displays ----

const faults = [['none', 'works'], ['no-answer', 'does not answer'], ['bad-checksum', 'answers garbled'], ['write-fails', 'refuses writes'],
  ['second-write-fails', 'misses every second write'], ['slow', 'answers late'], ['null-message', 'has nothing to say']];
const speeds = [[0.04, 'quick'], [0.055, 'slow'], [0.11, 'very slow'], [0.4, 'hardly ever there']];
const knownFaults = new Map();
const list = element('ul', { class: 'things' });
const pluggable = {
  1: { do: 'display', id: 1, name: 'Built-in', builtin: true, frame: [0, 0, 1512, 982] },
  2: { do: 'display', id: 2, name: 'Studio', frame: [1512, 0, 2560, 1440], vendor: 4268, product: 41200, serial: 7001, monitor: { current: 63, maximum: 100 } },
  3: { do: 'display', id: 3, name: 'Slow Portrait', frame: [4072, -240, 1200, 1920], vendor: 7789, product: 23311, serial: 812, monitor: { current: 40, maximum: 100, 'reply-delay': 0.055 } },
  4: { do: 'display', id: 4, name: 'Fourth', frame: [-1920, 0, 1920, 1080], vendor: 1552, product: 9021, serial: 5, monitor: { current: 80, maximum: 100 } },
};
const plugs = buttons();
const displays = section('Displays', true, list, plugs);

function displayRow(display) {
  const row = element('li', {}, element('div', { class: 'head' }, element('strong', {}, display.name),
    doing('Unplug', { do: 'display', id: display.id, gone: true })));
  if (display.monitor) {
    const fault = choice(`${display.name}: fault`, faults, (value) => {
      knownFaults.set(display.id, value);
      act({ do: 'monitor', display: display.id, fault: value });
    });
    fault.value = knownFaults.get(display.id) ?? 'none';
    const speed = choice(`${display.name}: speed`, [['', 'speed…'], ...speeds], (value, select) => {
      if (value) act({ do: 'monitor', display: display.id, 'reply-delay': Number(value) });
      select.blur();
    });
    const knob = element('input', { type: 'range', min: 0, max: display.maximum, 'aria-label': `${display.name}: its own brightness knob`, title: 'The monitor’s own knob' });
    knob.value = display.brightness;
    knob.addEventListener('change', () => act({ do: 'monitor', display: display.id, current: Number(knob.value) }));
    row.append(element('div', { class: 'two' }, fault, speed), element('label', { class: 'field' }, element('span', {}, 'Its own knob'), knob));
  }
  return row;
}

// ---- Outputs ----

const outputs = element('ul', { class: 'things' });
const outputPlugs = buttons();
const rates = [44100, 48000, 96000];
const pluggableOutputs = {
  9: { do: 'output', id: 9, uid: 'BUILT-IN', name: 'MacBook Speakers', volume: 'settable' },
  10: { do: 'output', id: 10, uid: 'HDMI-TV', name: 'Television', default: true },
  11: { do: 'output', id: 11, uid: 'USB-HEADSET', name: 'Headset', volume: 'settable', default: true },
  12: { do: 'output', id: 12, uid: 'DP-MONITOR', name: 'Monitor Speakers', volume: 'none', default: true },
};
const music = [['Cello', 0.26, 220], ['Viola', 0.18, 330], ['Violin', 0.12, 550]];
const musicButton = button('Stop the music', async () => {
  const isPlaying = now.state.seat.players.length > 0;
  const output = now.state.seat.outputs.find((each) => each.default)?.id ?? 10;
  for (const { process } of isPlaying ? now.state.seat.players : []) await act({ do: 'play', process, stop: true });
  for (const [process, level, tone] of isPlaying ? [] : music) await act({ do: 'play', process, output, level, tone });
});
const sound = section('Sound', false, outputs, outputPlugs,
  buttons(musicButton, doing('Restart the audio service', { do: 'restart-audio' })));

function outputRow(output) {
  const rate = choice(`${output.name}: sample rate`, rates.map((each) => [each, `${each / 1000} kHz`]), (value) => act({ do: 'output', id: output.id, rate: Number(value) }));
  rate.value = output.rate;
  const channels = choice(`${output.name}: channels`, [1, 2, 6, 8].map((each) => [each, each === 1 ? 'mono' : each === 2 ? 'stereo' : `${each} channels`]),
    (value) => act({ do: 'output', id: output.id, channels: Number(value) }));
  channels.value = output.channels;
  const volume = choice(`${output.name}: volume of its own`, [['none', 'no volume'], ['fixed', 'fixed volume'], ['settable', 'own volume']],
    (value) => act({ do: 'output', id: output.id, volume: value }));
  volume.value = output.volume;
  return element('li', {}, element('div', { class: 'head' }, element('strong', {}, output.name || 'No name'),
    output.default ? element('span', { class: 'tag' }, 'default') : doing('Make default', { do: 'default-output', id: output.id }),
    doing('Unplug', { do: 'output', id: output.id, gone: true })), element('div', { class: 'two' }, rate, channels, volume));
}

// ---- Permissions ----

const accessibility = toggle('Accessibility', (granted) => act({ do: 'accessibility', granted }));
const capture = choice('Recording the system’s audio', [['authorized', 'allowed'], ['denied', 'denied'], ['undetermined', 'not asked yet']],
  (permission) => act({ do: 'capture', permission }));
const permissions = section('Permissions', false, accessibility.field, labelled('Audio recording', capture),
  buttons(doing('Switch the event tap off', { do: 'disable-tap', by: 'timeout' }, 'As the system does to a slow program')));

// ---- Releases ----

const version = element('input', { value: '9.1.0', 'aria-label': 'Version', size: 8, spellcheck: 'false' });
const signer = choice('Signed by', [['Tessbrook', 'by its publisher'], ['Mallory', 'by a stranger'], ['', 'not signed']], () => {});
const host = choice('The release host', [['ok', 'answers'], ['slow', 'is slow'], ['down', 'cannot be reached'], ['error', 'answers 500'], ['expired', 'has an expired certificate']], () => {});
async function publish() {
  const url = `${feedURL}${version.value}.dmg`;
  const how = { ok: {}, slow: { delay: 3 }, down: { error: 'The Internet connection appears to be offline.' }, error: { status: 500 }, expired: { certificate: 'expired' } }[host.value];
  const release = { version: version.value, date: '2026-11-21', dmg_url: url, size_bytes: 4812345, notes: 'What is new.' };
  await act({ do: 'image', url, version: version.value, signer: signer.value || null });
  await act({ do: 'feed', ...(how.error ? {} : { releases: [release] }), ...how });
}
const releases = section('Releases', false, labelled('Version', version), labelled('Signed', signer), labelled('The host', host),
  buttons(button('Publish', publish), doing('Check for updates', { do: 'click', item: 'Check for Updates…' })));

// ---- Faults and temper ----

const calls = ['CGGetOnlineDisplayList', 'AudioHardwareCreateProcessTap', 'AudioHardwareCreateAggregateDevice', 'AudioDeviceStart', 'AudioDeviceCreateIOProcIDWithBlock',
  'IOServiceGetMatchingServices', 'IOAVServiceWriteI2C', 'IOAVServiceReadI2C', 'CGEventTapCreate', 'TCCAccessPreflight', 'TCCAccessRequest', 'NSURLSession.dataTaskWithRequest',
  'NSURLSession.downloadTaskWithURL', 'hdiutil attach', 'ditto', 'rename', 'posix_spawn', 'SMAppService.register', 'OSDManager.sharedManager', 'NSStatusItem.button'];
const call = element('input', { list: 'calls', placeholder: 'AudioDeviceStart', 'aria-label': 'The call that is to fail', spellcheck: 'false' });
const status = element('input', { type: 'number', value: -1, 'aria-label': 'The status that it answers' });
const nth = element('input', { type: 'number', value: 1, min: 1, 'aria-label': 'Which call from now on' });
const times = element('input', { type: 'number', value: 1, min: 1, 'aria-label': 'How often' });
const rough = toggle('Rough audio', (isRough) => act({ do: 'temper', audio: isRough ? 'rough' : 'smooth' }));
const roughThreads = toggle('Rough threads', (isRough) => act({ do: 'temper', threads: isRough ? 'rough' : 'smooth' }));
const trouble = section('Faults and temper', false, element('datalist', { id: 'calls' }, ...calls.map((value) => element('option', { value }))),
  labelled('Call', call), labelled('Status', status), labelled('From the nth call', nth), labelled('Times', times),
  buttons(button('Make it fail', () => act({ do: 'fail', call: call.value || call.placeholder, status: Number(status.value), nth: Number(nth.value), times: Number(times.value) }))),
  rough.field, roughThreads.field);

// ---- Any line ----

const any = element('textarea', { rows: 3, spellcheck: 'false', 'aria-label': 'A scenario line', placeholder: '{"do":"key","key":"mute"}' });
const anyLine = section('Any scenario line', false, any, buttons(button('Do it', () => act(any.value.trim() || any.placeholder))));
any.addEventListener('keydown', (event) => {
  if (event.key === 'Enter' && (event.metaKey || event.ctrlKey)) act(any.value.trim() || any.placeholder);
});

panel.append(power, displays, sound, permissions, releases, trouble, anyLine);

// Lists are made anew when what is in them changes, and not while somebody is at them.
const seen = new Map();
function renew(key, value, make) {
  const text = JSON.stringify(value);
  if (seen.get(key) === text) return;
  seen.set(key, text);
  make();
}

on('machine', ({ runs: isThere }) => {
  panel.toggleAttribute('inert', !isThere);
  knownFaults.clear();
  seen.clear();
  rough.box.checked = roughThreads.box.checked = false;
});

let permission = 'authorized';
on('record', (record) => {
  if (record.what !== 'do') return;
  const { line } = record;
  if (line.do === 'capture' && line.permission) permission = line.permission;
  if (line.do === 'temper' && line.audio) rough.box.checked = line.audio === 'rough';
  if (line.do === 'temper' && line.threads) roughThreads.box.checked = line.threads === 'rough';
  if (line.do === 'monitor' && line.fault) knownFaults.set(line.display, line.fault);
});

on('state', ({ seat, running }) => {
  runs.textContent = running ? 'Quit Dalvane' : 'Open Dalvane';
  const withoutLight = seat.displays.map(({ brightness, ...rest }) => rest);
  renew('displays', [withoutLight, [...knownFaults]], () => {
    list.replaceChildren(...seat.displays.map(displayRow));
    const missing = Object.values(pluggable).filter((each) => !seat.displays.some((display) => display.id === each.id));
    plugs.replaceChildren(...missing.map((each) => doing(`Plug in “${each.name}”`, each)));
  });
  seat.displays.forEach((display, index) => {
    const knob = list.children[index]?.querySelector('input[type=range]');
    if (knob && document.activeElement !== knob) knob.value = display.brightness;
  });
  renew('outputs', seat.outputs, () => {
    outputs.replaceChildren(...seat.outputs.map(outputRow));
    const missing = Object.values(pluggableOutputs).filter((each) => !seat.outputs.some((output) => output.id === each.id));
    outputPlugs.replaceChildren(...missing.map((each) => doing(`Plug in “${each.name}”`, each)));
  });
  musicButton.textContent = seat.players.length > 0 ? 'Stop the music' : 'Play music';
  accessibility.box.checked = seat.accessibility;
  if (seat.capture) permission = 'authorized';
  else if (permission === 'authorized') permission = 'denied';
  if (document.activeElement !== capture) capture.value = permission;
});
