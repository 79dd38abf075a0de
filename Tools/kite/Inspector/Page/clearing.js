// Clearing: the view here, or the database after it was asked for. And what is exported.

import { address, remove } from './api.js';
import { byID, h } from './dom.js';
import { plural } from './format.js';
import { note } from './notes.js';

const FORMATS = [['ndjson', 'an event a line'], ['json', 'one array'], ['csv', 'for a spreadsheet']];

/** The links export what the search shows. */
export function showExports(query) {
  byID('export-links').replaceChildren(...FORMATS.map(([format, text]) =>
    h('a', { href: address('export', { query, format }), download: `events.${format}` }, format.toUpperCase(), h('span', {}, text))));
}

/** @param {{clearView: () => void, total: () => number}} view */
export function makeClearing({ clearView, total }) {
  const dialog = byID('clear-dialog');
  byID('clear').addEventListener('click', () => {
    byID('clear-text').textContent =
      `The view is cleared on this page alone. The database loses its ${plural(total(), 'event')} and every request for good.`;
    dialog.showModal();
    byID('clear-cancel').focus();
  });
  byID('clear-cancel').addEventListener('click', () => dialog.close());
  byID('clear-view').addEventListener('click', () => {
    dialog.close();
    clearView();
    note('View cleared: it shows what arrives from now on');
  });
  byID('clear-database').addEventListener('click', async () => {
    dialog.close();
    try {
      const { deleted } = await remove('events');
      note(`Deleted ${plural(deleted, 'event')}`);
    } catch (error) {
      note(`Not deleted: ${error.message}`);
    }
  });
}

/** A menu closes with Escape and with a click elsewhere. */
export function closeMenus(event) {
  const menu = byID('export');
  const isElsewhere = event.type === 'click' ? !menu.contains(event.target) || event.target.closest('a') : event.key === 'Escape';
  if (!menu.open || !isElsewhere) return;
  menu.open = false;
  if (event.type === 'keydown') menu.querySelector('summary').focus();
}
