// The pane beside the lists. It shows one thing at a time; of two asked for shortly after each other the later one wins.

import { APIError, get } from './api.js';
import { byID, h } from './dom.js';
import { copyEvent, copyLine, eventDetail } from './eventdetail.js';
import { parseExactly } from './json.js';
import { requestDetail } from './requestdetail.js';
import { sessionDetail } from './sessiondetail.js';

/** The event with its numbers as they were written, where a person reads them. */
async function fetchEvent(id, signal) {
  const answer = await fetch(`/api/events/${encodeURIComponent(id)}`, { signal });
  const text = await answer.text();
  if (!answer.ok) throw new APIError(answer.status, answer.status === 404 ? 'this event is not in the database' : JSON.parse(text).error);
  const exact = parseExactly(text);
  const { data, user_info, user_ids, previous_user_info, line } = exact;
  return { ...JSON.parse(text), data, user_info, user_ids, previous_user_info, line };
}

export class Detail extends EventTarget {
  #abort = new AbortController();
  #event = null;
  #key = '';

  constructor() {
    super();
    this.element = byID('detail');
    this.main = byID('main');
    this.close();
  }

  get isOpen() {
    return this.main.dataset.detail === 'open';
  }

  /** What is open, such as "event ID". */
  get key() {
    return this.#key;
  }

  async showEvent(id) {
    const event = await this.#show(`event ${id}`, (signal) => fetchEvent(id, signal), eventDetail);
    this.#event = event ?? null;
    return event;
  }

  showRequest(seq) {
    return this.#show(`request ${seq}`, (signal) => get(`requests/${seq}`, {}, signal), requestDetail);
  }

  showSession(session, events) {
    return this.#show(`session ${session.id}`, async () => session, () => sessionDetail(session, events));
  }

  /** Puts the reader into the pane. */
  focus() {
    (this.element.querySelector('h2') ?? this.element).focus({ preventScroll: true });
  }

  copyEvent() {
    if (this.#event) copyEvent(this.#event);
  }

  copyLine() {
    if (this.#event) copyLine(this.#event);
  }

  close() {
    this.#abort.abort();
    this.#event = null;
    this.#key = '';
    delete this.main.dataset.detail;
    const key = (name, text) => [h('dt', {}, h('kbd', {}, name)), h('dd', {}, text)];
    this.element.replaceChildren(h('div', { class: 'nothing' },
      h('p', {}, 'Select a row to see all of it.'),
      h('dl', { class: 'keys' }, key('j', 'next'), key('k', 'the one before'), key('Enter', 'open'), key('?', 'all keys'))));
  }

  async #show(key, load, render) {
    this.#abort.abort();
    this.#abort = new AbortController();
    const { signal } = this.#abort;
    this.#event = null;
    this.#key = key;
    this.main.dataset.detail = 'open';
    try {
      const found = await load(signal);
      if (signal.aborted) return null;
      this.#fill(render(found));
      return found;
    } catch (error) {
      if (signal.aborted) return null;
      this.#fill([h('p', { class: 'detail-error' }, error.message)]);
      return null;
    }
  }

  #fill(content) {
    const close = () => this.dispatchEvent(new Event('close'));
    this.element.replaceChildren(
      h('button', { type: 'button', class: 'detail-close', 'aria-label': 'Close the detail', title: 'Esc', click: close }, h('span', { 'aria-hidden': 'true' }, '×'), h('span', { class: 'detail-back' }, 'Back')),
      ...content.filter(Boolean));
    this.element.scrollTop = 0;
  }
}
