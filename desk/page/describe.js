// What a record means, in a few words, and of what kind it is.

const mediaKeys = { 0: 'volume up', 1: 'volume down', 2: 'brightness up', 3: 'brightness down', 7: 'mute' };

export const kinds = {
  do: 'Done', input: 'Keys', wire: 'Wire', light: 'Light', popup: 'Pop-ups', sound: 'Sound', update: 'Updates',
  ask: 'Asks', log: 'Log', other: 'Other',
};

function wire(record) {
  const { args, status } = record;
  const bytes = (args.bytes ?? '').split(' ').map((pair) => parseInt(pair, 16));
  const refused = status === 0 ? '' : ' — no answer';
  if (record.api.includes('Write')) {
    const means = bytes.length === 4 ? 'asks for its brightness' : bytes.length === 6 ? `sets brightness ${bytes[3] * 256 + bytes[4]}` : 'sends';
    return `→ display ${args.display}: ${means}${refused}`;
  }
  if (status !== 0 || bytes.length !== 11) return `← display ${args.display}: ${status === 0 ? 'not yet' : 'no answer'}`;
  return `← display ${args.display}: ${bytes[8] * 256 + bytes[9]} of ${bytes[6] * 256 + bytes[7]}`;
}

function key(record) {
  if (record.data1 === undefined) return record.keycode === undefined ? 'the event tap is told that it is off' : `key ${record.keycode}`;
  const name = mediaKeys[record.data1 >> 16] ?? 'another key';
  return `${name} ${(record.data1 >> 8 & 255) === 10 ? 'pressed' : 'released'}`;
}

function line(record) {
  const { do: name, ...members } = record.line;
  if (name === 'key') return ['key', members.key, members.action, members.repeat ? 'again' : ''].filter(Boolean).join(' ');
  if (name === 'click') return `click “${members.item}”`;
  const text = Object.entries(members).map(([member, value]) => `${member} ${typeof value === 'string' ? value : JSON.stringify(value)}`);
  return `${name} ${text.join(', ')}`;
}

function call(record) {
  const { api, args, status } = record;
  const refused = status === 0 ? '' : ` — ${status}`;
  if (api.startsWith('IOAVService')) return ['wire', wire(record)];
  if (api === 'OSDManager.showImage') {
    const what = args.image === 1 ? 'brightness' : args.image === 4 ? 'muted' : 'volume';
    return ['popup', `${what} ${args.filled} of ${args.total} on display ${args.display}`];
  }
  if (api.startsWith('Audio') || api.startsWith('TCC')) return ['sound', api + refused];
  if (api.startsWith('NSURLSession') || api === 'posix_spawn' || api === 'rename' || api === 'remove_all') {
    const what = args.url ?? args.path ?? args.to ?? [args.executable, ...(args.arguments ?? [])].join(' ');
    return ['update', `${api.replace('NSURLSession.', '')} ${what}${refused}`];
  }
  return ['other', api + refused];
}

export function describe(record) {
  switch (record.what) {
    case 'do': return ['do', line(record)];
    case 'call': return call(record);
    case 'input': return ['input', key(record) + (record.swallowed ? ': taken by Dalvane' : ': goes on to the system')];
    case 'monitor': return ['light', `display ${record.display} shines at ${record.brightness}`];
    case 'log': return ['log', `${record.category}: ${record.text}`];
    case 'alert': return ['ask', `alert “${record.message}”${record.answer ? `: ${record.answer}` : ''}`];
    case 'answer': return ['ask', `“${record.button}” on “${record.message}”`];
    case 'prompt': return ['ask', `the system asks for: ${record.for}`];
    case 'preference': return ['other', `preference ${record.key} = ${JSON.stringify(record.value)}`];
    case 'open': return ['update', `${record.path} is opened`];
    case 'exit': return ['other', `the program ends with status ${record.status}`];
    case 'fatal': return ['ask', `fatal: ${record.text}`];
    case 'machine': return ['other', `power on, seed ${record.seed}, Dalvane ${record.version}`];
    default: return ['other', record.what];
  }
}
