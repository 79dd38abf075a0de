#!/usr/bin/env node
// Opens the inspector's page so many times, for who measures what that costs (scripts/inspector --pages).
//
//   node Tests/Browser/open_pages.js URL PAGES
//
// Prints "open" when all are live, reads a number, and prints "seen" when every page has so many events. In between nothing is
// attached to the browser: a debugger gets a copy of every message that a page receives, and that is no cost of the page.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { chromium } from 'playwright-core';

import { CHROMIUM, ROOT_ARGUMENTS, until } from './Support/Page.js';

const [url, count] = [process.argv[2], Number(process.argv[3])];
const profile = await mkdtemp(join(tmpdir(), 'kite-pages-'));
const browser = spawn(CHROMIUM, ['--headless', '--remote-debugging-port=0', `--user-data-dir=${profile}`, ...ROOT_ARGUMENTS, 'about:blank'],
  { stdio: ['ignore', 'ignore', 'pipe'] });
const ended = once(browser, 'exit');
process.on('exit', () => browser.kill());

/** Where the browser can be attached to. */
async function address() {
  for await (const line of createInterface({ input: browser.stderr })) {
    const [, found] = line.match(/^DevTools listening on (ws:.*)$/) ?? [];
    if (!found) continue;
    browser.stderr.resume(); // what else it says must not fill the pipe
    return found;
  }
  throw new Error('the browser ended');
}

async function attached(endpoint, task) {
  const connection = await chromium.connectOverCDP(endpoint);
  try {
    return await task(connection.contexts()[0]);
  } finally {
    await connection.close();
  }
}

try {
  const endpoint = await address();
  await attached(endpoint, async (context) => {
    for (let opened = 0; opened < count; opened++) {
      const page = opened === 0 ? context.pages()[0] : await context.newPage();
      await page.goto(url);
      await page.locator('#connection[data-state=live]').waitFor();
    }
  });
  console.log('open');
  const [events] = await once(createInterface({ input: process.stdin }), 'line');
  const text = `${new Intl.NumberFormat('en').format(Number(events))} events`;
  await attached(endpoint, (context) => Promise.all(context.pages().map((page) =>
    until(page, (expected) => document.querySelector('#live-note').textContent === expected, text))));
  console.log('seen');
} finally {
  browser.kill();
  await ended;
  await rm(profile, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 }); // its processes end one after the other
}
