// One session in the pane: its facts and its events, each of which opens.

import { h } from './dom.js';
import { fact, term } from './eventdetail.js';
import { duration, fullTime, kindOf, plural } from './format.js';
import { lengthOf, sessionBar } from './timeline.js';

/** What became of a session, in a word. */
export const stateOf = (session) => (session.crashed ? 'crashed' : session.ended ? 'ended' : session.open ? 'open' : 'no end received');

/** How it stands to the one before it, or nothing. */
export function beforeText(session) {
  if (session.overlaps) return 'overlaps the session before';
  if (session.gap_before === null || session.gap_before === undefined) return '';
  return `${duration(session.gap_before)} without a session before`;
}

const eventItem = (session) => (event) =>
  h('li', {}, h('a', { href: `#live/${event.id}`, 'data-event': event.id, 'data-kind': kindOf(event.type) },
    h('span', { class: 'cell-time' }, `+${duration(Math.max(0, event.timestamp - session.start))}`),
    h('span', { class: 'cell-kind' }, event.type),
    h('span', { class: 'cell-name' }, event.name ?? '')));

/**
 * @param {import('./api.js').Session} session
 * @param {import('./api.js').Row[]} events
 */
export function sessionDetail(session, events) {
  const inBackground = session.background.reduce((sum, [from, to]) => sum + to - from, 0);
  const query = term('session', session.id);
  return [
    h('header', { class: 'detail-head', 'data-kind': 'Session' },
      h('p', { class: 'cell-kind' }, 'Session'),
      h('h2', { tabindex: -1 }, `${plural(session.events, 'event')} in ${duration(lengthOf(session))}`),
      h('div', { class: 'detail-actions' },
        h('a', { class: 'button', href: `/?q=${encodeURIComponent(query)}#live`, 'data-query': query }, 'Show in the live list'))),
    h('div', { class: 'detail-bar' }, sessionBar(session, events, lengthOf(session))),
    h('dl', { class: 'facts' },
      fact('State', h('span', { class: `pill ${session.crashed ? 'bad' : session.ended ? 'good' : 'warn'}` }, stateOf(session))),
      fact('Start', fullTime(session.start)),
      fact(session.ended ? 'End' : 'Last event', fullTime(session.end)),
      fact('Background', session.background.length ? `${duration(inBackground)} in ${plural(session.background.length, 'stretch')}`.replace('stretchs', 'stretches') : 'never'),
      fact('Before it', beforeText(session) || null),
      fact('Id', h('code', {}, session.id)),
      fact('Client', h('code', {}, session.client))),
    h('section', { 'aria-label': 'Events of the session' },
      h('h3', {}, 'Events'),
      h('ol', { class: 'session-events' }, events.map(eventItem(session)))),
  ];
}
