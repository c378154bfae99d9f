// The speaker: its level, its wave before and after Dalvane, and what it plays, to be heard.

import { find } from './dom.js';
import { now, on } from './machine.js';

const canvas = find('wave');
const pen = canvas.getContext('2d');

function line(points, color, width) {
  const { width: w, height: h } = canvas;
  pen.beginPath();
  points.forEach((value, i) => {
    const x = i / (points.length - 1) * w;
    const y = h / 2 - value / 1000 * h * 0.46;
    i === 0 ? pen.moveTo(x, y) : pen.lineTo(x, y);
  });
  pen.strokeStyle = color;
  pen.lineWidth = width;
  pen.lineJoin = 'round';
  pen.stroke();
}

function drawWave(wave) {
  const { width: w, height: h } = canvas;
  pen.clearRect(0, 0, w, h);
  pen.strokeStyle = 'rgba(255,255,255,0.10)';
  pen.lineWidth = 1;
  pen.beginPath();
  for (const y of [0.25, 0.5, 0.75]) { pen.moveTo(0, Math.round(h * y) + 0.5); pen.lineTo(w, Math.round(h * y) + 0.5); }
  pen.stroke();
  if (!wave) return;
  line(wave.before, 'rgba(170,190,225,0.55)', 2);
  line(wave.after, '#5fd0ff', 3.2);
}

// A picture that moves all the time is not for everybody.
const isCalm = matchMedia('(prefers-reduced-motion: reduce)');
const calmEvery = 1000;  // ms
let drawnAt = 0;

let shownWave = '';
on('pulse', (pulse) => {
  const output = now.state?.seat.outputs.find((each) => each.default);
  const level = pulse.levels.find((each) => each.id === output?.id) ?? { level: 0, direct: false };
  const percent = Math.round(Math.min(level.level, 1) * 100);
  find('output').textContent = output ? output.name || 'An output without a name' : 'No output';
  const meter = find('level');
  meter.setAttribute('aria-valuenow', String(percent));
  meter.dataset.level = level.level;
  meter.firstChild.style.width = `${percent}%`;
  find('loudness').textContent = level.level === 0 ? 'silent' : `${percent} % ${level.direct ? 'direct' : 'through Dalvane'}`;
  const text = JSON.stringify(pulse.wave);
  if (text === shownWave || (isCalm.matches && performance.now() - drawnAt < calmEvery)) return;
  shownWave = text;
  drawnAt = performance.now();
  drawWave(pulse.wave);
});
drawWave(null);

// ---- Listening ----

const ahead = 0.12;  // s of sound that is kept ready
let source = null;
let context = null;
let gain = null;
let plays = 'off';
let until = 0;

function play(event) {
  const [rate, text] = event.data.split(' ');
  const bytes = Uint8Array.from(atob(text), (char) => char.charCodeAt(0));
  const samples = new Int16Array(bytes.buffer);
  const block = context.createBuffer(1, samples.length / 2, Number(rate));
  const channel = block.getChannelData(0);
  const which = plays === 'before' ? 0 : 1;
  for (let i = 0; i < channel.length; ++i) channel[i] = samples[2 * i + which] / 32768;
  if (until < context.currentTime) until = context.currentTime + ahead;
  if (until > context.currentTime + 4 * ahead) return;  // the machine was faster than it can be heard
  const node = context.createBufferSource();
  node.buffer = block;
  node.connect(gain);
  node.start(until);
  until += block.duration;
}

function listen(what) {
  plays = what;
  document.querySelectorAll('[data-listen]').forEach((button) => button.setAttribute('aria-pressed', String(button.dataset.listen === what)));
  if (what === 'off') {
    source?.close();
    source = null;
    context?.suspend();
    return;
  }
  context ??= new AudioContext();
  gain ??= context.createGain();
  gain.connect(context.destination);
  context.resume();
  if (source) return;
  source = new EventSource('sound');
  source.onmessage = play;
}

document.querySelectorAll('[data-listen]').forEach((button) => button.addEventListener('click', () => listen(button.dataset.listen)));
document.addEventListener('visibilitychange', () => { if (document.hidden) listen('off'); });
