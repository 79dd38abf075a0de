import assert from 'node:assert/strict';
import { test } from 'node:test';

import { anAction, aUUID } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { until } from './Support/Page.js';

const EVENTS = Number(process.env.KITE_PAGE_EVENTS ?? 200_000);
const LONGEST_TASK = 50; // milliseconds
const BATCH = 500;
const PASSES = 5;

const inspector = useInspector();

async function send(count, name) {
  const client = aUUID();
  for (let sent = 0; sent < count; sent += BATCH) {
    const events = Array.from({ length: BATCH }, (_, index) => anAction(`${name}-${sent + index}`));
    const { status } = await inspector.collector.send(events, { client });
    assert.equal(status, 200);
  }
}

/**
 * In the page: scrolls by the wheel's steps, by screens, and by the thumb of the scroll bar, there and back.
 * Gives the longest task of each step, 0 where none was long, and how many different rows were on top.
 */
async function scroll() {
  const grid = document.querySelector('#event-grid');
  const frame = () => new Promise(requestAnimationFrame);
  grid.scrollTop = 0;
  await frame();
  await frame();
  const tasks = [];
  const observer = new PerformanceObserver((list) => tasks.push(...list.getEntries()));
  observer.observe({ entryTypes: ['longtask'] });
  const names = new Set();
  const begun = [];
  const distance = grid.scrollHeight - grid.clientHeight;
  for (const [step, steps] of [[90, 300], [700, 200], [distance / 150, 149], [-distance / 60, 59]]) {
    for (let index = 0; index < steps; index++) {
      begun.push(performance.now());
      grid.scrollTop += step;
      await frame();
      names.add(grid.querySelector('.grid-body .row:not([hidden]) .cell-name')?.textContent);
    }
  }
  await frame();
  tasks.push(...observer.takeRecords());
  const longest = begun.map(() => 0);
  for (const { startTime, duration } of tasks) {
    const step = Math.max(0, begun.findLastIndex((time) => time <= startTime + duration));
    longest[step] = Math.max(longest[step], duration);
  }
  return { longest, names: names.size };
}

const count = (number) => new Intl.NumberFormat('en').format(number);

test(`of ${EVENTS} events none is missing on the page, and it scrolls through them without a task over ${LONGEST_TASK} ms`, { timeout: 400_000 }, async () => {
  const page = await inspector.open();
  page.setDefaultTimeout(200_000);
  await send(EVENTS, 'event');
  await until(page, (text) => document.querySelector('#live-note').textContent === `${text} events`, count(EVENTS));
  await until(page, (text) => document.querySelector('#count-events').textContent === text, count(EVENTS));
  assert.equal(await page.locator('#event-grid').getAttribute('aria-rowcount'), String(EVENTS + 1));

  // A task's length counts the time that other processes had the processor. A step that is slow by itself is slow every time.
  let longest = [Infinity];
  for (let pass = 0; pass < PASSES && Math.max(...longest) > LONGEST_TASK; pass++) {
    const found = await page.evaluate(scroll);
    assert.ok(found.names > 100, 'other rows were drawn while it scrolled');
    longest = found.longest.map((duration, step) => Math.min(duration, longest[step] ?? Infinity));
  }
  const most = Math.max(...longest);
  console.log(`scrolled ${longest.length} steps over ${count(EVENTS)} rows: longest task ${most ? `${most} ms` : 'under 50 ms'}`);
  assert.ok(most <= LONGEST_TASK, `a task took ${most} ms`);

  await page.locator('#event-grid').evaluate((grid) => (grid.scrollTop = grid.scrollHeight));
  await page.locator('#event-grid .cell-name').getByText('event-0', { exact: true }).waitFor();
  assert.ok(await page.locator('#event-grid .row').count() < 200, 'only what is in sight has elements');
});
