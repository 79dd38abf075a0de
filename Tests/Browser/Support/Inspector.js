// What every test file uses: a collector, a browser, and pages that are checked when a test ends.

import assert from 'node:assert/strict';
import { after, afterEach, before } from 'node:test';

import { Collector } from './Collector.js';
import { closePage, openBrowser, openPage } from './Page.js';

const MOST_SHIFT = 0.02; // the score of the layout moving by itself; 0.1 counts as good elsewhere

/** No error, nothing that the page's policy forbids, nothing loaded from elsewhere, nothing that jumped. */
async function check(page, collector) {
  const { violations, shifts } = await page.evaluate(() => globalThis.watched);
  assert.deepEqual(page.errors, []);
  assert.deepEqual(violations, []);
  const { origin } = new URL(collector.page);
  assert.deepEqual(page.requested.filter((url) => new URL(url).origin !== origin), []);
  const shift = shifts.reduce((sum, value) => sum + value, 0);
  assert.ok(shift <= MOST_SHIFT, `the layout moved by itself: ${shift}`);
}

/**
 * Starts a collector and a browser for the tests of a file.
 * @param {(collector: Collector) => Promise<any>} prepare sends what all of them need
 */
export function useInspector(prepare = async () => {}) {
  const inspector = { pages: [] };
  before(async () => {
    inspector.collector = await Collector.start();
    inspector.browser = await openBrowser();
    await prepare(inspector.collector);
  });
  /** Checks and closes the pages; a test that opens many closes them itself. */
  inspector.closePages = async () => {
    for (const page of inspector.pages.splice(0)) {
      await check(page, inspector.collector);
      await closePage(page);
    }
  };
  afterEach(() => inspector.closePages());
  after(async () => {
    await inspector.browser?.close();
    await inspector.collector?.end();
  });
  inspector.open = async (options) => {
    const page = await openPage(inspector.browser, inspector.collector, options);
    inspector.pages.push(page);
    return page;
  };
  inspector.clear = () => inspector.collector.ask('/api/events', { method: 'DELETE' });
  return inspector;
}
