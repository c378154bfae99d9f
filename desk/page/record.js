// The live trace: filtered, searched, and each record tied to what caused it.

import { element, find } from './dom.js';
import { describe, kinds } from './describe.js';
import { on } from './machine.js';

const most = 5000;   // records that are kept here
const shownMost = 400;  // and rows at a time

const rows = find('rows');
const search = find('search');
const trail = find('trail');
let records = [];
let causes = new Map();  // lines, by their number
let hidden = new Set();
let followed = null;     // the number of the line whose consequences alone are shown
let machine = 0;

function matches(entry) {
  if (followed !== null) return entry.cause === followed;
  if (hidden.has(entry.kind)) return false;
  const wanted = search.value.trim().toLowerCase();
  return wanted === '' || entry.text.toLowerCase().includes(wanted) || entry.says.toLowerCase().includes(wanted);
}

const seconds = (t) => t.toFixed(3);

function row(entry) {
  const line = causes.get(entry.cause);
  const isLine = entry.record.what === 'do';
  const cause = line && !isLine
    ? element('button', { type: 'button', class: 'cause', 'data-cause': entry.cause, title: `Caused by line ${entry.cause}, ${seconds(entry.record.t - line.t)} s earlier: ${line.says}` },
      `← ${line.name} +${seconds(entry.record.t - line.t)}`)
    : isLine ? element('button', { type: 'button', class: 'cause own', 'data-cause': entry.cause, title: 'What this line caused' }, `line ${entry.cause}`) : null;
  return element('li', { class: `kind-${entry.kind}`, 'data-number': entry.number },
    element('span', { class: 't' }, seconds(entry.record.t)), element('span', { class: 'kind' }, kinds[entry.kind]),
    element('span', { class: 'what' }, element('span', { class: 'says', title: entry.text }, entry.says), cause));
}

let isStale = false;
let fresh = [];
function refresh() {
  const isAtEnd = rows.scrollHeight - rows.scrollTop - rows.clientHeight < 40;
  if (isStale) {
    rows.replaceChildren(...records.filter(matches).slice(-shownMost).map(row));
    isStale = false;
  } else {
    rows.append(...fresh.filter(matches).slice(-shownMost).map(row));
    while (rows.childElementCount > shownMost) rows.firstChild.remove();
  }
  fresh = [];
  if (isAtEnd) rows.scrollTop = rows.scrollHeight;
}

let isDue = false;
function due() {
  if (isDue || find('record').hidden) return;
  isDue = true;
  requestAnimationFrame(() => {
    isDue = false;
    refresh();
  });
}
export function showRecord() {
  isStale = true;
  refresh();
  rows.scrollTop = rows.scrollHeight;
}
const again = () => { isStale = true; due(); };

function follow(number) {
  followed = number;
  const line = causes.get(number);
  trail.hidden = number === null;
  if (number !== null) trail.firstChild.textContent = `Line ${number} and what it caused: ${line?.says ?? ''}`;
  again();
}

on('record', (record, { machine: of, number, cause, text }) => {
  if (of !== machine) {
    machine = of;
    records = [];
    causes = new Map();
    follow(null);
  }
  const [kind, says] = describe(record);
  const entry = { record, number, cause, text, kind, says };
  if (record.what === 'do') causes.set(cause, { t: record.t, name: record.line.do, says });
  records.push(entry);
  fresh.push(entry);
  if (records.length > most) {
    records.splice(0, records.length - most);
    if (causes.size > 2 * most) causes = new Map([...causes].slice(-most));
  }
  if (fresh.length > most) fresh = fresh.slice(-shownMost);
  due();
});

rows.addEventListener('click', (event) => {
  const button = event.target.closest('.cause');
  if (button) follow(Number(button.dataset.cause));
});
trail.querySelector('button').addEventListener('click', () => follow(null));
search.addEventListener('input', again);

for (const [kind, name] of Object.entries(kinds)) {
  const chip = element('button', { type: 'button', class: `chip kind-${kind}`, 'aria-pressed': 'true' }, name);
  chip.addEventListener('click', () => {
    hidden.has(kind) ? hidden.delete(kind) : hidden.add(kind);
    chip.setAttribute('aria-pressed', String(!hidden.has(kind)));
    again();
  });
  find('kinds').append(chip);
}
