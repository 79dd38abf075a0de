// Faults for the next requests: a form in the words of `kite collect --fault`, and what is still to come.

import { get, post, remove } from './api.js';
import { byID, h, setText } from './dom.js';
import { plural } from './format.js';
import { note } from './notes.js';

const KINDS = [
  { name: 'status', title: 'Answer a status', text: 'and store nothing', argument: 'Status', example: '503' },
  { name: 'delay', title: 'Answer late', text: 'handle the request as usual, after a while', argument: 'Milliseconds', example: '2000' },
  { name: 'reset', title: 'Reset the connection', text: 'without any answer' },
  { name: 'truncate', title: 'Break off the answer', text: 'a 200 that ends in the middle' },
  { name: 'redirect', title: 'Redirect', text: 'answer 307 to another address', argument: 'Address', example: 'https://127.0.0.1:8443/v4/events' },
];

/** What the collector is told: the count is always given, so that a URL may end in an "x" and digits. */
export const faultText = (kind, argument, times) => `${kind}${argument ? `:${argument}` : ''}x${times}`;

export class Faults {
  constructor() {
    this.kinds = h('fieldset', { class: 'fault-kinds', change: () => this.#changed(true) }, h('legend', {}, 'What happens'),
      KINDS.map(({ name, title, text }, index) => h('label', {},
        h('input', { type: 'radio', name: 'kind', value: name, checked: index === 0 }), h('b', {}, title), h('span', {}, text))));
    this.argumentName = h('span');
    this.argument = h('input', { type: 'text', id: 'fault-argument', autocomplete: 'off', spellcheck: 'false', input: () => this.#changed() });
    this.argumentField = h('label', { class: 'field' }, this.argumentName, this.argument);
    this.times = h('input', { type: 'number', id: 'fault-times', min: 1, max: 1_000_000_000, value: 1, required: true, input: () => this.#changed() });
    this.preview = h('code', { class: 'fault-preview' });
    this.error = h('p', { class: 'fault-error', role: 'alert' });
    this.list = h('ul', { class: 'fault-list' });
    this.none = h('p', { class: 'aside' }, 'None: every request is handled as usual.');
    this.end = h('button', { type: 'button', click: () => this.#remove() }, 'Remove all');
    const form = h('form', { class: 'fault-form', submit: (event) => this.#submit(event) },
      this.kinds,
      h('div', { class: 'fault-rest' }, this.argumentField, h('label', { class: 'field' }, h('span', {}, 'For the next'), this.times, h('span', {}, 'requests'))),
      h('div', { class: 'fault-rest' }, h('button', { class: 'primary', type: 'submit' }, 'Add the fault'), this.preview),
      this.error);
    byID('faults-body').append(
      h('h2', {}, 'Make the next requests fail'), h('p', {}, 'To see what a host does with a service that misbehaves. Faults strike in the order in which they were added.'),
      form, h('h2', {}, 'Still to come'), this.list, this.none, this.end);
    this.#changed(true);
    this.show([]);
  }

  async load() {
    this.show((await get('faults')).faults);
  }

  /** @param {{fault: string, left: number}[]} faults */
  show(faults) {
    this.list.replaceChildren(...faults.map(({ fault, left }) => h('li', {}, h('code', {}, fault), h('span', {}, `the next ${plural(left, 'request')}`))));
    this.none.hidden = faults.length > 0;
    this.end.hidden = faults.length === 0;
    const badge = byID('faults-badge');
    badge.hidden = faults.length === 0;
    setText(badge, String(faults.reduce((sum, { left }) => sum + left, 0)));
    badge.title = 'requests that will fail';
  }

  get #kind() {
    const name = this.kinds.querySelector('input:checked').value;
    return KINDS.find((kind) => kind.name === name);
  }

  get #text() {
    return faultText(this.#kind.name, this.#kind.argument ? this.argument.value.trim() : '', this.times.value || 1);
  }

  #changed(isOtherKind = false) {
    const { argument, example } = this.#kind;
    this.argumentField.hidden = !argument;
    this.argument.required = Boolean(argument);
    if (isOtherKind) {
      setText(this.argumentName, argument ?? '');
      this.argument.value = example ?? '';
    }
    setText(this.preview, `--fault ${this.#text}`);
    setText(this.error, '');
  }

  async #submit(event) {
    event.preventDefault();
    try {
      this.show((await post('faults', { fault: this.#text })).faults);
      note('Fault added');
    } catch (error) {
      setText(this.error, error.message);
    }
  }

  async #remove() {
    try {
      await remove('faults');
      await this.load();
      byID('faults-body').querySelector('button').focus();
      note('No faults left');
    } catch (error) {
      setText(this.error, error.message);
    }
  }
}
