import assert from 'node:assert/strict';
import { test } from 'node:test';

import { anAction, anEvent } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { rowNamed, rowsOf, until } from './Support/Page.js';

const inspector = useInspector((collector) => collector.send([
  anAction('buy', { info: { price: 12 } }), anAction('buy', { info: { price: 3 } }), anAction('sell'), anEvent({ type: 'Orders', data: { price: 20 } }),
]));

const shows = (page, count) =>
  until(page, (wanted) => document.querySelectorAll('#event-grid .grid-body .row:not([hidden])').length === wanted, count);

async function search(page, text) {
  await page.getByRole('searchbox').fill(text);
  await page.getByRole('searchbox').press('Enter');
}

test('a search shows what fits, and stands in the address', async () => {
  const page = await inspector.open();
  await shows(page, 4);
  await search(page, 'type:UserAction name:buy');
  await shows(page, 2);
  assert.equal(new URL(page.url()).searchParams.get('q'), 'type:UserAction name:buy');
  await search(page, 'data.price:>9');
  await rowsOf(page).getByText('Orders').waitFor();
  await shows(page, 1);
  await search(page, 'data.action_info.price:>9');
  await rowNamed(page, 'buy').waitFor();
  await shows(page, 1);
  await search(page, '-type:UserAction');
  await rowsOf(page).getByText('Orders').waitFor();
  await shows(page, 1);
});

test('an address with a search shows it', async () => {
  const page = await inspector.open({ query: 'name:sell' });
  await rowNamed(page, 'sell').waitFor();
  await shows(page, 1);
  assert.equal(await page.getByRole('searchbox').inputValue(), 'name:sell');
});

test('what arrives is shown only if it fits', async () => {
  const page = await inspector.open({ query: 'name:fresh' });
  await page.getByRole('heading', { name: 'Nothing found' }).waitFor();
  await inspector.collector.send([anAction('stale'), anAction('fresh')]);
  await rowNamed(page, 'fresh').waitFor();
  assert.equal(await rowsOf(page).count(), 1);
});

test('a wrong term is named beside the box, and the list stays', async () => {
  const page = await inspector.open({ query: 'name:buy' });
  await shows(page, 2);
  await search(page, 'data.price:>abc name:buy');
  const error = page.locator('#search-error');
  await error.waitFor();
  assert.match(await error.innerText(), /data\.price/);
  assert.equal(await page.getByRole('searchbox').getAttribute('aria-invalid'), 'true');
  await shows(page, 2);
  await search(page, 'name:sell');
  await error.waitFor({ state: 'hidden' });
  await shows(page, 1);
});

test('a term is taken from the list below the empty box', async () => {
  const page = await inspector.open();
  await page.getByRole('searchbox').click();
  await page.locator('#search-terms button').filter({ hasText: 'type:UserAction' }).click();
  await until(page, () => new URLSearchParams(location.search).get('q') === 'type:UserAction');
  await until(page, () => ![...document.querySelectorAll('#event-grid .grid-body .row:not([hidden])')].some((row) => row.textContent.includes('Orders')));
});

test('the way back leads through the searches of other views', async () => {
  const page = await inspector.open({ query: 'name:sell' });
  await shows(page, 1);
  await page.getByRole('link', { name: 'Sessions' }).click();
  await page.goBack();
  await page.locator('#live').waitFor();
  await shows(page, 1);
});
