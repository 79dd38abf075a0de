import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { test } from 'node:test';

import { anAction, anEvent, aRequest, aSessionEnd, aSessionStart, aUUID, now } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowsOf, screenshot, until } from './Support/Page.js';

const AXE = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const NAMES = ['open_map', 'route_export_completed', 'search', 'checkout', 'layer_toggled', 'buy'];

const client = aUUID();
const session = aUUID();

/** The user info changes twice while the session lasts. */
const infoOf = (index) => ({
  country: 'NZ', app_version: index < 30 ? '12.4.1' : '12.5.0', is_free: index < 40, device: { language: 'en-NZ', platform: 'Phone15,2' },
  experiment: { onboarding_v3: 2, route_planner: 1 }, ...(index < 40 ? {} : { campaign_id: 542370539 }),
});

const INFO = { screen: 'route_export_sheet', format: 'gpx', quality: 0.12, is_offline_map: true, layer_name: 'Winter Contours Plus' };

function aDay(start) {
  return Array.from({ length: 48 }, (_, index) => {
    const [timestamp, userInfo] = [start + 12 * index, infoOf(index)];
    if (index % 13 === 5) return anEvent({ type: 'Purchase', timestamp, info: userInfo, data: { price: 9.5, items: 3 } });
    const isInBackground = index > 20 && index < 26;
    return anAction(NAMES[index % NAMES.length], { session, timestamp, isInBackground, userInfo, info: { ...INFO, points: 3853 + index } });
  });
}

const inspector = useInspector(async (collector) => {
  const start = now() - 600;
  const events = [aSessionStart(session, start), ...aDay(start), aSessionEnd(session, start + 590, { crashed: true, duration: 590 })];
  for (let first = 0; first < events.length; first += 4) {
    if (first === 24) await collector.ask('/api/faults', { method: 'POST', body: JSON.stringify({ fault: 'status:503x1' }) });
    if (first === 24) await collector.send(events.slice(first, first + 4), { client });
    if (first === 36) await collector.sendRequest(aRequest(collector, [anAction('buy')], { client, change: { leavesHTTPS: true } }));
    await collector.send(events.slice(first, first + 4), { client });
  }
  await collector.send(events.slice(45, 47), { client });
});

const refusedRequest = async () => (await inspector.collector.ask('/api/requests?query=bad:')).requests[0].seq;

/** Waits until the place's list, and what is open in it, are there. */
async function arrived(page) {
  await until(page, () => document.querySelector('#count-refused').textContent === '1');
  await until(page, () => {
    const { view, detail } = document.querySelector('main').dataset;
    const isOpen = location.hash.split('/').length > 1;
    if (isOpen && !(detail && document.querySelector('#detail h2'))) return false;
    return view === 'faults' || document.querySelector(`#${view} .row, #${view} [role=option]`);
  });
}

const PLACES = {
  live: () => '#live',
  detail: async () => `#live/${(await inspector.collector.ask('/api/events?query=name:layer_toggled')).events[1].id}`,
  sessions: () => `#sessions/${client}/${session}`,
  refused: async () => `#requests/${await refusedRequest()}`,
  faults: () => '#faults',
};

/** What the checker for accessibility finds, in a line each. */
async function findings(page) {
  await page.evaluate(`(() => { const module = undefined; ${AXE}; window.axe ??= axe; })()`);
  const { violations } = await page.evaluate(() => globalThis.axe.run(document, { resultTypes: ['violations'] }));
  return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ target, failureSummary }) => `${target} ${failureSummary}`).join(' | ')}`);
}

for (const colorScheme of ['light', 'dark']) {
  for (const [name, placeOf] of Object.entries(PLACES)) {
    test(`the checker for accessibility finds nothing in ${name}, ${colorScheme}`, async () => {
      const page = await inspector.open({ at: await placeOf(), colorScheme });
      await arrived(page);
      await screenshot(page, `${name}-${colorScheme}`);
      assert.deepEqual(await findings(page), []);
    });
  }
}

test('the checker finds nothing in the dialogs, the menu and the empty list', async () => {
  const page = await inspector.open();
  await page.keyboard.press('?');
  assert.deepEqual(await findings(page), []);
  await page.keyboard.press('Escape');
  await page.getByRole('button', { name: 'Clear…' }).click();
  assert.deepEqual(await findings(page), []);
  await page.keyboard.press('Escape');
  await page.locator('#export summary').click();
  assert.deepEqual(await findings(page), []);
  const empty = await inspector.open({ query: 'name:nobody' });
  await empty.getByRole('heading', { name: 'Nothing found' }).waitFor();
  assert.deepEqual(await findings(empty), []);
});

for (const width of [375, 768, 1024, 1440, 2560]) {
  test(`at ${width} pixels nothing is cut off, and no view scrolls sideways`, async () => {
    for (const placeOf of Object.values(PLACES)) {
      const page = await inspector.open({ at: await placeOf(), width, height: width < 800 ? 780 : 1000 });
      await arrived(page);
      const wide = await page.evaluate(() => [document.documentElement, ...document.querySelectorAll('.view:not([hidden]), .view:not([hidden]) .grid, .sessions-body, .faults-body, #detail, .top')]
        .filter((element) => element.clientWidth > 0 && element.scrollWidth > element.clientWidth + 1)
        .map((element) => `${element.id || element.className} ${element.scrollWidth} > ${element.clientWidth}`));
      assert.deepEqual(wide, []);
      const outside = await page.evaluate(() => [...document.querySelectorAll('button, a, input, select, summary')]
        .filter((element) => element.checkVisibility() && !element.closest('.menu-items, .skip, .search-terms') && !element.matches('.skip'))
        .filter((element) => element.getBoundingClientRect().right > innerWidth + 1).map((element) => element.textContent || element.id));
      assert.deepEqual(outside, []);
      await inspector.closePages();
    }
  });
}

test('narrow, the detail lies over the list and leads back to it', async () => {
  const page = await inspector.open({ width: 375, height: 780 });
  await rowsOf(page).first().waitFor();
  await screenshot(page, 'narrow');
  await rowsOf(page).first().click();
  await detailOf(page).locator('h2').waitFor();
  assert.equal(await page.locator('#event-grid').isVisible(), false);
  await page.getByRole('button', { name: 'Close the detail' }).click();
  await page.locator('#event-grid').waitFor();
  assert.equal(await page.locator('#event-grid').isVisible(), true);
});

test('the theme follows the system, and the button’s choice outlives a reload', async () => {
  const colour = (page) => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const [light, dark] = [await inspector.open({ colorScheme: 'light' }), await inspector.open({ colorScheme: 'dark' })];
  const [lightColour, darkColour] = [await colour(light), await colour(dark)];
  assert.notEqual(lightColour, darkColour);
  await light.getByRole('button', { name: 'Change between light and dark' }).click();
  assert.equal(await colour(light), darkColour);
  await light.reload();
  assert.equal(await colour(light), darkColour);
});

test('nothing moves where motion is unwanted', async () => {
  const page = await inspector.open();
  await rowsOf(page).first().waitFor();
  assert.equal(await page.evaluate(() => document.getAnimations().length), 0);
});
