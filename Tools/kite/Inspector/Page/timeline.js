// Draws a session as a bar: its events as ticks, the background shaded, a crash at its end. And all sessions of a client
// on one line of time.

import { h, s } from './dom.js';
import { duration, kindOf, shortTime } from './format.js';

const WIDTH = 10_000; // of a drawing, in its own units

const MOST_TICKS = 120; // over the whole width, before they become thin

const percent = (part) => `${(100 * Math.min(1, Math.max(0, part))).toFixed(3)}%`;

/** Styles are set by script: the page's policy allows none in the markup. */
function placed(element, from, width) {
  element.style.left = percent(from);
  if (width !== undefined) element.style.width = percent(width);
  return element;
}

/** The ticks of the events, one path for each kind. */
function ticks(events, start, span, isDense) {
  const paths = new Map();
  for (const event of events) {
    const kind = kindOf(event.type);
    const x = Math.round(WIDTH * Math.min(1, Math.max(0, (event.timestamp - start) / span)));
    paths.set(kind, `${paths.get(kind) ?? ''}M${x} 0V10`);
  }
  const drawn = [...paths].map(([kind, d]) => s('path', { d, 'data-kind': kind, 'vector-effect': 'non-scaling-stroke' }));
  return s('svg', { class: isDense ? 'ticks dense' : 'ticks', viewBox: `0 0 ${WIDTH} 10`, preserveAspectRatio: 'none', 'aria-hidden': 'true' }, drawn);
}

/** How long a session lasts to the eye. */
export const lengthOf = (session) => Math.max(session.end - session.start, 0.001);

/**
 * @param {import('./api.js').Session} session
 * @param {import('./api.js').Row[]} events
 * @param {number} scale the seconds that the whole width stands for
 */
export function sessionBar(session, events, scale) {
  const length = lengthOf(session);
  const bar = h('div', { class: 'session-bar', 'data-state': session.crashed ? 'crashed' : session.open ? 'open' : 'ended' });
  bar.style.width = percent(length / scale);
  for (const [from, to] of session.background) {
    bar.append(placed(h('i', { class: 'background', title: `in the background for ${duration(to - from)}` }),
      (from - session.start) / length, (to - from) / length));
  }
  bar.append(ticks(events, session.start, length, events.length * scale > MOST_TICKS * length));
  if (session.crashed) bar.append(h('i', { class: 'crash', title: 'crashed', 'aria-hidden': 'true' }, '✕'));
  return h('div', { class: 'lane' }, bar);
}

/** The event nearest to a place on a bar. */
export function eventAt(bar, events, clientX) {
  const box = bar.getBoundingClientRect();
  const [first] = events;
  if (!first || box.width === 0) return null;
  const start = Number(bar.dataset.start ?? first.timestamp);
  const at = start + ((clientX - box.left) / box.width) * Number(bar.dataset.length);
  return events.reduce((best, event) =>
    (Math.abs(event.timestamp - at) < Math.abs(best.timestamp - at) ? event : best), first);
}

/** All sessions where they lie in time. Overlapping ones show through each other. */
export function overview(sessions) {
  const start = Math.min(...sessions.map((session) => session.start));
  const end = Math.max(...sessions.map((session) => session.end), start + 0.001);
  const parts = sessions.map((session) => placed(
    h('i', { 'data-id': session.id, 'data-state': session.crashed ? 'crashed' : session.open ? 'open' : 'ended', 'data-overlaps': session.overlaps }),
    (session.start - start) / (end - start), lengthOf(session) / (end - start)));
  return h('div', { class: 'overview', 'aria-hidden': 'true' },
    h('div', { class: 'overview-line' }, parts),
    h('div', { class: 'overview-ends' }, h('span', {}, shortTime(start)), h('span', {}, duration(end - start)), h('span', {}, shortTime(end))));
}

const STEPS = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14_400, 43_200, 86_400, 604_800];

/** The seconds since a session's start, as the bars are scaled. */
export function axis(scale) {
  const step = STEPS.find((seconds) => scale / seconds <= 6) ?? scale / 4;
  const marks = [];
  for (let at = 0; at <= scale * 1.0001; at += step) {
    const name = at === 0 ? '0' : duration(at).replace(/\.0+(?= )/, '').replace(/(\.\d)0 s/, '$1 s');
    marks.push(placed(h('span', {}, name), at / scale));
  }
  return h('div', { class: 'axis', 'aria-hidden': 'true' }, h('div', { class: 'axis-line' }, marks));
}
