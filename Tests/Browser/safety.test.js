import assert from 'node:assert/strict';
import { test } from 'node:test';

import { anAction, anEvent, aSessionStart, aUUID, now } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowNamed, rowsOf } from './Support/Page.js';

const inspector = useInspector();
const MARKUP = '<img src=x onerror="globalThis.isBroken = true">';

const isBroken = (page) => page.evaluate(() => globalThis.isBroken === true || document.querySelector('img, main script') !== null);

test('markup in an event is text wherever it is shown', async () => {
  const session = aUUID();
  const client = `${MARKUP}-client`.replaceAll(/[^\x20-\x7e]/g, '');
  const info = { [MARKUP]: MARKUP, plan: MARKUP };
  await inspector.collector.send([
    aSessionStart(session, now() - 10), anAction(MARKUP, { session, info: { [MARKUP]: [MARKUP, { deep: MARKUP }] } }),
    anEvent({ type: MARKUP, info, data: { [MARKUP]: MARKUP } }),
  ], { client });
  const page = await inspector.open();
  await rowNamed(page, MARKUP).first().waitFor();
  await page.locator('.cell-name').getByText(MARKUP).first().click();
  await detailOf(page).getByRole('heading', { name: MARKUP }).waitFor();
  await page.locator('.cell-kind').getByText(MARKUP).first().click();
  await detailOf(page).locator('.values').getByText(MARKUP).first().waitFor();
  assert.equal(await isBroken(page), false);
  await page.getByRole('link', { name: 'Sessions' }).click();
  await page.locator('.session-list [role=option]').first().click();
  await detailOf(page).locator('.session-events').getByText(MARKUP).waitFor();
  await page.getByRole('link', { name: /Requests/ }).click();
  await rowsOf(page, '#request-grid').first().click();
  await detailOf(page).locator('.facts').getByText(MARKUP).first().waitFor();
  assert.equal(await isBroken(page), false);
});

test('markup in a search is text', async () => {
  const page = await inspector.open({ query: `name:"${MARKUP.replaceAll('"', '')}"` });
  await page.locator('#connection[data-state=live]').waitFor();
  assert.equal(await isBroken(page), false);
});

test('the page’s policy forbids scripts and styles in the markup, and everything from elsewhere', async () => {
  const page = await inspector.open();
  const answer = await page.request.get(new URL(page.url()).origin);
  const policy = answer.headers()['content-security-policy'];
  for (const rule of ["default-src 'none'", "script-src 'self'", "style-src 'self'", "base-uri 'none'", "form-action 'none'", "frame-ancestors 'none'"]) {
    assert.ok(policy.includes(rule), `${rule} in ${policy}`);
  }
  assert.ok(!/unsafe|http|\*/.test(policy), policy);
  const markup = await answer.text();
  assert.ok(!/ style=| on\w+=|<style|<script(?![^>]* src=)|https?:/.test(markup));
});

test('the token leaves the address, and without it nothing is shown', async () => {
  const page = await inspector.open();
  assert.equal(new URL(page.url()).searchParams.get('token'), null);
  assert.equal(await page.evaluate(() => document.cookie), '');
  const { origin } = new URL(page.url());
  for (const path of ['/', '/main.js', '/api/summary', '/api/events']) {
    assert.equal((await fetch(origin + path, { redirect: 'manual' })).status, 401, path);
  }
});

test('a very long name and a very deep value neither break nor slow the page', async () => {
  let deep = 'bottom';
  for (let level = 0; level < 200; level++) deep = [deep];
  await inspector.collector.send([anEvent({ type: 'Deep', data: { deep, long: 'x'.repeat(300_000), many: Array.from({ length: 20_000 }, (_, index) => index) } })]);
  const page = await inspector.open({ query: 'type:Deep' });
  await rowsOf(page).first().click();
  await detailOf(page).getByRole('button', { name: /further lines/ }).waitFor();
  const width = await detailOf(page).evaluate((pane) => pane.scrollWidth - pane.clientWidth);
  assert.ok(width <= 1, 'the pane does not scroll sideways');
});
