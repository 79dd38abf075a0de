// The keyboard: one table that the keys are taken from and that the help shows.

import { byID, h, takesPress, takesText } from './dom.js';
import { TERMS } from './search.js';

/** Keys that do the same, what the help says of them, and the name of what they do. */
const KEYS = [
  [['j', 'ArrowDown'], 'next row', 'next'],
  [['k', 'ArrowUp'], 'the row before', 'previous'],
  [['PageDown'], 'a screen down', 'pageDown'],
  [['PageUp'], 'a screen up', 'pageUp'],
  [['Home'], 'the newest', 'first'],
  [['End'], 'the oldest that is here', 'last'],
  [['Enter'], 'open the row, or go into its detail', 'open'],
  [['Escape'], 'close what is open', 'close'],
  [[' '], 'pause, or follow again', 'pause'],
  [['/'], 'search', 'search'],
  [['1', '2', '3', '4'], 'live, sessions, requests, faults', 'view'],
  [['c'], 'copy the event as JSON', 'copyEvent'],
  [['l'], 'copy it as a line for kite host', 'copyLine'],
  [['t'], 'light or dark', 'theme'],
  [['?'], 'this help', 'help'],
];

const actionOf = new Map(KEYS.flatMap(([keys, , action]) => keys.map((key) => [key, action])));
const nameOf = (key) => ({ ' ': 'Space', ArrowDown: '↓', ArrowUp: '↑', Escape: 'Esc' })[key] ?? key;

/** Keys that scroll or press where they are typed: only the lists take them. */
const isOfLists = (action) => ['pageDown', 'pageUp', 'first', 'last'].includes(action);

/** @param {Object<string, (key: string) => void>} actions what each name does */
export function takeKeys(actions) {
  document.addEventListener('keydown', (event) => {
    const { target, key } = event;
    const action = actionOf.get(key);
    if (!action || event.ctrlKey || event.metaKey || event.altKey || document.querySelector('dialog[open]')) return;
    if (takesText(target) && key !== 'Escape') return;
    if ((key === 'Enter' || key === ' ') && takesPress(target)) return;
    if (isOfLists(action) && !target.matches('[role=grid], [role=listbox], body, main')) return;
    event.preventDefault();
    actions[action](key);
  });
}

/** Fills the help from the table. */
export function makeHelp() {
  const close = () => byID('help').close();
  const line = (keys, text) => [h('dt', {}, keys), h('dd', {}, text)];
  byID('help').append(
    h('h2', { id: 'help-title' }, 'Keys and search'),
    h('h3', {}, 'Keys'),
    h('dl', { class: 'keys' }, KEYS.map(([keys, text]) => line(keys.map((key) => h('kbd', {}, nameOf(key))), text))),
    h('h3', {}, 'Search: terms with spaces between them, all must hold; "quotes" hold a value together'),
    h('dl', { class: 'keys' }, TERMS.map(([term, text]) => line(h('code', {}, term), text))),
    h('div', { class: 'dialog-buttons' }, h('button', { type: 'button', class: 'primary', click: close }, 'Close')));
}
