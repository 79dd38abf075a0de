// One list's rows of one search: the first page, the older pages as they are asked for, and what arrives.

import { Log } from './log.js';

const FIRST_PAGE = 200;
const NEXT_PAGE = 1000;

/** @typedef {(members: object, signal?: AbortSignal) => Promise<{rows: any[], next: number|null}>} Pages */

export class Feed {
  log = new Log();
  query = '';
  #next = null;
  #loading = null;

  /** @param {Pages} pages newest first */
  constructor(pages) {
    this.pages = pages;
  }

  /** Whether there are older rows that were not read yet. */
  get hasMore() {
    return this.#next !== null;
  }

  /** Begins anew with the rows of a search. What was there stays until they are there. */
  async load(query, signal) {
    const { rows, next } = await this.pages({ query, limit: FIRST_PAGE }, signal);
    this.query = query;
    this.#loading = null;
    this.#next = next;
    this.log.clear();
    this.log.add(rows.reverse());
  }

  /** Reads one older page; whether there was one. */
  async more() {
    if (this.#next === null || this.#loading) return false;
    const loading = this.pages({ query: this.query, limit: NEXT_PAGE, before: this.#next });
    this.#loading = loading;
    try {
      const { rows, next } = await loading;
      if (this.#loading !== loading) return false;
      this.#next = next;
      this.log.addOlder(rows);
      return true;
    } finally {
      if (this.#loading === loading) this.#loading = null;
    }
  }

  /** Reads what came since the newest row, for what the stream may have missed. */
  async catchUp(signal) {
    for (;;) {
      const members = { query: this.query, limit: NEXT_PAGE, after: String(this.log.newest) };
      const { rows, next } = await this.pages(members, signal);
      this.log.add(rows.sort((a, b) => a.seq - b.seq));
      if (next === null || rows.length === 0) return;
    }
  }

  /** Forgets all rows here; they stay in the database. */
  clear() {
    this.#loading = null;
    this.#next = null;
    this.log.clear();
  }
}
