// One event as it was received, and the user info beside it with what changed.

import { changesBetween } from './changes.js';
import { h } from './dom.js';
import { duration, fullTime, kindOf, plural } from './format.js';
import { inLine, jsonTree } from './json.js';
import { copy } from './notes.js';

/** The event in the shape in which a body holds it. */
export const wireForm = (event) => ({
  type: event.type, id: event.id, timestamp: event.timestamp, request_timestamp: event.request_timestamp, app: event.app,
  user: { info: event.user_info, ids: event.user_ids }, data: event.data,
});

export const copyEvent = (event) => copy(JSON.stringify(wireForm(event), null, 2), 'the event as JSON');
export const copyLine = (event) => event.line && copy(JSON.stringify(event.line), 'the line for kite host');

/** A term and what stands behind it; without a value, nothing. */
export const fact = (name, ...value) =>
  value[0] === null || value[0] === undefined ? [] : [h('dt', {}, name), h('dd', {}, value)];

const searchFor = (text, query) =>
  h('a', { href: `/?q=${encodeURIComponent(query)}#live`, 'data-query': query, title: `Search ${query}` }, text);

/** A value as a search term, quoted where it has to be. */
export const term = (key, value) => `${key}:${/^[\w.-]+$/.test(value) ? value : JSON.stringify(value)}`;

function facts(event) {
  const late = event.received_at - event.timestamp;
  return h('dl', { class: 'facts' },
    fact('Happened', fullTime(event.timestamp)),
    fact('Received', `${fullTime(event.received_at)} `, h('span', { class: 'aside' }, `${duration(Math.abs(late))} ${late < 0 ? 'before it happened' : 'later'}`)),
    fact('Id', h('code', {}, event.id)),
    fact('Session', event.session && searchFor(h('code', {}, event.session), term('session', event.session)),
      ' ', event.session && h('a', { class: 'aside', href: `#sessions/${encodeURIComponent(event.client)}/${encodeURIComponent(event.session)}` }, 'on the timeline')),
    fact('Client', searchFor(h('code', {}, event.client), term('client', event.client))),
    fact('App', event.app + (event.tester ? ', a tester’s' : '')),
    fact('Received again', event.duplicates ? plural(event.duplicates, 'time') : null));
}

const CHANGE_NAMES = { added: 'new', changed: 'changed', removed: 'gone', same: '' };

const changeRow = ({ path, kind, old, value }) =>
  h('tr', { 'data-change': kind },
    h('th', { scope: 'row' }, path),
    h('td', {},
      old !== undefined && h('del', {}, inLine(old)),
      old !== undefined && value !== undefined && ' ',
      value !== undefined && (kind === 'same' ? inLine(value) : h('ins', {}, inLine(value)))),
    h('td', { class: 'change' }, CHANGE_NAMES[kind]));

function userInfo(event) {
  const rows = changesBetween(event.previous_user_info, event.user_info);
  const changed = rows.filter((row) => row.kind !== 'same').length;
  const text = !event.previous_user_info ? 'the client’s first event'
    : changed ? `${plural(changed, 'value')} changed since the client’s event before` : 'as in the client’s event before';
  return h('section', { class: 'user-info', 'aria-label': 'User info' },
    h('h3', {}, 'User info ', h('span', { class: changed ? 'pill warn' : 'aside' }, text)),
    h('table', { class: 'values' }, h('tbody', {}, rows.map(changeRow))),
    h('h3', {}, 'User identifiers'),
    h('table', { class: 'values' }, h('tbody', {}, changesBetween(null, event.user_ids).map(changeRow))));
}

/** @param {any} event the API's answer */
export function eventDetail(event) {
  return [
    h('header', { class: 'detail-head', 'data-kind': kindOf(event.type) },
      h('p', { class: 'cell-kind' }, event.type),
      h('h2', { tabindex: -1 }, event.name ?? event.type),
      h('div', { class: 'detail-actions' },
        h('button', { type: 'button', title: 'c', click: () => copyEvent(event) }, 'Copy as JSON'),
        h('button', {
          type: 'button', title: event.line ? 'l' : 'kite host has no operation that records this event', disabled: !event.line,
          click: () => copyLine(event),
        }, 'Copy as kite host line'))),
    facts(event),
    h('div', { class: 'columns' },
      h('section', { 'aria-label': 'Data' }, h('h3', {}, 'Data'), jsonTree(event.data)),
      userInfo(event)),
  ];
}
