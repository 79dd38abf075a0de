import assert from 'node:assert/strict';
import { beforeEach, test } from 'node:test';

import { anAction } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { rowsOf } from './Support/Page.js';

const inspector = useInspector();
beforeEach(() => inspector.collector.ask('/api/faults', { method: 'DELETE' }));

const active = (page) => page.locator('.fault-list li');

async function add(page, title, argument, times) {
  await page.getByRole('radio', { name: title }).check();
  if (argument) await page.locator('#fault-argument').fill(argument);
  await page.locator('#fault-times').fill(String(times));
  await page.getByRole('button', { name: 'Add the fault' }).click();
}

test('the next requests get the status that was asked for, and what is left is seen everywhere', async () => {
  const page = await inspector.open({ at: '#faults' });
  await page.getByText('None: every request is handled as usual.').waitFor();
  await add(page, 'Answer a status', '503', 2);
  assert.match(await active(page).innerText(), /status:503\s+the next 2 requests/);
  await page.getByRole('link', { name: /Live/ }).first().click();
  await page.locator('#faults-badge').getByText('2').waitFor();
  assert.equal((await inspector.collector.send([anAction('lost')])).status, 503);
  await page.locator('#faults-badge').getByText('1').waitFor();
  assert.equal((await inspector.collector.send([anAction('lost')])).status, 503);
  await page.locator('#faults-badge').waitFor({ state: 'hidden' });
  assert.equal((await inspector.collector.send([anAction('kept')])).status, 200);
  await page.getByRole('link', { name: /Requests/ }).click();
  await rowsOf(page, '#request-grid').filter({ hasText: 'status:503' }).nth(1).waitFor();
});

test('delay, reset and truncation are faults as well', async () => {
  const page = await inspector.open({ at: '#faults' });
  await add(page, 'Reset the connection', '', 1);
  await active(page).nth(0).getByText('reset').waitFor();
  await add(page, 'Break off the answer', '', 1);
  await active(page).nth(1).getByText('truncate').waitFor();
  await add(page, 'Answer late', '30', 1);
  await active(page).nth(2).getByText('delay:30').waitFor();
  await assert.rejects(inspector.collector.send([anAction('reset')]), /socket hang up|ECONNRESET/);
  await active(page).nth(2).waitFor({ state: 'detached' });
});

test('a fault that is none is refused with the reason', async () => {
  const page = await inspector.open({ at: '#faults' });
  await add(page, 'Answer a status', '9999', 1);
  await page.getByRole('alert').getByText('is no fault').waitFor();
  assert.equal(await active(page).count(), 0);
});

test('all faults are removed at once', async () => {
  const page = await inspector.open({ at: '#faults' });
  await add(page, 'Answer a status', '500', 9);
  await active(page).waitFor();
  await page.getByRole('button', { name: 'Remove all' }).click();
  await page.getByText('None: every request is handled as usual.').waitFor();
  assert.equal((await inspector.collector.send([anAction('kept')])).status, 200);
});
