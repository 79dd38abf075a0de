// A virtual list: only the rows in sight have elements, and an element keeps its row for as long as that is in sight.

import { h, setText } from './dom.js';

const BETWEEN_ARRIVALS = 60; // milliseconds; rows that pass faster than this are not read, and drawing them takes the processor
const SPARE = 5; // rows drawn above and below, so that a scroll shows no empty edge

/**
 * @typedef {{title: string, class: string, label?: string, fill: (cell: HTMLElement, row: any) => void}} Column
 * @typedef {{length: number, at: (index: number) => any, indexOf: (seq: number) => number}} Rows
 */
export class Grid extends EventTarget {
  /** @type {{element: HTMLElement, cells: HTMLElement[], index: number, height: number}[]} */ #free = [];
  /** @type {Map<any, any>} */ #drawn = new Map();
  #frame = 0;
  #timer = 0;
  #drawnAt = 0;
  #rowHeight = 30;
  // Asking the element for these would lay the page out anew each time.
  #top = 0;
  #space = 0;
  #active = 0;

  /** @param {{name: string, id: string, columns: Column[], rows: Rows}} options */
  constructor({ name, id, columns, rows }) {
    super();
    this.id = id;
    this.columns = columns;
    this.rows = rows;
    this.body = h('div', { class: 'grid-body', role: 'rowgroup' });
    const titles = columns.map((column) => h('span', { role: 'columnheader', class: column.class, 'aria-label': column.label }, column.title));
    this.head = h('div', { class: 'grid-head', role: 'rowgroup' }, h('div', { class: 'row', role: 'row', 'aria-rowindex': 1 }, titles));
    this.element = h('div', {
      class: 'grid', role: 'grid', tabindex: 0, id, 'aria-label': name, 'aria-colcount': columns.length,
      scroll: () => this.#scrolled(), click: (event) => this.#clicked(event),
    }, this.head, this.body);
    new ResizeObserver(() => this.#resized()).observe(this.element);
  }

  /** The number of the row that is selected, 0 for none. */
  get active() {
    return this.#active;
  }

  get isAtTop() {
    return this.#top < 2;
  }

  /** How many rows fit. */
  get page() {
    return Math.max(1, Math.floor(this.#space / this.#rowHeight));
  }

  /** Draws at the next frame what the reader changed, such as by scrolling. */
  refresh() {
    clearTimeout(this.#timer);
    this.#timer = 0;
    cancelAnimationFrame(this.#frame);
    this.#frame = requestAnimationFrame((now) => this.#draw(now));
  }

  /** Draws what arrived: at once, but no more often than an eye can follow. */
  refreshSoon() {
    if (this.#frame || this.#timer) return;
    const wait = this.#drawnAt + BETWEEN_ARRIVALS - performance.now();
    if (wait <= 0) this.refresh();
    else this.#timer = setTimeout(() => this.refresh(), wait);
  }

  /** Fills a row again whose values have changed. */
  refill(row) {
    const slot = this.#drawn.get(row);
    if (slot) this.#fill(slot, row);
  }

  refillAll() {
    for (const [row, slot] of this.#drawn) this.#fill(slot, row);
  }

  select(seq) {
    this.#active = seq;
    this.#showActive();
  }

  scrollToTop() {
    this.#scrollTo(0);
  }

  /** Brings a row into sight, and no further than it must. */
  reveal(index) {
    const top = index * this.#rowHeight;
    const last = top + this.#rowHeight - this.#space;
    if (top < this.#top) this.#scrollTo(top);
    else if (last > this.#top) this.#scrollTo(last);
    else this.refresh();
  }

  #scrollTo(top) {
    this.#setHeight();
    this.element.scrollTop = top;
    this.#top = this.element.scrollTop;
    this.refresh();
  }

  #setHeight() {
    const height = `${this.rows.length * this.#rowHeight}px`;
    if (this.body.style.height !== height) this.body.style.height = height;
  }

  #scrolled() {
    this.#top = this.element.scrollTop;
    this.refresh();
    this.dispatchEvent(new Event('scrolled'));
  }

  #resized() {
    this.#space = this.element.clientHeight - this.head.offsetHeight;
    if (!this.element.clientHeight) return;
    const height = parseFloat(getComputedStyle(this.element).getPropertyValue('--row'));
    if (height !== this.#rowHeight) {
      const top = this.#top * (height / this.#rowHeight);
      this.#rowHeight = height;
      this.#scrollTo(top);
    }
    this.#top = this.element.scrollTop;
    this.refresh();
  }

  #clicked(event) {
    const element = event.target.closest('.grid-body .row');
    if (element) this.dispatchEvent(new CustomEvent('pick', { detail: Number(element.dataset.seq) }));
  }

  #draw(now) {
    const { element, rows } = this;
    this.#frame = 0;
    this.#drawnAt = now;
    if (this.#space <= 0) return;
    this.#setHeight();
    const count = String(rows.length + 1);
    if (element.getAttribute('aria-rowcount') !== count) element.setAttribute('aria-rowcount', count);

    const first = Math.max(0, Math.floor(this.#top / this.#rowHeight) - SPARE);
    const end = Math.min(rows.length, Math.ceil((this.#top + this.#space) / this.#rowHeight) + SPARE);
    const wanted = new Set();
    for (let index = first; index < end; index++) wanted.add(rows.at(index));
    for (const [row, slot] of this.#drawn) {
      if (wanted.has(row)) continue;
      this.#drawn.delete(row);
      this.#free.push(slot);
    }
    for (let index = first; index < end; index++) this.#put(rows.at(index), index);
    for (const slot of this.#free) slot.element.hidden = true;
    this.#showActive();
    this.dispatchEvent(new CustomEvent('drawn', { detail: { end } }));
  }

  #put(row, index) {
    let slot = this.#drawn.get(row);
    if (!slot) {
      slot = this.#takeFree(index) ?? this.#makeSlot();
      slot.element.hidden = false;
      this.#fill(slot, row);
      this.#drawn.set(row, slot);
    }
    if (slot.index === index && slot.height === this.#rowHeight) return;
    slot.index = index;
    slot.height = this.#rowHeight;
    slot.element.style.transform = `translateY(${index * this.#rowHeight}px)`;
    slot.element.setAttribute('aria-rowindex', String(index + 2));
  }

  /** One that stands there already if there is one, which then need not be moved. */
  #takeFree(index) {
    const at = this.#free.findIndex((slot) => slot.index === index);
    return at < 0 ? this.#free.pop() : this.#free.splice(at, 1)[0];
  }

  #makeSlot() {
    const cells = this.columns.map((column) => h('span', { role: 'gridcell', class: column.class }));
    const element = h('div', { class: 'row', role: 'row' }, cells);
    this.body.append(element);
    return { element, cells, row: null, index: -1, height: 0 };
  }

  #fill(slot, row) {
    slot.element.dataset.seq = row.seq;
    slot.element.id = `${this.id}-${row.seq}`;
    this.columns.forEach((column, index) => column.fill(slot.cells[index], row));
  }

  #showActive() {
    let isDrawn = false;
    for (const [row, slot] of this.#drawn) {
      const isActive = row.seq === this.#active;
      isDrawn ||= isActive;
      const text = String(isActive);
      if (slot.element.getAttribute('aria-selected') !== text) slot.element.setAttribute('aria-selected', text);
    }
    if (isDrawn) this.element.setAttribute('aria-activedescendant', `${this.id}-${this.#active}`);
    else this.element.removeAttribute('aria-activedescendant');
  }
}

/** A column that shows one text. */
export const textColumn = (title, className, text, label) => ({
  title, class: className, label, fill: (cell, row) => setText(cell, text(row)),
});
