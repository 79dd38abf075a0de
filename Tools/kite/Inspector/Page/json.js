// JSON as a tree of blocks. Numbers stand there as they were written: 9.0 is not 9.

import { h } from './dom.js';

const MOST_LINES = 2000;
const LONGEST_TEXT = 20_000;
const DEEPEST = 16; // levels that are indented

/** Reads a text so that its numbers keep their digits. */
export const parseExactly = (text) =>
  JSON.parse(text, (_, value, context) => {
    const isOther = typeof value === 'number' && context?.source && String(value) !== context.source;
    return isOther && JSON.rawJSON ? JSON.rawJSON(context.source) : value;
  });

const isRaw = (value) => Boolean(JSON.isRawJSON?.(value));
const isObject = (value) => typeof value === 'object' && value !== null && !isRaw(value);

/** A value that is no object as it is written, and what kind it is. */
function leaf(value) {
  if (isRaw(value)) return h('span', { class: 'json-number' }, value.rawJSON);
  const text = JSON.stringify(value);
  const cut = text.length > LONGEST_TEXT ? `${text.slice(0, LONGEST_TEXT)}… (${text.length} characters)` : text;
  return h('span', { class: value === null ? 'json-null' : `json-${typeof value}` }, cut);
}

function lines(value, key, comma, budget, depth = 0) {
  const start = key === null ? [] : [h('span', { class: 'json-key' }, JSON.stringify(key)), ': '];
  if (!isObject(value)) return [h('div', {}, start, leaf(value), comma)];
  const [open, close] = Array.isArray(value) ? '[]' : '{}';
  const members = Object.entries(value);
  if (members.length === 0) return [h('div', {}, start, open + close, comma)];
  const inner = h('div', { class: depth < DEEPEST ? 'json-inner' : '' });
  members.forEach(([name, member], index) => {
    if (--budget.lines < 0) return;
    const behind = index + 1 < members.length ? ',' : '';
    inner.append(...lines(member, Array.isArray(value) ? null : name, behind, budget, depth + 1));
  });
  return [h('div', {}, start, open), inner, h('div', {}, close, comma)];
}

/** The value as a tree; a very long one only begins, with a button for the rest. */
export function jsonTree(value, most = MOST_LINES) {
  const budget = { lines: most };
  const tree = h('div', { class: 'json' }, lines(value, null, '', budget));
  if (budget.lines >= 0) return tree;
  const all = () => tree.replaceWith(jsonTree(value, Infinity));
  tree.append(h('button', { type: 'button', click: all }, `Show ${-budget.lines} or more further lines`));
  return tree;
}

/** A value in one line, as a table shows it. */
export const inLine = (value) => (typeof value === 'string' ? value : JSON.stringify(value));
