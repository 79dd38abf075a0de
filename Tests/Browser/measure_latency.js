#!/usr/bin/env node
// Measures how long after an event was stored it is on the page, with three pages open.
//
//   node Tests/Browser/measure_latency.js [EVENTS_A_SECOND [SECONDS [EVENTS_A_REQUEST]]]        such as: … 5000 10 500
//
// A row's latency is from when its request was stored to the end of the first frame that has it or a newer one.

import { readFileSync } from 'node:fs';

import { Collector } from './Support/Collector.js';
import { anAction, aUUID } from './Support/Events.js';
import { closePage, openBrowser, openPage } from './Support/Page.js';

const given = (place, otherwise) => Number(process.argv[place] ?? otherwise);
const [rate, seconds, batchSize] = [given(2, 5000), given(3, 10), given(4, 500)];
const PAGES = 3;
const BROWSERS_START = 2000; // milliseconds in which a browser that was just opened is busy with itself

/** In the page: the newest row whenever that changes, and when its frame was done: laid out and painted. */
function watchNewest() {
  globalThis.newestOfFrames = [];
  const list = document.querySelector('#event-grid .grid-body');
  const afterFrame = new MessageChannel();
  let isNoting = false;
  afterFrame.port1.onmessage = () => {
    isNoting = false;
    const seq = Number(list.querySelector('.row[aria-rowindex="2"]:not([hidden])')?.dataset.seq ?? 0);
    if (seq !== globalThis.newestOfFrames.at(-1)?.[0]) globalThis.newestOfFrames.push([seq, Date.now() / 1000]);
  };
  // The list draws in an animation frame, before its layout and its painting; a message arrives behind them.
  new MutationObserver(() => {
    if (!isNoting) afterFrame.port2.postMessage(null);
    isNoting = true;
  }).observe(list, { attributes: true, attributeFilter: ['data-seq'], subtree: true });
}

/** What the processors did since the start, and how much of it a virtual machine's host took for others. */
function processorTimes() {
  const times = readFileSync('/proc/stat', 'utf8').split('\n', 1)[0].split(/\s+/).slice(1, 9).map(Number);
  const [user, nice, system, , , ...others] = times;
  const taken = others.at(-1);
  return { taken, wanted: user + nice + system + others.reduce((sum, time) => sum + time) };
}

/** Sends at an even pace; how late it was at the end. */
async function sendAll(collector) {
  const client = aUUID();
  const batches = Math.round((rate * seconds) / batchSize);
  const start = performance.now();
  for (let batch = 0; batch < batches; batch++) {
    const due = start + (1000 * batch * batchSize) / rate;
    await new Promise((resolve) => setTimeout(resolve, Math.max(0, due - performance.now())));
    await collector.send(Array.from({ length: batchSize }, (_, index) => anAction(`event-${batch}-${index}`)), { client });
  }
  return (performance.now() - start) / 1000;
}

/** When each row was stored: its request's own end, as requests come one after the other. */
async function storedTimes(collector) {
  const times = new Map();
  for (let after = 0; after !== null;) {
    const { requests, next } = await collector.ask(`/api/requests?limit=1000&after=${after}`);
    for (const { received_at: received, duration, new: count } of requests.sort((a, b) => a.seq - b.seq))
      for (let row = 0; row < count; row++) times.set(times.size + 1, received + duration);
    after = next;
  }
  return times;
}

/** How long each row took to the first frame that showed it or a newer one. */
function latencies(times, frames) {
  const found = [];
  let at = 0;
  for (const [seq, stored] of times) {
    while (at < frames.length && frames[at][0] < seq) at++;
    if (at < frames.length) found.push(frames[at][1] - stored);
  }
  return found;
}

const collector = await Collector.start();
const browser = await openBrowser();
const pages = await Promise.all(Array.from({ length: PAGES }, () => openPage(browser, collector)));
await Promise.all(pages.map((page) => page.evaluate(watchNewest)));
await new Promise((resolve) => setTimeout(resolve, BROWSERS_START));
const before = processorTimes();
const took = await sendAll(collector);
const after = processorTimes();
const times = await storedTimes(collector);
const newest = [...times.keys()].at(-1);
for (const page of pages) {
  await page.waitForFunction((seq) => globalThis.newestOfFrames.at(-1)[0] === seq, newest);
  const sorted = latencies(times, await page.evaluate(() => globalThis.newestOfFrames)).sort((a, b) => a - b);
  const at = (part) => `${(1000 * sorted[Math.min(sorted.length - 1, Math.floor(part * sorted.length))]).toFixed(0)} ms`;
  console.log(`${sorted.length} events at ${Math.round(times.size / took)}/s: p50 ${at(0.5)}, p99 ${at(0.99)}, longest ${at(1)}`);
}
const share = (after.taken - before.taken) / (after.wanted - before.wanted);
console.log(`of the processors' time that was wanted the machine's host took ${(100 * share).toFixed(0)} %`);
await Promise.all(pages.map(closePage));
await browser.close();
await collector.end();
