// Puts the parts together: the address decides what is shown, the stream what is new.

import { read, VIEWS, write } from './address.js';
import { get } from './api.js';
import { closeMenus, makeClearing, showExports } from './clearing.js';
import { EVENT_COLUMNS, REQUEST_COLUMNS } from './columns.js';
import { Detail } from './detail.js';
import { byID, setText } from './dom.js';
import { noEvents, noRequests } from './empty.js';
import { Faults } from './faults.js';
import { Feed } from './feed.js';
import { makeHelp, takeKeys } from './keys.js';
import { ListView } from './listview.js';
import { announce } from './notes.js';
import { forRequests, forSessions, isOfRequests, Search } from './search.js';
import { Sessions } from './sessions.js';
import { Stream } from './stream.js';
import { Totals } from './totals.js';

const STATES = { connecting: 'Connecting', live: 'Live', lost: 'Reconnecting', refused: 'No access' };

/** The pages of one kind of rows, newest first. */
const pagesOf = (kind) => async (members, signal) => {
  const page = await get(kind, members, signal);
  return { rows: page[kind], next: page.next };
};

const place = read();
const stream = new Stream();
const detail = new Detail();
const search = new Search();
const sessions = new Sessions();
const faults = new Faults();
const totals = new Totals();
let summary = null;
let loading = new AbortController();
let wasLost = false;

const events = new ListView({
  feed: new Feed(pagesOf('events')), place: byID('live-grid'), button: byID('follow'), note: byID('live-note'), noun: 'event',
  name: 'Events, newest first', id: 'event-grid', columns: EVENT_COLUMNS, empty: () => noEvents(summary, place.query),
});
const requests = new ListView({
  feed: new Feed(pagesOf('requests')), place: byID('requests-grid'), button: byID('follow-requests'), note: byID('requests-note'),
  noun: 'request', name: 'Requests, newest first', id: 'request-grid', columns: REQUEST_COLUMNS, empty: () => noRequests(forRequests(place.query)),
});
const lists = { live: events, requests, sessions };

/** Changes where the page is; the address follows. */
function go(change, isStep = false) {
  Object.assign(place, change);
  write(place, isStep);
}

