// What an empty list says: how the first event gets here, or that the search finds nothing.

import { h } from './dom.js';
import { command } from './notes.js';

const quoted = (text) => (/^[\w./:@-]+$/.test(text) ? text : `'${text.replaceAll("'", "'\\''")}'`);

/** The lines that send one event to this collector. */
export const firstEvent = ({ endpoint, ca }) => [
  `printf '%s\\n' '{"op":"start"}' '{"op":"trackUserAction","name":"buy","data":{"price":9.5}}' '{"op":"drain","deliverWithin":3}' |`,
  `  kite host --state state --key KEY --endpoint ${quoted(endpoint)}${ca ? ` --ca-file ${quoted(ca)}` : ''}`,
].join('\n');

export function noEvents(summary, query) {
  if (query) return h('div', {}, h('h2', {}, 'Nothing found'), h('p', {}, 'No stored event fits the search. One that does will appear here.'));
  return h('div', {}, h('h2', {}, 'No events yet'),
    h('p', {}, 'An event appears here the moment it is stored. To send one, with the collector’s key for KEY:'),
    summary?.endpoint ? command(firstEvent(summary), 'the command') : null);
}

export const noRequests = (query) =>
  h('div', {}, h('h2', {}, query ? 'Nothing found' : 'No requests yet'),
    h('p', {}, query ? 'No request fits the search.' : 'Every request to the collector appears here, with what became of it.'));
