// Numbers, times and identifiers as people read them.

const grouped = new Intl.NumberFormat('en');
const two = (number) => String(number).padStart(2, '0');
const three = (number) => String(number).padStart(3, '0');

export const count = (number) => grouped.format(number);

/** "1 event", "2 events" */
export const plural = (number, word) => `${count(number)} ${word}${number === 1 ? '' : 's'}`;

const dayOf = (date) => `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())}`;
const clockOf = (date) =>
  `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.${three(date.getMilliseconds())}`;

let today = '';
let todayUntil = 0;
function isToday(date) {
  const now = Date.now();
  if (now >= todayUntil) {
    const next = new Date(now);
    today = dayOf(next);
    todayUntil = next.setHours(24, 0, 0, 0);
  }
  return dayOf(date) === today;
}

/** The time of a row: the clock, with the day before it when that is not today. */
export function rowTime(seconds) {
  const date = new Date(seconds * 1000);
  return isToday(date) ? clockOf(date) : `${dayOf(date).slice(5)} ${clockOf(date).slice(0, 8)}`;
}

/** The day and the clock, in the reader's time zone. */
export function fullTime(seconds) {
  const date = new Date(seconds * 1000);
  return `${dayOf(date)} ${clockOf(date)}`;
}

/** The clock to the second, with the day before it when that is not today. */
export function shortTime(seconds) {
  const date = new Date(seconds * 1000);
  return `${isToday(date) ? '' : `${dayOf(date).slice(5)} `}${clockOf(date).slice(0, 8)}`;
}

const unitsOf = [[86_400, 'd'], [3_600, 'h'], [60, 'min'], [1, 's']];

/** A length of time in its two largest units, or in parts of a second. */
export function duration(seconds) {
  if (seconds < 0) return `−${duration(-seconds)}`;
  if (seconds < 0.001) return `${Math.round(seconds * 1e6)} µs`;
  if (seconds < 1) return `${(seconds * 1000).toFixed(seconds < 0.01 ? 1 : 0)} ms`;
  if (seconds < 60) return `${seconds.toFixed(seconds < 10 ? 2 : 1)} s`;
  const at = unitsOf.findIndex(([length]) => seconds >= length);
  const [length, unit] = unitsOf[at];
  const [nextLength, nextUnit] = unitsOf[at + 1];
  const whole = Math.floor(seconds / length);
  const rest = Math.floor((seconds % length) / nextLength);
  return rest ? `${whole} ${unit} ${rest} ${nextUnit}` : `${whole} ${unit}`;
}

export function bytes(number) {
  if (number < 1000) return `${number} B`;
  if (number < 1e6) return `${(number / 1e3).toFixed(number < 1e4 ? 1 : 0)} kB`;
  return `${(number / 1e6).toFixed(1)} MB`;
}

export const shortID = (id) => (id ? id.slice(0, 8) : '');

const known = new Set(['UserAction', 'Session', 'Install', 'UserInfoUpdated', 'DebugEvent', 'ExperimentSegmentReceived']);
const kinds = new Map();

/** What decides the colour of a type: a host's own table always gets the same of three. */
export function kindOf(type) {
  if (known.has(type)) return type;
  let kind = kinds.get(type);
  if (!kind) {
    let sum = 0;
    for (const letter of type) sum = (sum * 31 + letter.codePointAt(0)) >>> 0;
    kind = `table-${1 + (sum % 3)}`;
    if (kinds.size < 1000) kinds.set(type, kind);
  }
  return kind;
}
