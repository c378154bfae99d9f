// The page as a whole: the clock, what was saved and opened, alerts and questions, and what went wrong.

import { element, find } from './dom.js';
import { act, begin, connect, now, on, onRefusal, setClock } from './machine.js';
import './stage.js';
import './keys.js';
import './sound.js';
import './controls.js';
import { showRecord } from './record.js';

// ---- The clock ----

find('live').addEventListener('click', () => setClock('live'));
find('paused').addEventListener('click', () => setClock('paused'));
find('step').addEventListener('click', async () => {
  await setClock('paused');
  act({ do: 'advance', seconds: 0.1 });
});
find('hour').addEventListener('click', async () => {
  find('hour').setAttribute('aria-busy', 'true');
  await act({ do: 'advance', seconds: 3600 });
  find('hour').removeAttribute('aria-busy');
});

on('pulse', ({ t, clock }) => {
  const minutes = Math.floor(t / 60);
  const hours = Math.floor(minutes / 60);
  const rest = (t % 60).toFixed(1);
  find('time').textContent = hours > 0 ? `${hours} h ${minutes % 60} min ${rest} s` : minutes > 0 ? `${minutes} min ${rest} s` : `${rest} s`;
  find('live').setAttribute('aria-pressed', String(clock !== 'paused'));
  find('paused').setAttribute('aria-pressed', String(clock === 'paused'));
  find('live').classList.toggle('held', clock === 'held');
  find('live').title = clock === 'held' ? 'The clock stands until you have answered' : '';
});

on('state', ({ running, bundle }) => {
  find('program').textContent = running ? `${bundle.version ?? ''} on a simulated Mac` : 'is not running';
});

// ---- Alerts and questions ----

const sheet = find('sheet');
let shownSheet = '';
let dismissed = null;  // the prompt that was put aside
let prompt = null;

on('record', (record) => {
  if (record.what === 'prompt' && record.for !== 'capture') prompt = record;
  if (record.what === 'do' && record.line.do === 'accessibility') prompt = null;
});

function question(state) {
  if (state.alert) {
    const { message, informative, buttons } = state.alert;
    return { message, informative, buttons: buttons.map((text) => [text, () => act({ do: 'answer', button: text })]) };
  }
  if (state.seat.asked) {
    return {
      message: '“Dalvane” would like to record this computer’s audio.',
      informative: 'Dalvane needs it to change the volume of outputs that have none of their own. Nothing is stored.',
      buttons: [['Allow', () => act({ do: 'capture', answer: true })], ['Don’t Allow', () => act({ do: 'capture', answer: false })]],
    };
  }
  if (prompt && prompt !== dismissed && !(prompt.for === 'accessibility' && state.seat.accessibility) && state.running) {
    const put = () => { dismissed = prompt; ask(now.state); };
    const isKeys = prompt.for === 'accessibility';
    return {
      message: isKeys ? '“Dalvane” would like to control this computer using accessibility features.' : '“Dalvane” would like to access the microphone.',
      informative: isKeys ? 'Grant access to this application in Privacy & Security settings.' : '',
      buttons: isKeys ? [['Grant', () => { put(); act({ do: 'accessibility', granted: true }); }], ['Deny', put]] : [['OK', put]],
    };
  }
  return null;
}

let focusedBefore = null;
function ask(state) {
  const asked = question(state);
  const text = asked ? JSON.stringify([asked.message, asked.informative, asked.buttons.map(([name]) => name)]) : '';
  if (text === shownSheet) return;
  shownSheet = text;
  if (sheet.hidden) focusedBefore = document.activeElement;
  sheet.hidden = !asked;
  sheet.replaceChildren();
  if (!asked) {
    focusedBefore?.focus?.();
    return;
  }
  const icon = element('img', { src: 'icon.svg', alt: '', width: 56, height: 56 });
  const choices = asked.buttons.map(([name, action], index) => element('button', { type: 'button', class: index === 0 ? 'default' : null, onclick: action }, name));
  const dialog = element('div', { class: 'alert', role: 'alertdialog', 'aria-modal': 'true', 'aria-labelledby': 'alert-message', 'aria-describedby': 'alert-text' },
    icon, element('h2', { id: 'alert-message' }, asked.message), element('p', { id: 'alert-text' }, asked.informative), element('div', { class: 'choices' }, ...choices));
  dialog.addEventListener('keydown', (event) => {
    if (event.key !== 'Tab') return;
    const at = choices.indexOf(document.activeElement);
    choices[(at + (event.shiftKey ? choices.length - 1 : 1)) % choices.length].focus();
    event.preventDefault();
  });
  sheet.append(dialog);
  choices[0].focus({ preventScroll: true });
}
on('state', ask);

// ---- What went wrong ----

let hides = 0;
onRefusal((reason) => {
  find('toast').textContent = reason;
  find('toast').hidden = false;
  clearTimeout(hides);
  hides = setTimeout(() => { find('toast').hidden = true; }, 6000);
});

on('machine', ({ runs, reason, furnished }) => {
  find('stopped').hidden = runs;
  find('reason').textContent = reason ?? '';
  if (!runs) return;
  prompt = dismissed = null;
  if (furnished) find('player').hidden = true;
});

// ---- Scenarios ----

let lines = [];
let done = 0;

function showUpcoming() {
  const isOver = done >= lines.length;
  find('upcoming').textContent = isOver ? 'That was the last line.' : `${done + 1} of ${lines.length}: ${lines[done]}`;
  find('next').disabled = find('rest').disabled = isOver;
}
async function doNext() {
  const isDone = await act(lines[done]);
  if (isDone) done += 1;
  showUpcoming();
  return isDone;
}
async function openFile(file) {
  const text = await file.text();
  const seed = /--seed (@?[\d:,]+)/.exec(text.split('\n')[0])?.[1] ?? '1';
  lines = text.split(/\r?\n/).filter((line) => line.trim() !== '' && !line.trim().startsWith('//'));
  done = 0;
  if (!await begin(false, seed)) return;
  find('opened').textContent = file.name;
  find('player').hidden = false;
  showUpcoming();
  find('next').focus();
}
find('open').addEventListener('click', () => find('file').click());
find('file').addEventListener('change', async () => {
  const [file] = find('file').files;
  if (file) await openFile(file);
  find('file').value = '';
});
find('next').addEventListener('click', doNext);
find('rest').addEventListener('click', async () => { while (done < lines.length && await doNext()); });
find('close').addEventListener('click', () => { find('player').hidden = true; });
find('anew').addEventListener('click', () => begin(true));

// ---- The side ----

const tabs = ['machine', 'record'];
function show(name) {
  for (const each of tabs) {
    const isIt = each === name;
    find(`tab-${each}`).setAttribute('aria-selected', String(isIt));
    find(`tab-${each}`).tabIndex = isIt ? 0 : -1;
    find(each).hidden = !isIt;
  }
  if (name === 'record') showRecord();
}
for (const name of tabs) {
  find(`tab-${name}`).addEventListener('click', () => show(name));
  find(`tab-${name}`).addEventListener('keydown', (event) => {
    if (event.key !== 'ArrowLeft' && event.key !== 'ArrowRight') return;
    const other = tabs[1 - tabs.indexOf(name)];
    show(other);
    find(`tab-${other}`).focus();
  });
}

connect();