function showView() {
  for (const view of VIEWS) byID(view).hidden = view !== place.view;
  byID('main').dataset.view = place.view;
  for (const link of document.querySelectorAll('.views a')) {
    if (link.dataset.view === place.view) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  document.title = `${byID(place.view).getAttribute('aria-label')} · Kite Inspector`;
  sessions.isVisible = place.view === 'sessions';
  byID('only-refused').setAttribute('aria-pressed', String(/(^|\s)bad:/.test(place.query)));
}

async function showItem() {
  const [first, second] = place.item;
  if (!first || place.view === 'faults') closeDetail();
  else if (place.view === 'live') {
    const event = await detail.showEvent(first);
    if (event) events.mark(event.seq);
  } else if (place.view === 'requests') {
    requests.mark(Number(first));
    await detail.showRequest(first);
  } else if (second) await sessions.open(second);
}

async function showSessions() {
  await sessions.show(place.item[0], forSessions(place.query)).catch((error) => announce(error.message));
}

async function openView(view, item = []) {
  if (view !== place.view || item.length === 0) closeDetail();
  go({ view, item }, true);
  await arrive();
}

/** Shows what the address says. */
async function arrive() {
  const { view, item } = place;
  showView();
  if (view === 'sessions') await showSessions();
  if (place.view === view && place.item === item) await showItem();
}

function closeDetail() {
  const wasIn = detail.element.contains(document.activeElement);
  detail.close();
  events.leave();
  requests.leave();
  sessions.mark('');
  if (wasIn) focusList();
}

const focusList = () => (byID(place.view).querySelector('[role=grid], [role=listbox]') ?? byID('main')).focus({ preventScroll: true });

/** Reads all lists anew for a search and listens for what comes behind them. */
async function load() {
  loading.abort();
  loading = new AbortController();
  const { signal } = loading;
  try {
    await Promise.all([events.load(place.query, signal), requests.load(forRequests(place.query), signal)]);
    if (signal.aborted) return;
    search.showError('');
    stream.open(place.query, events.feed.log.newest);
  } catch (error) {
    if (error.name === 'AbortError' || signal.aborted) return;
    if (error.status === 400) search.showError(error.message);
    else setTimeout(() => signal.aborted || load(), 1000);
    if (error.status !== 400) showState(error.status === 401 || error.status === 403 ? 'refused' : 'lost');
  }
}

async function searchFor(query, view = place.view) {
  search.query = query;
  const wanted = isOfRequests(query) ? 'requests' : view;
  if (wanted !== place.view) closeDetail();
  go({ query, view: wanted, item: wanted === place.view ? place.item : [] }, view !== place.view);
  showView();
  showExports(query);
  await load();
  if (place.view === 'sessions') await showSessions();
}

async function loadSummary() {
  summary = await get('summary').catch(() => null);
  if (!summary) return;
  totals.describe(summary);
  totals.show(summary);
  faults.show(summary.faults);
  if (!events.empty.hidden) events.empty.replaceChildren(noEvents(summary, place.query));
}

function showState(state) {
  const element = byID('connection');
  if (element.dataset.state === state) return;
  element.dataset.state = state;
  setText(element.lastElementChild, STATES[state]);
  element.title = state === 'refused' ? 'Open the address that kite collect printed: the token is another one' : '';
  if (state !== 'connecting') announce(state === 'live' ? 'Connected to the collector' : `${STATES[state]}. ${element.title}`);
}

/** The stream resumes events, not requests. */
const catchUpRequests = () => requests.feed.catchUp().then(() => requests.changed(), () => {});

stream.addEventListener('state', ({ detail: state }) => {
  showState(state);
  if (state === 'lost') wasLost = true;
  if (state !== 'live') return;
  catchUpRequests(); // those between the first page and the stream
  if (wasLost) loadSummary();
  wasLost = false;
});
stream.addEventListener('events', ({ detail: rows }) => {
  events.add(rows);
  sessions.stir();
});
stream.addEventListener('duplicates', ({ detail: changes }) => {
  for (const { seq, duplicates } of changes) {
    const row = events.feed.log.find(seq);
    if (!row) continue;
    row.duplicates = duplicates;
    events.grid.refill(row);
  }
});
stream.addEventListener('request', ({ detail: rows }) => {
  if (!requests.feed.query) requests.add(rows);
  else catchUpRequests();
});
stream.addEventListener('faults', ({ detail: rows }) => faults.show(rows));
stream.addEventListener('counts', ({ detail: counts }) => totals.show(counts));
stream.addEventListener('cleared', () => {
  closeDetail();
  go({ item: [] });
  events.clear();
  requests.clear();
  sessions.stir();
  loadSummary();
});

/** Selecting opens where there is room beside the list; elsewhere Enter does. */
const hasRoom = matchMedia('(min-width: 1000px)');
let moving = 0;
function show(row, isOpened) {
  const item = place.view === 'live' ? [row.id] : place.view === 'requests' ? [String(row.seq)] : [row.client, row.id];
  clearTimeout(moving);
  if (!isOpened && !(hasRoom.matches && detail.isOpen)) return;
  go({ item }, !hasRoom.matches && isOpened);
  const open = async () => {
    if (place.view === 'live') await detail.showEvent(row.id);
    else if (place.view === 'requests') await detail.showRequest(row.seq);
    else if (isOpened) await detail.showSession(row, sessions.eventsOf(row));
    else await sessions.open(row.id);
    if (isOpened && !hasRoom.matches) detail.focus();
  };
  if (isOpened) open();
  else moving = setTimeout(open, 60);
}
for (const list of Object.values(lists)) {
  list.addEventListener('open', ({ detail: row }) => show(row, true));
  list.addEventListener('move', ({ detail: row }) => show(row, false));
}
sessions.addEventListener('event', ({ detail: row }) => openView('live', [row.id]));

function leave() {
  if (document.activeElement === search.input) {
    search.input.blur();
    focusList();
  } else if (detail.isOpen || lists[place.view]?.active) {
    closeDetail();
    go({ item: [] });
    focusList();
  }
}
detail.addEventListener('close', leave);

const list = () => lists[place.view];
const pageOf = () => list()?.grid?.page ?? 5;
takeKeys({
  next: () => list()?.move(1),
  previous: () => list()?.move(-1),
  pageDown: () => list()?.move(pageOf()),
  pageUp: () => list()?.move(-pageOf()),
  first: () => list()?.move(-Infinity),
  last: () => list()?.move(Infinity),
  open: () => (detail.isOpen && list()?.active && detail.key.endsWith(String(list().active.id ?? list().active.seq)) ? detail.focus() : list()?.open()),
  close: leave,
  pause: () => list()?.toggle?.(),
  search: () => search.focus(),
  view: (key) => openView(VIEWS[Number(key) - 1]).then(focusList),
  copyEvent: () => detail.copyEvent(),
  copyLine: () => detail.copyLine(),
  theme: () => globalThis.changeTheme(),
  help: () => byID('help').showModal(),
});

search.addEventListener('search', ({ detail: query }) => searchFor(query));
search.addEventListener('done', focusList);
byID('theme').addEventListener('click', () => globalThis.changeTheme());
byID('help-button').addEventListener('click', () => byID('help').showModal());
byID('only-refused').addEventListener('click', () => searchFor(/(^|\s)bad:/.test(place.query) ? '' : 'bad:'));
sessions.select.addEventListener('change', () => go({ item: [sessions.select.value] }));

document.addEventListener('click', (event) => {
  closeMenus(event);
  const link = event.target.closest('a[data-query], a[data-view]');
  if (!link || event.ctrlKey || event.metaKey || event.shiftKey) return;
  event.preventDefault();
  if (link.dataset.view) openView(link.dataset.view);
  else searchFor(link.dataset.query, 'live');
});
document.addEventListener('keydown', closeMenus);
addEventListener('popstate', async () => {
  const next = read();
  const isOther = next.query !== place.query;
  Object.assign(place, next);
  search.query = place.query;
  if (isOther) await load();
  await arrive();
});

makeHelp();
makeClearing({ clearView: () => events.clear(), total: () => totals.events });
showExports(place.query);
search.query = place.query;
setInterval(() => totals.tick(), 500);
if (isOfRequests(place.query) && place.view === 'live') go({ view: 'requests' });
showView();
await Promise.all([loadSummary(), load()]);
await arrive();
