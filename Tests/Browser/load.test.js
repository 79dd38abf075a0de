import assert from 'node:assert/strict';
import { test } from 'node:test';

import { anAction, aUUID } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { until } from './Support/Page.js';

const EVENTS = Number(process.env.KITE_PAGE_EVENTS ?? 200_000);
const LONGEST_TASK = 50; // milliseconds
const BATCH = 500;

const inspector = useInspector();

async function send(count, name) {
  const client = aUUID();
  for (let sent = 0; sent < count; sent += BATCH) {
    const events = Array.from({ length: BATCH }, (_, index) => anAction(`${name}-${sent + index}`));
    const { status } = await inspector.collector.send(events, { client });
    assert.equal(status, 200);
  }
}

const count = (number) => new Intl.NumberFormat('en').format(number);

test(`of ${EVENTS} events none is missing on the page, and it scrolls through them without a task over ${LONGEST_TASK} ms`, { timeout: 180_000 }, async () => {
  const page = await inspector.open();
  page.setDefaultTimeout(60_000);
  await send(EVENTS, 'event');
  await until(page, (text) => document.querySelector('#live-note').textContent === `${text} events`, count(EVENTS));
  await until(page, (text) => document.querySelector('#count-events').textContent === text, count(EVENTS));
  assert.equal(await page.locator('#event-grid').getAttribute('aria-rowcount'), String(EVENTS + 1));

  const { longest, frames, names } = await page.evaluate(async () => {
    const grid = document.querySelector('#event-grid');
    const tasks = [];
    const observer = new PerformanceObserver((list) => tasks.push(...list.getEntries().map(({ duration }) => duration)));
    observer.observe({ entryTypes: ['longtask'] });
    const frame = () => new Promise(requestAnimationFrame);
    const seen = new Set();
    const distance = grid.scrollHeight - grid.clientHeight;
    let drawn = 0;
    const drawnName = () => grid.querySelector('.grid-body .row:not([hidden]) .cell-name')?.textContent;
    // By the wheel's steps, by screens, and by the thumb of the scroll bar.
    for (const [step, steps] of [[90, 300], [700, 200], [distance / 150, 149], [-distance / 60, 59]]) {
      for (let index = 0; index < steps; index++) {
        grid.scrollTop += step;
        await frame();
        drawn++;
        seen.add(drawnName());
      }
    }
    await frame();
    tasks.push(...observer.takeRecords().map(({ duration }) => duration));
    return { longest: Math.max(0, ...tasks), frames: drawn, names: seen.size };
  });
  console.log(`scrolled ${frames} frames over ${count(EVENTS)} rows: longest task ${longest ? `${longest} ms` : 'under 50 ms'}`);
  assert.ok(names > 100, 'other rows were drawn while it scrolled');
  assert.ok(longest <= LONGEST_TASK, `a task took ${longest} ms`);

  await page.locator('#event-grid').evaluate((grid) => (grid.scrollTop = grid.scrollHeight));
  await page.locator('#event-grid .cell-name').getByText('event-0', { exact: true }).waitFor();
  assert.ok(await page.locator('#event-grid .row').count() < 200, 'only what is in sight has elements');
});
