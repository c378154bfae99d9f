// Elements, made without markup in strings: texts come from scenarios and programs.

const namespaces = { svg: 'http://www.w3.org/2000/svg' };

export function element(name, attributes = {}, ...children) {
  const [namespace, tag] = name.includes(':') ? name.split(':') : [null, name];
  const made = namespace ? document.createElementNS(namespaces[namespace], tag) : document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (key.startsWith('on')) made.addEventListener(key.slice(2), value);
    else made.setAttribute(key, value === true ? '' : value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

export const find = (id) => document.getElementById(id);

export function place(made, left, top, width, height) {
  Object.assign(made.style, { left: left + 'px', top: top + 'px', width: width + 'px', height: height + 'px' });
}

const shapes = {
  sun: ['M12 7.5a4.5 4.5 0 1 0 0 9 4.5 4.5 0 0 0 0-9Z', 'M12 2v2.4M12 19.6V22M2 12h2.4M19.6 12H22M4.9 4.9l1.7 1.7M17.4 17.4l1.7 1.7M4.9 19.1l1.7-1.7M17.4 6.6l1.7-1.7'],
  sunMin: ['M12 9a3 3 0 1 0 0 6 3 3 0 0 0 0-6Z', 'M12 5v.6M12 18.4v.6M5 12h.6M18.4 12h.6M7.1 7.1l.4.4M16.5 16.5l.4.4M7.1 16.9l.4-.4M16.5 7.5l.4-.4'],
  speaker: ['M3.5 9.2v5.6h3.3L11.5 19V5L6.8 9.2Z'],
  speakerLow: ['M3.5 9.2v5.6h3.3L11.5 19V5L6.8 9.2Z', 'M15 9.3a4 4 0 0 1 0 5.4'],
  speakerHigh: ['M3.5 9.2v5.6h3.3L11.5 19V5L6.8 9.2Z', 'M15 9.3a4 4 0 0 1 0 5.4M17.6 6.6a7.6 7.6 0 0 1 0 10.8'],
  muted: ['M3.5 9.2v5.6h3.3L11.5 19V5L6.8 9.2Z', 'M15.5 9.5l5 5M20.5 9.5l-5 5'],
};
export function symbol(name) {
  const [filled, ...lines] = shapes[name];
  return element('svg:svg', { viewBox: '0 0 24 24', 'aria-hidden': 'true', class: 'symbol' },
    element('svg:path', { d: filled, class: 'filled' }), ...lines.map((d) => element('svg:path', { d, class: 'line' })));
}
