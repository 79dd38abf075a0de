import assert from 'node:assert/strict';
import { createHmac } from 'node:crypto';
import { beforeEach, test } from 'node:test';

import { anAction, anEvent, aRequest, KEY } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowsOf } from './Support/Page.js';

const inspector = useInspector();
beforeEach(() => inspector.clear());

const LIST = '#request-grid';
const openRequests = () => inspector.open({ at: '#requests' });

test('a request has its status, size, compression, events, duration, endpoint and attempt', async () => {
  const page = await openRequests();
  const request = aRequest(inspector.collector, [anAction('one'), anAction('two')]);
  await inspector.collector.sendRequest(request);
  const row = rowsOf(page, LIST).first();
  await row.waitFor();
  const [status, , events, size, took, fault, endpoint, attempt] = await row.locator('[role=gridcell]').allInnerTexts();
  assert.deepEqual([status, events, fault, attempt], ['200', '2', '', '1']);
  assert.match(size, new RegExp(`^(${request.body.length} B|[\\d.]+ kB) · [\\d.]+×$`));
  assert.match(took, /^[\d.]+ (µs|ms|s)$/);
  assert.equal(endpoint, inspector.collector.url.replace('https://', ''));
  await row.click();
  await detailOf(page).getByText('2 events, 2 new').waitFor();
  await detailOf(page).getByRole('rowheader', { name: 'Wicket-Request-Id' }).waitFor();
});

test('a wrong signature shows the signed text, both signatures and the mistake, never the key', async () => {
  const page = await openRequests();
  const request = aRequest(inspector.collector, [anAction('buy')], { change: { leavesHTTPS: true } });
  assert.equal((await inspector.collector.sendRequest(request)).status, 400);
  const row = rowsOf(page, LIST).first();
  await row.getByText('400').waitFor();
  await row.click();
  const detail = detailOf(page);
  await detail.getByText('Refused with 603').waitFor();
  assert.match(await detail.locator('.mistake').innerText(), /https/i);
  const signed = await detail.locator('.signed').innerText();
  assert.ok(signed.startsWith(`${inspector.collector.url.replace('https://', 'http://')}:1f8b08`), signed);
  assert.ok(signed.endsWith(`:${request.headers['Wicket-Timestamp']}:${request.headers['Wicket-Request-Id']}`), signed);
  const digests = await detail.locator('.digest').allInnerTexts();
  const text = [inspector.collector.url.replace('https://', 'http://'), request.body.toString('hex'),
    request.headers['Wicket-Timestamp'], request.headers['Wicket-Request-Id']].join(':');
  assert.deepEqual(digests, [createHmac('sha512', KEY).update(text).digest('hex'), request.headers['Wicket-Signature']]);
  assert.ok(!(await page.content()).includes(`>${KEY}<`));
});

test('a signature that no known mistake explains says so', async () => {
  const page = await openRequests();
  const request = aRequest(inspector.collector, [anAction('buy')]);
  request.headers['Wicket-Signature'] = '0'.repeat(128);
  await inspector.collector.sendRequest(request);
  await rowsOf(page, LIST).first().click();
  await detailOf(page).getByText('None of the known mistakes would have matched').waitFor();
});

test('a broken rule says which, and where in the body', async () => {
  const page = await openRequests();
  const bad = anAction('bad');
  bad.data.is_background_event = 'no';
  assert.equal((await inspector.collector.send([anAction('good'), bad])).status, 422);
  await rowsOf(page, LIST).first().click();
  const detail = detailOf(page);
  await detail.getByText('Refused with 101').waitFor();
  await detail.locator('.where').getByText('events[1].data.is_background_event').waitFor();
  assert.match(await detail.locator('.where pre').innerText(), /"is_background_event":"no"/);
  const link = detail.getByRole('link', { name: 'Body unpacked' });
  const body = await page.evaluate(async (href) => (await fetch(href)).json(), await link.getAttribute('href'));
  assert.equal(body.events[1].id, bad.id);
});

test('a timestamp that is off says by how much', async () => {
  const page = await openRequests();
  assert.notEqual((await inspector.collector.send([anEvent()], { change: { skew: -3600 } })).status, 200);
  await rowsOf(page, LIST).first().click();
  await detailOf(page).getByText(/The client’s clock is (1 h|59 min 59 s) behind the collector’s/).waitFor();
});

test('the refused ones are found by their mark, by a button, and counted', async () => {
  const { collector } = inspector;
  await collector.send([anAction('good')]);
  await collector.sendRequest(aRequest(collector, [anAction('buy')], { change: { leavesHTTPS: true } }));
  const page = await inspector.open({ query: 'bad:' });
  assert.match(page.url(), /#requests/);
  await rowsOf(page, LIST).getByText('400').waitFor();
  assert.equal(await rowsOf(page, LIST).count(), 1);
  await page.locator('#refused-badge', { hasText: /^1$/ }).waitFor();  // the counts come a moment after the rows
  await collector.sendRequest(aRequest(collector, [anAction('buy')], { change: { leavesHTTPS: true } }));
  await collector.send([anAction('good')]);
  await page.locator('#count-requests').getByText('4').waitFor();
  await rowsOf(page, LIST).nth(1).waitFor();
  await page.getByRole('button', { name: 'Only refused' }).click();
  await rowsOf(page, LIST).nth(3).waitFor();
});
