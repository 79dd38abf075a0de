import assert from 'node:assert/strict';
import { test } from 'node:test';

import { DRAIN } from './Support/Collector.js';
import { anAction, aSessionEnd, aSessionStart, aUUID, now } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowsOf, screenshot, until } from './Support/Page.js';

const inspector = useInspector();

/** A session of so many actions, evenly in its time; `background` is a stretch of their numbers. */
function aSession({ start, length, actions, end = 'ended', background = [0, 0], names = ['open_map', 'search', 'buy', 'checkout'] }) {
  const id = aUUID();
  const events = [aSessionStart(id, start)];
  for (let index = 0; index < actions; index++) {
    const timestamp = start + (length * (index + 1)) / (actions + 1);
    const isInBackground = index >= background[0] && index < background[1];
    events.push(anAction(names[index % names.length], { session: id, timestamp, isInBackground }));
  }
  if (end !== 'open') events.push(aSessionEnd(id, start + length, { crashed: end === 'crashed', duration: length }));
  return { id, events };
}

async function aDay() {
  const client = aUUID();
  const start = now() - 3600;
  const sessions = [
    aSession({ start, length: 300, actions: 12 }),
    aSession({ start: start + 400, length: 500, actions: 20, background: [8, 14] }),
    aSession({ start: start + 860, length: 240, actions: 9 }),
    aSession({ start: start + 1500, length: 120, actions: 6, end: 'crashed' }),
    aSession({ start: start + 3000, length: 200, actions: 10, end: 'open' }),
  ];
  for (const { events } of sessions) assert.equal((await inspector.collector.send(events, { client })).status, 200);
  return { client, start, sessions };
}

test('a client’s sessions are bars with their events, background, crash, gaps and overlaps', async () => {
  const { client, sessions } = await aDay();
  const page = await inspector.open({ at: `#sessions/${client}` });
  const option = ({ id }) => page.locator(`#session-${id}`);
  await option(sessions[4]).waitFor();
  assert.equal(await page.locator('.session-list [role=option]').count(), 5);
  await until(page, () => document.querySelectorAll('.session-list .ticks path').length >= 5);

  const [first, background, overlapping, crashed, open] = sessions.map(option);
  assert.equal(await first.locator('.background').count(), 0);
  assert.equal(await background.locator('.background').count(), 1);
  const marks = await background.locator('.ticks path[data-kind=UserAction]').getAttribute('d');
  assert.equal(marks.split('M').length - 1, 20);
  assert.equal(await crashed.locator('.crash').count(), 1);
  assert.equal(await first.locator('.crash').count(), 0);
  assert.match(await open.innerText(), /open/);
  assert.match(await overlapping.innerText(), /overlaps the session before/);
  assert.match(await background.innerText(), /1 min 40 s without a session before/);
  assert.match(await crashed.innerText(), /8 events, 2 min\s+crashed/);

  const width = async (bar) => (await bar.locator('.session-bar').boundingBox()).width;
  const ratio = (await width(background)) / (await width(first));
  assert.ok(Math.abs(ratio - 500 / 300) < 0.02, `bars have one scale: ${ratio}`);
  await page.getByRole('button', { name: 'Fit each' }).click();
  assert.ok(Math.abs((await width(background)) / (await width(first)) - 1) < 0.01, 'each over the whole width');
});

test('a session opens with its events, and an event from there', async () => {
  const { client, sessions } = await aDay();
  const page = await inspector.open({ at: `#sessions/${client}` });
  await page.locator(`#session-${sessions[1].id}`).click();
  await detailOf(page).getByRole('heading', { name: '22 events in 8 min 20 s' }).waitFor();
  assert.equal(await detailOf(page).locator('.session-events li').count(), 22);
  await screenshot(page, 'sessions');
  await detailOf(page).locator('.session-events a').nth(3).click();
  await detailOf(page).getByRole('heading', { name: 'buy' }).waitFor();
  assert.match(page.url(), /#live\//);
});

test('a session’s events are shown in the live list on request', async () => {
  const { client, sessions } = await aDay();
  const page = await inspector.open({ at: `#sessions/${client}/${sessions[3].id}` });
  await detailOf(page).getByRole('link', { name: 'Show in the live list' }).click();
  await until(page, () => document.querySelectorAll('#event-grid .grid-body .row:not([hidden])').length === 8);
  assert.equal(new URL(page.url()).searchParams.get('q'), `session:${sessions[3].id}`);
});

test('another client is chosen from the list', async () => {
  const day = await aDay();
  const other = aUUID();
  await inspector.collector.send(aSession({ start: now() - 60, length: 30, actions: 2 }).events, { client: other });
  const page = await inspector.open({ at: `#sessions/${day.client}` });
  await until(page, () => document.querySelectorAll('.session-list [role=option]').length === 5);
  await page.getByLabel('Client').selectOption(other);
  await until(page, () => document.querySelectorAll('.session-list [role=option]').length === 1);
  assert.match(page.url(), new RegExp(`#sessions/${other}`));
});

test('a session that goes on grows while the page is open', async () => {
  const client = aUUID();
  const { id, events } = aSession({ start: now() - 20, length: 10, actions: 3, end: 'open' });
  await inspector.collector.send(events, { client });
  const page = await inspector.open({ at: `#sessions/${client}` });
  await page.locator(`#session-${id}`).getByText('4 events').waitFor();
  await inspector.collector.send([anAction('later', { session: id })], { client });
  await page.locator(`#session-${id}`).getByText('5 events').waitFor();
});

test('the events of real sessions of kite host are found in their session', async () => {
  const start = { op: 'start' };
  await inspector.collector.host([start, { op: 'trackUserAction', name: 'alive', data: {} }, DRAIN, { op: 'crash' }]);
  await inspector.collector.host([start, { op: 'trackUserAction', name: 'again', data: {} }, DRAIN]);
  const page = await inspector.open({ query: 'name:alive' });
  await rowsOf(page).first().click();
  await detailOf(page).getByRole('link', { name: 'on the timeline' }).click();
  await page.locator('.session-list [aria-selected=true] .crash').waitFor();
});
