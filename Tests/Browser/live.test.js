import assert from 'node:assert/strict';
import { mkdtempSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { beforeEach, test } from 'node:test';

import { Collector } from './Support/Collector.js';
import { anAction, anEvent, aUUID } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { closePage, openPage, rowNamed, rowsOf, until } from './Support/Page.js';
import { Proxy } from './Support/Proxy.js';

const inspector = useInspector();
beforeEach(() => inspector.clear());

const named = (prefix, count) => Array.from({ length: count }, (_, index) => anAction(`${prefix}-${index}`));

test('an empty list tells how to send the first event', async () => {
  const page = await inspector.open();
  await page.getByRole('heading', { name: 'No events yet' }).waitFor();
  const command = await page.locator('#live .command pre').innerText();
  assert.match(command, /kite host --state state --key KEY --endpoint https:\/\/127\.0\.0\.1:\d+\/v4\/events --ca-file/);
});

test('a stored event appears with its type, name, time, session and client', async () => {
  const { collector } = inspector;
  const page = await inspector.open();
  const [client, session] = [aUUID(), aUUID()];
  const timestamp = new Date().setHours(12, 34, 56, 789) / 1000;
  await collector.send([anAction('buy', { session, timestamp })], { client });
  const row = rowNamed(page, 'buy');
  await row.waitFor();
  const shown = ['UserAction', 'buy', '12:34:56.789', session.slice(0, 8), client.slice(0, 8), '·'];
  assert.deepEqual(await row.locator('[role=gridcell]').allInnerTexts(), shown);
});

test('identifiers are whole where there is room for them', async () => {
  const { collector } = inspector;
  const page = await inspector.open();
  const client = aUUID();
  await collector.send([anAction('buy')], { client });
  const shown = rowNamed(page, 'buy').locator('.cell-client');
  await shown.getByText(client.slice(0, 8), { exact: true }).waitFor();
  await page.setViewportSize({ width: 2560, height: 900 });
  await shown.getByText(client, { exact: true }).waitFor();
  await page.setViewportSize({ width: 1440, height: 900 });
  await shown.getByText(client.slice(0, 8), { exact: true }).waitFor();
});

test('an event that was there before the page is shown as well, newest first', async () => {
  await inspector.collector.send(named('old', 3));
  const page = await inspector.open();
  await rowNamed(page, 'old-2').waitFor();
  const names = await page.locator('#event-grid .row:not([hidden]) .cell-name[role=gridcell]').allInnerTexts();
  const sorted = await rowsOf(page).evaluateAll((rows) => rows
    .sort((a, b) => a.getAttribute('aria-rowindex') - b.getAttribute('aria-rowindex'))
    .map((row) => row.querySelector('.cell-name').textContent));
  assert.equal(names.length, 3);
  assert.deepEqual(sorted, ['old-2', 'old-1', 'old-0']);
});

test('an event that was received again says how often, while the page is open', async () => {
  const event = anAction('twice');
  await inspector.collector.send([event]);
  const page = await inspector.open();
  const cell = rowNamed(page, 'twice').locator('.cell-duplicates');
  await cell.getByText('·').waitFor();
  await inspector.collector.send([event]);
  await cell.getByText('1').waitFor();
  await inspector.collector.send([event]);
  await cell.getByText('2').waitFor();
  await page.locator('#count-duplicates').getByText('2').waitFor();
});

test('a paused list stands still and says how many wait, until it follows again', async () => {
  const page = await inspector.open();
  await inspector.collector.send(named('before', 2));
  await rowNamed(page, 'before-1').waitFor();
  await page.getByRole('button', { name: 'Following' }).click();
  await inspector.collector.send(named('after', 3));
  await page.getByRole('button', { name: '3 new' }).waitFor();
  assert.equal(await rowsOf(page).count(), 2);
  await page.getByRole('button', { name: '3 new' }).click();
  await rowNamed(page, 'after-2').waitFor();
  await page.getByRole('button', { name: 'Following' }).waitFor();
  assert.equal(await rowsOf(page).count(), 5);
});

test('a list that was scrolled does not move under the reader', async () => {
  await inspector.collector.send(named('row', 200));
  const page = await inspector.open();
  await rowNamed(page, 'row-199').waitFor();
  await page.locator('#event-grid').evaluate((grid) => (grid.scrollTop = 1500));
  const seen = rowNamed(page, 'row-140');
  await seen.waitFor();
  const { y } = await seen.boundingBox();
  await inspector.collector.send(named('late', 7));
  await page.getByRole('button', { name: '7 new' }).waitFor();
  assert.equal((await seen.boundingBox()).y, y);
});

test('older events are read when the list is scrolled towards them', async () => {
  for (let batch = 0; batch < 3; batch++) await inspector.collector.send(named(`batch${batch}`, 500));
  const page = await inspector.open();
  await page.getByText('the newest 200 events').waitFor();
  await until(page, () => {
    const grid = document.querySelector('#event-grid');
    grid.scrollTop = grid.scrollHeight;
    return [...grid.querySelectorAll('.cell-name')].some((cell) => cell.textContent === 'batch0-0');
  });
  await page.locator('#live-note').getByText('1,500 events').waitFor();
});

test('after a lost connection nothing is missing', async () => {
  const proxy = await Proxy.start();
  try {
    const page = await inspector.open({ proxy: { server: proxy.address, bypass: '<-loopback>' } });
    await inspector.collector.send([anAction('before')]);
    await rowNamed(page, 'before').waitFor();
    proxy.cut();
    await page.locator('#connection[data-state=lost]').waitFor();
    await inspector.collector.send([anAction('meanwhile'), anEvent({ type: 'Orders' })]);
    proxy.mend();
    await page.locator('#connection[data-state=live]').waitFor();
    await rowNamed(page, 'meanwhile').waitFor();
    await page.locator('#count-events').getByText('3').waitFor();
    assert.equal(await rowsOf(page).count(), 3);
    await page.getByRole('link', { name: 'Requests' }).click();
    await rowsOf(page, '#request-grid').nth(1).waitFor();
  } finally {
    proxy.end();
  }
});

test('a collector that was started anew is found again by its page when the token is the same', async () => {
  const folder = mkdtempSync(join(tmpdir(), 'kite-browser-'));
  const options = ['--token-file', join(folder, 'token')];
  const first = await Collector.start({ folder, options });
  await first.send([anAction('before')]);
  const page = await openPage(inspector.browser, first);
  await first.stop();
  await page.locator('#connection[data-state=lost]').waitFor();
  const second = await Collector.start({ folder, options, inspect: new URL(first.page).host });
  await page.locator('#connection[data-state=live]').waitFor();
  await second.send([anAction('after')]);
  await rowNamed(page, 'after').waitFor();
  assert.equal(await rowsOf(page).count(), 2);
  await closePage(page);
  await second.end();
});

test('a collector with another token says that the address is another one', async () => {
  const first = await Collector.start();
  const page = await openPage(inspector.browser, first);
  await first.end();
  await page.locator('#connection[data-state=lost]').waitFor();
  const second = await Collector.start({ inspect: new URL(first.page).host });
  await page.locator('#connection[data-state=refused]').waitFor();
  assert.match(await page.locator('#connection').getAttribute('title'), /the address that kite collect printed/);
  await closePage(page);
  await second.end();
});
