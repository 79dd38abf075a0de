// A list that follows what arrives until somebody reads it: who pauses, scrolls or selects holds it still, and what arrives
// meanwhile waits behind a button.

import { wide } from './columns.js';
import { h, setText } from './dom.js';
import { count, plural } from './format.js';
import { Grid } from './grid.js';

const PAGES_AHEAD = 3; // read older rows when fewer than so many screens are left

export class ListView extends EventTarget {
  #paused = false;
  #reading = false;

  /**
   * @param {{feed: import('./feed.js').Feed, place: HTMLElement, button: HTMLElement, note: HTMLElement, noun: string,
   *   name: string, id: string, columns: import('./grid.js').Column[], empty: () => HTMLElement}} options
   */
  constructor({ feed, place, button, note, noun, name, id, columns, empty }) {
    super();
    Object.assign(this, { feed, button, note, noun, makeEmpty: empty });
    this.grid = new Grid({ name, id, columns, rows: feed.log });
    this.newRows = h('button', { type: 'button', class: 'grid-new', hidden: true, click: () => this.follow() });
    this.empty = h('div', { class: 'grid-empty', hidden: true });
    place.append(this.grid.element, this.newRows, this.empty);
    button.addEventListener('click', () => this.toggle());
    wide.addEventListener('change', () => this.grid.refillAll());
    this.grid.addEventListener('scrolled', () => this.#hold());
    this.grid.addEventListener('pick', (event) => this.open(event.detail));
    this.grid.addEventListener('drawn', (event) => this.#drawn(event.detail.end));
  }

  get isFollowing() {
    return !this.#paused && !this.#reading && this.grid.isAtTop;
  }

  /** The row that is selected, if it is still there. */
  get active() {
    return this.feed.log.find(this.grid.active);
  }

  async load(query, signal) {
    await this.feed.load(query, signal);
    this.#reading = false;
    this.grid.select(0);
    this.grid.scrollToTop();
    this.#hold();
    this.changed();
  }

  add(rows) {
    this.feed.log.add(rows);
    this.changed();
  }

  clear() {
    this.feed.clear();
    this.grid.select(0);
    this.grid.scrollToTop();
    this.changed();
  }

  /** Pauses a list that follows, lets another one follow. */
  toggle() {
    if (!this.isFollowing) this.follow();
    else {
      this.#paused = true;
      this.#hold();
    }
  }

  follow() {
    this.#paused = false;
    this.#reading = false;
    this.grid.scrollToTop();
    this.#hold();
    this.grid.element.focus({ preventScroll: true });
  }

  /** Ends the selection; the list follows again unless it was paused or scrolled. */
  leave() {
    this.#reading = false;
    this.grid.select(0);
    this.#hold();
  }

  /** Selects the row so many further down. */
  move(step) {
    const { log } = this.feed;
    if (log.length === 0) return;
    const from = log.indexOf(this.grid.active);
    const to = from < 0 ? (step === Infinity ? log.length - 1 : 0) : Math.min(log.length - 1, Math.max(0, from + step));
    const row = log.at(to);
    this.#reading = true;
    this.#hold();
    this.grid.select(row.seq);
    this.grid.reveal(log.indexOf(row.seq));
    this.dispatchEvent(new CustomEvent('move', { detail: row }));
  }

  /** Selects a row and asks for its detail. */
  open(seq = this.grid.active) {
    const row = this.feed.log.find(seq);
    if (!row) return;
    this.#reading = true;
    this.#hold();
    this.grid.select(seq);
    this.dispatchEvent(new CustomEvent('open', { detail: row }));
  }

  /** Selects a row that was opened from elsewhere, such as by an address. */
  mark(seq) {
    if (seq === this.grid.active) return;
    this.#reading = true;
    this.#hold();
    this.grid.select(seq);
    const index = this.feed.log.indexOf(seq);
    if (index >= 0) this.grid.reveal(index);
  }

  /** Rows came or went: they, and what is said of them, are drawn soon. */
  changed() {
    this.grid.refreshSoon();
  }

  #hold() {
    this.feed.log.held = !this.isFollowing;
    this.changed();
    this.#tell();
  }

  #tell() {
    const { log } = this.feed;
    const isFollowing = this.isFollowing;
    this.button.setAttribute('aria-pressed', String(isFollowing));
    setText(this.button.lastElementChild, isFollowing ? 'Following' : this.#paused ? 'Paused' : 'Follow');
    this.button.title = isFollowing ? 'Hold the list still (space)' : 'Show what arrives (space)';
    setText(this.note, `${this.feed.hasMore ? 'the newest ' : ''}${plural(log.length + log.waiting, this.noun)}`);
    this.newRows.hidden = log.waiting === 0;
    if (log.waiting) setText(this.newRows, `${count(log.waiting)} new`);
    const isEmpty = log.length === 0 && log.waiting === 0;
    if (isEmpty && this.empty.hidden) this.empty.replaceChildren(this.makeEmpty());
    this.empty.hidden = !isEmpty;
  }

  async #drawn(end) {
    this.#tell();
    if (end + PAGES_AHEAD * this.grid.page < this.feed.log.length) return;
    if (await this.feed.more().catch(() => false)) this.changed();
  }
}
