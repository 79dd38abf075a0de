// The collector's totals at the bottom, and how many events come in a second.

import { byID, setText } from './dom.js';
import { count } from './format.js';

const SPAN = 2000; // milliseconds over which the rate is taken
const PAUSE = 100; // between two times of showing them

export class Totals {
  #marks = [];
  #timer = 0;
  #latest = null;

  /** @param {{events: number, duplicates: number, requests: number, refused: number}} totals */
  show(totals) {
    this.#latest = totals;
    this.#timer ||= setTimeout(() => this.#write(), PAUSE);
  }

  get events() {
    return this.#latest?.events ?? 0;
  }

  #write() {
    const totals = this.#latest;
    this.#timer = 0;
    for (const name of ['events', 'duplicates', 'requests', 'refused']) setText(byID(`count-${name}`), count(totals[name]));
    const badge = byID('refused-badge');
    badge.hidden = totals.refused === 0;
    setText(badge, count(totals.refused));
    badge.title = 'refused';
    this.#marks.push({ at: performance.now(), events: totals.events });
    this.tick();
  }

  /** What is constant while the collector runs. */
  describe({ database, endpoint, version }) {
    setText(byID('database'), database);
    setText(byID('endpoint'), endpoint);
    setText(byID('version'), version ? `kite ${version}` : '');
    byID('database').title = database;
  }

  tick() {
    const now = performance.now();
    while (this.#marks.length > 1 && this.#marks[1].at < now - SPAN) this.#marks.shift();
    const [oldest] = this.#marks;
    const added = oldest ? this.#marks.at(-1).events - oldest.events : 0;
    setText(byID('rate'), count(Math.max(0, Math.round((1000 * added) / SPAN))));
  }
}
