// The search box. It only edits the text: the collector reads it, and says what is wrong with it.

import { byID, h } from './dom.js';
import { announce } from './notes.js';

const PAUSE = 180; // after the last key, before it is searched for

/** The terms, as the box and the help show them. */
export const TERMS = [
  ['type:UserAction', 'of that type'],
  ['name:buy', 'of that name; name:bu* begins so'],
  ['session:', 'of one session'],
  ['client:', 'of one client'],
  ['after:-5m', 'since 5 minutes; also before:, 14:30, a date'],
  ['dup:>0', 'received more than once'],
  ['data.action_info.price:>9', 'by a value of the data; also info.'],
  ['has:data.action_info.price', 'where that value is there'],
  ['tester:true', 'from a test build'],
  ['bad:', 'requests that were refused'],
  ['status:400', 'requests by status; also code:603'],
  ['-type:Session', 'not that'],
];

/** Whether it searches for requests rather than for events. */
export const isOfRequests = (query) => /(^|\s)-?(bad|status|code):/.test(query);

/** The terms of which requests and sessions know nothing: with one of them, none would be shown. */
const notOfRequests = /(^|\s)-?(type|name|session|app|tester|has|data\.\S*?|info\.\S*?):/;
const notOfSessions = /(^|\s)-?(type|name|app|tester|dup|has|bad|status|code|data\.\S*?|info\.\S*?):/;

/** The search, unless it can only be meant for events. */
export const forRequests = (query) => (notOfRequests.test(query) ? '' : query);
export const forSessions = (query) => (notOfSessions.test(query) ? '' : query);

export class Search extends EventTarget {
  #timer = 0;

  constructor() {
    super();
    this.input = byID('query');
    this.terms = byID('search-terms');
    this.error = byID('search-error');
    this.terms.append(...TERMS.map(([term, text]) =>
      h('button', { type: 'button', tabindex: -1, mousedown: (event) => event.preventDefault(), click: () => this.#insert(term) },
        h('code', {}, term), h('span', {}, text))));
    this.input.addEventListener('input', () => {
      this.#showTerms();
      clearTimeout(this.#timer);
      this.#timer = setTimeout(() => this.#changed(), PAUSE);
    });
    this.input.addEventListener('focus', () => this.#showTerms());
    this.input.addEventListener('blur', () => (this.terms.hidden = true));
    byID('search').addEventListener('submit', (event) => {
      event.preventDefault();
      clearTimeout(this.#timer);
      this.#changed();
      this.dispatchEvent(new Event('done'));
    });
  }

  get query() {
    return this.input.value.trim();
  }

  /** Shows a search that came from elsewhere, without asking for it again. */
  set query(query) {
    if (query !== this.query) this.input.value = query;
  }

  focus() {
    this.input.focus();
    this.input.select();
  }

  /** Shows what is wrong with the search, or nothing when it is right. */
  showError(message) {
    this.error.textContent = message;
    this.error.hidden = !message;
    this.input.setAttribute('aria-invalid', String(Boolean(message)));
    if (message) {
      this.terms.hidden = true;
      announce(message);
    }
  }

  #showTerms() {
    this.terms.hidden = this.input.value !== '' || !this.error.hidden;
  }

  #insert(term) {
    this.input.value = term;
    this.input.focus();
    this.terms.hidden = true;
    this.#changed();
  }

  #changed() {
    this.dispatchEvent(new CustomEvent('search', { detail: this.query }));
  }
}
