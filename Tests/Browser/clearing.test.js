import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { beforeEach, test } from 'node:test';

import { anAction } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { rowNamed, rowsOf } from './Support/Page.js';

const inspector = useInspector();
beforeEach(async () => {
  await inspector.clear();
  await inspector.collector.send([anAction('buy', { info: { text: 'a "quoted", text' } }), anAction('buy'), anAction('sell')]);
});

const total = async () => (await inspector.collector.ask('/api/summary')).events;

test('clearing asks, and can be left alone', async () => {
  const page = await inspector.open();
  await rowNamed(page, 'sell').waitFor();
  await page.getByRole('button', { name: 'Clear…' }).click();
  const dialog = page.getByRole('dialog', { name: 'Clear what?' });
  await dialog.getByText('loses its 3 events').waitFor();
  assert.equal(await page.evaluate(() => document.activeElement.id), 'clear-cancel');
  await page.keyboard.press('Escape');
  await dialog.waitFor({ state: 'hidden' });
  assert.equal(await rowsOf(page).count(), 3);
  assert.equal(await total(), 3);
});

test('the view alone is cleared, and shows what arrives from then on', async () => {
  const page = await inspector.open();
  await rowNamed(page, 'sell').waitFor();
  await page.getByRole('button', { name: 'Clear…' }).click();
  await page.getByRole('button', { name: 'Clear this view' }).click();
  await page.getByText('View cleared').first().waitFor();
  assert.equal(await rowsOf(page).count(), 0);
  await inspector.collector.send([anAction('next')]);
  await rowNamed(page, 'next').waitFor();
  assert.equal(await rowsOf(page).count(), 1);
  assert.equal(await total(), 4);
});

test('the database is cleared for every page', async () => {
  const [page, other] = [await inspector.open(), await inspector.open()];
  await rowNamed(other, 'sell').waitFor();
  await page.getByRole('button', { name: 'Clear…' }).click();
  await page.getByRole('button', { name: 'Delete from the database' }).click();
  await page.getByText('Deleted 3 events').first().waitFor();
  await other.getByRole('heading', { name: 'No events yet' }).waitFor();
  await page.locator('#count-events').getByText('0').waitFor();
  assert.equal(await total(), 0);
});

test('what the search shows is exported in three formats', async () => {
  const page = await inspector.open({ query: 'name:buy' });
  await rowNamed(page, 'buy').first().waitFor();
  const texts = {};
  for (const format of ['ndjson', 'json', 'csv']) {
    await page.locator('#export summary').click();
    const download = page.waitForEvent('download');
    await page.getByRole('link', { name: new RegExp(`^${format}`, 'i') }).click();
    texts[format] = readFileSync(await (await download).path(), 'utf8');
  }
  const lines = texts.ndjson.trim().split('\n').map((line) => JSON.parse(line));
  assert.equal(lines.length, 2);
  assert.deepEqual(JSON.parse(texts.json).map(({ id }) => id), lines.map(({ id }) => id));
  assert.match(texts.csv, /^[a-z_,]+\r?\n/);
  for (const { id } of lines) assert.ok(texts.csv.includes(id));
  assert.equal(await page.locator('#export').getAttribute('open'), null);
});
