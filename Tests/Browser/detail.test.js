import assert from 'node:assert/strict';
import { test } from 'node:test';

import { DRAIN } from './Support/Collector.js';
import { anAction, anEvent, aUUID } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowNamed, rowsOf } from './Support/Page.js';

const inspector = useInspector();

const pasted = (page) => page.evaluate(() => navigator.clipboard.readText());

async function open(page, name) {
  await rowNamed(page, name).click();
  await detailOf(page).getByRole('heading', { name, exact: true }).waitFor();
}

test('an event is shown as readable JSON', async () => {
  await inspector.collector.send([anAction('tree', { info: { price: 9.5, items: ['a', { deep: null }], gift: true, none: {} } })]);
  const page = await inspector.open();
  await open(page, 'tree');
  const text = await detailOf(page).locator('.json').innerText();
  const data = JSON.parse(text);
  assert.deepEqual(data.action_info, { price: 9.5, items: ['a', { deep: null }], gift: true, none: {} });
  assert.ok(text.split('\n').length > 12, 'one value a line');
});

test('the user info says what changed since that client’s event before', async () => {
  const client = aUUID();
  const before = { country: 'NZ', plan: 'free', device: { language: 'en' }, beta: true };
  const now = { country: 'NZ', plan: 'yearly', device: { language: 'mi' }, campaign: 7 };
  await inspector.collector.send([anAction('first', { info: {} }), ], { client: aUUID() });
  await inspector.collector.send([anEvent({ type: 'Before', info: before })], { client });
  await inspector.collector.send([anEvent({ type: 'Stranger', info: { country: 'DE' } })], { client: aUUID() });
  await inspector.collector.send([anEvent({ type: 'Changed', info: now })], { client });
  const page = await inspector.open();
  await rowsOf(page).filter({ hasText: 'Changed' }).click();
  const info = detailOf(page).locator('.user-info');
  await info.getByText('4 values changed since the client’s event before').waitFor();
  const rows = await info.locator('tr[data-change]').evaluateAll((all) => all.map((row) => [row.dataset.change, ...[...row.cells].slice(0, 2).map((cell) => cell.textContent)]));
  const changed = new Map(rows.map(([change, path, value]) => [path, `${change} ${value}`]));
  assert.equal(changed.get('plan'), 'changed free yearly');
  assert.equal(changed.get('device.language'), 'changed en mi');
  assert.equal(changed.get('campaign'), 'added 7');
  assert.equal(changed.get('beta'), 'removed true');
  assert.equal(changed.get('country'), 'same NZ');

  await rowsOf(page).filter({ hasText: 'Before' }).click();
  await info.getByText('the client’s first event').waitFor();
});

test('an event is copied as JSON', async () => {
  const event = anAction('copied', { info: { price: 9.5 } });
  await inspector.collector.send([event]);
  const page = await inspector.open();
  await open(page, 'copied');
  await page.getByRole('button', { name: 'Copy as JSON' }).click();
  await page.getByText('Copied the event as JSON').first().waitFor();
  const { request_timestamp: requestTimestamp, ...copied } = JSON.parse(await pasted(page));
  assert.deepEqual(copied, event);
  assert.equal(typeof requestTimestamp, 'number');
});

test('the line that is copied makes kite host record such an event again', async () => {
  const { collector } = inspector;
  await collector.host([{ op: 'start' }, { op: 'trackUserAction', name: 'original', data: { price: 9.5, items: 3 } }, DRAIN]);
  const page = await inspector.open({ query: 'name:original' });
  await open(page, 'original');
  const [id] = await detailOf(page).locator('.facts code').allInnerTexts();
  await page.getByRole('button', { name: 'Copy as kite host line' }).click();
  await page.getByText('Copied the line for kite host').first().waitFor();
  const line = JSON.parse(await pasted(page));
  await collector.host([{ op: 'start' }, line, DRAIN]);
  await page.getByRole('button', { name: '1 new' }).click();
  await rowsOf(page).nth(1).waitFor();
  const { events } = await collector.ask('/api/events?query=name:original');
  const again = await Promise.all(events.map((event) => collector.ask(`/api/events/${event.id}`)));
  assert.equal(again.length, 2);
  assert.deepEqual(again[0].data.action_info, again[1].data.action_info);
  assert.notEqual(again.find((event) => event.id !== id), undefined);
});

test('an event of which kite host knows no line offers none', async () => {
  await inspector.collector.send([anEvent({
    type: 'Install', info: {}, data: {
      document_directory_creation_timestamp: null, installed_before_kite: false, keychain_id_status: 'just_generated',
      new_app_version: '1.0', userdefault_id_status: 'just_generated',
    },
  })]);
  const page = await inspector.open({ query: 'type:Install' });
  await rowsOf(page).first().click();
  await detailOf(page).getByRole('button', { name: 'Copy as JSON' }).waitFor();
  assert.equal(await page.getByRole('button', { name: 'Copy as kite host line' }).isDisabled(), true);
});

test('what is open is in the address, so that it can be shared', async () => {
  const id = aUUID();
  await inspector.collector.send([anAction('shared', { id })]);
  const page = await inspector.open();
  await open(page, 'shared');
  assert.equal(new URL(page.url()).hash, `#live/${id}`);
  const other = await inspector.open({ at: `#live/${id}` });
  await detailOf(other).getByRole('heading', { name: 'shared' }).waitFor();
  await other.locator('.row[aria-selected=true]').getByText('shared').waitFor();
});
