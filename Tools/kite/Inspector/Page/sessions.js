// A client's sessions, newest first, each as a bar.

import { get } from './api.js';
import { byID, h, setText } from './dom.js';
import { term } from './eventdetail.js';
import { duration, plural, shortID, shortTime } from './format.js';
import { announce } from './notes.js';
import { beforeText, stateOf } from './sessiondetail.js';
import { axis, eventAt, lengthOf, overview, sessionBar } from './timeline.js';

const PAGE = 50;
const MOST_EVENTS = 1000;
const PAUSE = 1000; // between two times of reading what changed

export class Sessions extends EventTarget {
  #client = '';
  #query = '';
  #sessions = [];
  #next = null;
  #events = new Map();
  #active = '';
  #fits = false;
  #isVisible = false;
  #timer = 0;

  constructor() {
    super();
    this.body = byID('sessions-body');
    this.select = byID('client');
    this.select.addEventListener('change', () => this.show(this.select.value));
    this.body.addEventListener('scroll', () => this.#scrolled());
    byID('fit').addEventListener('click', (event) => {
      this.#fits = !this.#fits;
      event.currentTarget.setAttribute('aria-pressed', String(this.#fits));
      this.#draw();
    });
    this.sight = new IntersectionObserver((entries) => {
      for (const entry of entries) if (entry.isIntersecting) this.#fill(entry.target.dataset.id);
    }, { root: this.body, rootMargin: '200px' });
  }

  get active() {
    return this.#sessions.find((session) => session.id === this.#active);
  }

  set isVisible(isVisible) {
    this.#isVisible = isVisible;
  }

  eventsOf(session) {
    return this.#events.get(session.id)?.rows ?? [];
  }

  /** Shows the client's sessions, of the newest client when none is named. */
  async show(client = this.#client, query = this.#query) {
    const { clients } = await get('clients');
    clients.sort((a, b) => b.last - a.last);
    const chosen = clients.find((one) => one.client === client) ?? clients[0];
    this.#client = chosen?.client ?? '';
    this.#query = query;
    this.select.replaceChildren(...clients.map(({ client: id, app, events, sessions }) =>
      h('option', { value: id, selected: id === this.#client }, `${shortID(id)} · ${app} · ${plural(sessions, 'session')}, ${plural(events, 'event')}`)));
    const page = chosen ? await this.#read() : { sessions: [], next: null };
    this.#sessions = page.sessions;
    this.#next = page.next;
    this.#draw();
  }

  /** Something arrived: reads again, once in a while. */
  stir() {
    if (!this.#isVisible || this.#timer) return;
    this.#timer = setTimeout(() => {
      this.#timer = 0;
      if (this.#isVisible) this.show().catch(() => {});
    }, PAUSE);
  }

  /** Reads a session's events, then its detail can be shown. */
  async open(id = this.#active) {
    const session = this.#sessions.find((one) => one.id === id);
    if (!session) return;
    this.mark(id);
    await this.#fill(id);
    this.dispatchEvent(new CustomEvent('open', { detail: session }));
  }

  move(step) {
    if (this.#sessions.length === 0) return;
    const from = this.#sessions.findIndex((session) => session.id === this.#active);
    const last = this.#sessions.length - 1;
    const to = from < 0 ? (step === Infinity ? last : 0) : Math.min(last, Math.max(0, from + step));
    this.mark(this.#sessions[to].id);
    this.dispatchEvent(new CustomEvent('move', { detail: this.#sessions[to] }));
  }

  mark(id) {
    this.#active = id;
    const list = this.body.querySelector('[role=listbox]');
    for (const option of list?.children ?? []) {
      const isActive = option.dataset.id === id;
      option.setAttribute('aria-selected', String(isActive));
      if (!isActive) continue;
      list.setAttribute('aria-activedescendant', option.id);
      option.scrollIntoView({ block: 'nearest' });
    }
    if (!id) list?.removeAttribute('aria-activedescendant');
  }

  #read(before) {
    return get('sessions', { client: this.#client, query: this.#query, limit: PAGE, before });
  }

  async #scrolled() {
    const { scrollTop, scrollHeight, clientHeight } = this.body;
    if (this.#next === null || scrollHeight - scrollTop - clientHeight > 400) return;
    const before = this.#next;
    this.#next = null;
    const page = await this.#read(before);
    this.#sessions.push(...page.sessions);
    this.#next = page.next;
    this.#draw();
  }

  #draw() {
    const sessions = this.#sessions;
    setText(byID('sessions-note'), `${this.#next === null ? '' : 'the newest '}${plural(sessions.length, 'session')}`);
    this.sight.disconnect();
    if (sessions.length === 0) {
      this.body.replaceChildren(h('div', { class: 'sessions-empty' }, h('h2', {}, 'No sessions'),
        h('p', {}, this.#query ? 'No session holds an event that the search finds.' : 'A session appears with the first event of it that is stored.')));
      return;
    }
    const top = this.body.scrollTop;
    const hadFocus = this.body.contains(document.activeElement);
    const scale = Math.max(...sessions.map(lengthOf));
    const list = h('div', {
      class: 'session-list', role: 'listbox', tabindex: 0, 'aria-label': 'Sessions, newest first',
      click: (event) => this.#clicked(event), mousemove: (event) => this.#hovered(event),
    }, sessions.map((session) => this.#option(session, scale)));
    this.body.replaceChildren(overview(sessions), this.#fits ? '' : axis(scale), list);
    this.body.scrollTop = top;
    if (hadFocus) list.focus({ preventScroll: true });
    if (this.#active) this.mark(this.#active);
    for (const option of list.children) this.sight.observe(option);
  }

  #option(session, scale) {
    const before = beforeText(session);
    const facts = `${plural(session.events, 'event')}, ${duration(lengthOf(session))}`;
    return h('div', {
      role: 'option', id: `session-${session.id}`, 'data-id': session.id, 'aria-selected': 'false',
    },
    h('div', { class: 'session-facts' },
      h('b', {}, shortTime(session.start)),
      h('span', {}, facts),
      (session.crashed || !session.ended) && h('span', { class: `pill ${session.crashed ? 'bad' : 'warn'}` }, stateOf(session))),
    this.#bar(session, scale),
    before && h('div', { class: session.overlaps ? 'between overlaps' : 'between' }, h('span', {}, before)));
  }

  #bar(session, scale) {
    const lane = sessionBar(session, this.eventsOf(session), this.#fits ? lengthOf(session) : scale);
    lane.firstChild.dataset.start = session.start;
    lane.firstChild.dataset.length = lengthOf(session);
    return lane;
  }

  /** Reads the events of a session that came into sight, unless they are there. */
  async #fill(id) {
    const session = this.#sessions.find((one) => one.id === id);
    if (!session || this.#events.get(id)?.count === session.events) return;
    const { events } = await get('events', { query: term('session', id), limit: MOST_EVENTS, order: 'asc' });
    this.#events.set(id, { count: session.events, rows: events.sort((a, b) => a.timestamp - b.timestamp) });
    const option = document.getElementById(`session-${id}`);
    const scale = Math.max(...this.#sessions.map(lengthOf));
    option?.querySelector('.lane').replaceWith(this.#bar(session, scale));
  }

  /** The event under the pointer, when it is near enough to be meant. */
  #eventUnder(event) {
    const option = event.target.closest('[role=option]');
    const bar = event.target.closest('.session-bar');
    const session = this.#sessions.find((one) => one.id === option?.dataset.id);
    return { session, found: bar && session ? eventAt(bar, this.eventsOf(session), event.clientX) : null, bar };
  }

  #clicked(event) {
    const { session, found } = this.#eventUnder(event);
    if (!session) return;
    if (found && event.altKey) this.dispatchEvent(new CustomEvent('event', { detail: found }));
    else this.open(session.id).catch((error) => announce(error.message));
  }

  #hovered(event) {
    const { session, found, bar } = this.#eventUnder(event);
    if (!bar || !found) return;
    bar.title = `${found.type}${found.name ? ` ${found.name}` : ''}, ${duration(Math.max(0, found.timestamp - session.start))} after the start`;
  }
}
