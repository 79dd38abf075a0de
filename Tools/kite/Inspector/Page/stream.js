// What the collector tells while it happens. The browser's event source resumes by itself; when it gives up, a new one is
// made, and it goes on behind the last row that was seen.

import { address, get } from './api.js';

const KINDS = ['events', 'duplicates', 'request', 'faults', 'cleared', 'counts'];
const LONGEST_WAIT = 5000;

export class Stream extends EventTarget {
  #source = null;
  #timer = 0;
  #wait = 250;
  #query = '';
  #last = 0;

  /** Listens for what matches, from behind the row `after`. */
  open(query, after) {
    this.#query = query;
    this.#last = after;
    this.#connect();
  }

  close() {
    clearTimeout(this.#timer);
    this.#source?.close();
    this.#source = null;
  }

  #connect() {
    this.close();
    this.#tell('connecting');
    const source = new EventSource(address('stream', { query: this.#query, after: String(this.#last) }));
    this.#source = source;
    source.addEventListener('open', () => {
      this.#wait = 250;
      this.#tell('live');
    });
    source.addEventListener('error', () => this.#lost(source));
    for (const kind of KINDS) source.addEventListener(kind, (message) => this.#received(kind, message));
  }

  #received(kind, message) {
    if (kind === 'events' && message.lastEventId) this.#last = Number(message.lastEventId);
    this.dispatchEvent(new CustomEvent(kind, { detail: JSON.parse(message.data) }));
  }

  /** A closed source does not come back; why it was closed only a request tells. */
  async #lost(source) {
    if (source !== this.#source) return;
    this.#tell('lost');
    if (source.readyState !== EventSource.CLOSED) return;
    const status = await get('summary').then(() => 200, (error) => error.status);
    if (source !== this.#source) return;
    if (status === 401 || status === 403) {
      this.#tell('refused');
      return;
    }
    this.#timer = setTimeout(() => this.#connect(), this.#wait);
    this.#wait = Math.min(2 * this.#wait, LONGEST_WAIT);
  }

  #tell(state) {
    this.dispatchEvent(new CustomEvent('state', { detail: state }));
  }
}
