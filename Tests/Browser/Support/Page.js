// The page in a real browser, which keeps every error, every violation of the page's policy and every long task.

import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

import { ROOT } from './Collector.js';

export const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';
const SCREENSHOTS = join(ROOT, 'build/screenshots');

/** Containers and continuous integration run as root, where Chromium's own sandbox does not start. */
export const ROOT_ARGUMENTS = process.getuid?.() === 0 ? ['--no-sandbox'] : [];

export const openBrowser = () => chromium.launch({ executablePath: CHROMIUM, args: ROOT_ARGUMENTS });

/** Runs in the page before its own scripts. */
function watch() {
  globalThis.watched = { violations: [], shifts: [] };
  document.addEventListener('securitypolicyviolation', (event) =>
    globalThis.watched.violations.push(`${event.violatedDirective} ${event.blockedURI} ${event.sourceFile ?? ''}`));
  new PerformanceObserver((list) => {
    for (const entry of list.getEntries()) if (!entry.hadRecentInput) globalThis.watched.shifts.push(entry.value);
  }).observe({ type: 'layout-shift', buffered: true });
}

/**
 * Opens the inspector's page and waits until it is live.
 * @param {{at?: string, query?: string, width?: number, height?: number, colorScheme?: 'light'|'dark'}} options
 */
export async function openPage(browser, collector, { at = '', query = '', width = 1440, height = 900, colorScheme = 'light', ...more } = {}) {
  const context = await browser.newContext({
    viewport: { width, height }, colorScheme, reducedMotion: 'reduce', permissions: ['clipboard-read', 'clipboard-write'], ...more,
  });
  const page = await context.newPage();
  page.setDefaultTimeout(60_000);
  page.errors = [];
  page.requested = [];
  page.on('pageerror', (error) => page.errors.push(error.stack ?? error.message));
  page.on('request', (request) => page.requested.push(request.url()));
  await page.addInitScript(watch);
  await page.goto(collector.page + (query ? `&q=${encodeURIComponent(query)}` : '') + at);
  await page.locator('#connection[data-state=live]').waitFor();
  return page;
}

export const closePage = (page) => page.context().close();

/** The rows of a list that are drawn, top to bottom. */
export const rowsOf = (page, list = '#event-grid') => page.locator(`${list} .grid-body .row:not([hidden])`);

/** The row of that name. */
export const rowNamed = (page, name) => rowsOf(page).filter({ has: page.getByText(name, { exact: true }) });

export const detailOf = (page) => page.locator('#detail');

export function screenshot(page, name) {
  mkdirSync(SCREENSHOTS, { recursive: true });
  return page.screenshot({ path: join(SCREENSHOTS, `${name}.png`) });
}

/** Waits until what the function gives, called in the page, is so. */
export const until = (page, predicate, argument) => page.waitForFunction(predicate, argument, { polling: 'raf' });
