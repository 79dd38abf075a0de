// One request: what it brought, and when it was refused, which rule it broke and where.

import { address } from './api.js';
import { h } from './dom.js';
import { fact, term } from './eventdetail.js';
import { bytes, count, duration, fullTime, plural } from './format.js';

/** How a status is coloured. */
export const toneOf = (request) => (request.status >= 200 && request.status < 300 ? 'good' : request.fault ? 'warn' : 'bad');

export const statusText = (request) => (request.status ? String(request.status) : 'none');

/** What the request weighed, and how much the compression saved. */
export function sizeText(request) {
  if (!request.unpacked_bytes || !request.bytes) return bytes(request.bytes);
  return `${bytes(request.bytes)} · ${(request.unpacked_bytes / request.bytes).toFixed(1)}×`;
}

function facts(request) {
  const brought = [plural(request.events, 'event'), `${count(request.new)} new`, request.duplicates && plural(request.duplicates, 'duplicate')];
  return h('dl', { class: 'facts' },
    fact('Received', fullTime(request.received_at)),
    fact('Endpoint', h('code', {}, request.endpoint)),
    fact('Attempt', count(request.attempt)),
    fact('Size', request.unpacked_bytes === null ? bytes(request.bytes)
      : `${bytes(request.bytes)} gzip, ${bytes(request.unpacked_bytes)} unpacked, ${(request.unpacked_bytes / Math.max(1, request.bytes)).toFixed(1)} times smaller`),
    fact('Brought', brought.filter(Boolean).join(', ')),
    fact('Took', duration(request.duration)),
    fact('Client’s clock', request.timestamp && !isOff(request) ? `${skewText(request)} the collector’s` : null),
    fact('Client', request.client && h('a', { href: `/?q=${encodeURIComponent(term('client', request.client))}#live`, 'data-query': term('client', request.client) }, h('code', {}, request.client))),
    fact('Request id', request.request_id && h('code', {}, request.request_id)),
    fact('Fault', request.fault && h('span', { class: 'pill warn' }, request.fault)));
}

const ODD_SKEW = 60; // seconds; less than that is no reason for anything

const isOff = (request) => Math.abs(request.timestamp?.skew ?? 0) >= ODD_SKEW;
const skewText = ({ timestamp: { skew } }) => `${duration(Math.abs(skew))} ${skew < 0 ? 'behind' : 'ahead of'}`;

function refusal(request) {
  if (request.error_code === null && !request.message) return null;
  return h('section', { class: 'refusal', 'aria-label': 'Why it was refused' },
    h('h3', {}, request.error_code === null ? 'Refused' : `Refused with ${request.error_code}`),
    h('p', { class: 'refusal-message' }, request.message),
    request.rule !== request.message && request.rule && h('p', {}, request.rule),
    isOff(request) && h('p', {}, `The client’s clock is ${skewText(request)} the collector’s.`),
    place(request.where));
}

function place(where) {
  if (!where) return null;
  return h('div', { class: 'where' },
    h('p', {}, 'In the body at ', h('code', {}, where.path), where.offset === null ? '' : `, byte ${count(where.offset)}`),
    where.excerpt && h('pre', { tabindex: 0, 'aria-label': 'Excerpt of the body' }, where.excerpt));
}

/** The signed text in its four parts, URL : body : timestamp : request id, each marked. */
function signedText(text) {
  const parts = /^(.*?:)([0-9A-Fa-f]+(?:…|\.{3})?[^:]*)(:[^:]*)(:[^:]*)$/s.exec(text);
  if (!parts) return text;
  const names = ['the address', 'the body in hexadecimal', 'the timestamp', 'the request id'];
  return parts.slice(1).map((part, index) => h('span', { class: `signed-${index}`, title: names[index] }, part));
}

function signature(found) {
  if (!found) return null;
  return h('section', { class: 'signature', 'aria-label': 'Signature' },
    h('h3', {}, 'Signature'),
    h('p', { class: found.mistake ? 'mistake' : 'mistake unknown' },
      found.mistake ? [h('b', {}, 'It would have matched with this mistake: '), found.mistake]
        : 'None of the known mistakes would have matched: another key, or another text.'),
    h('h4', {}, 'The text that is signed, as the collector computed it'),
    h('pre', { class: 'signed', tabindex: 0, 'aria-label': 'Signed text' }, signedText(found.signed_text)),
    h('ul', { class: 'legend', 'aria-label': 'Parts of the signed text' }, ['address', 'body, hexadecimal', 'timestamp', 'request id'].map((name, index) =>
      h('li', { class: `signed-${index}` }, name))),
    h('h4', {}, 'Signature expected'),
    h('pre', { class: 'digest good' }, found.expected),
    h('h4', {}, 'Signature received'),
    h('pre', { class: 'digest bad' }, found.received || '(none)'));
}

function bodyLinks(request) {
  if (!request.has_body) return null;
  const file = (name, members) => h('a', { class: 'button', download: name, href: address(`requests/${request.seq}/body`, members) }, name.endsWith('gz') ? 'Body as received' : 'Body unpacked');
  return h('div', { class: 'detail-actions' },
    file(`request-${request.seq}.json.gz`, {}), file(`request-${request.seq}.json`, { unpacked: 1 }));
}

/** @param {any} request the API's answer */
export function requestDetail(request) {
  return [
    h('header', { class: 'detail-head' },
      h('p', {}, h('span', { class: `pill ${toneOf(request)}` }, request.status ? `status ${request.status}` : 'no answer')),
      h('h2', { tabindex: -1 }, `${request.method} ${request.path}`),
      bodyLinks(request)),
    refusal(request),
    signature(request.signature),
    facts(request),
    h('section', { 'aria-label': 'Headers' },
      h('h3', {}, 'Headers'),
      h('table', { class: 'values' }, h('tbody', {}, (request.headers ?? []).map(([name, value]) =>
        h('tr', {}, h('th', { scope: 'row' }, name), h('td', {}, value)))))),
  ];
}
