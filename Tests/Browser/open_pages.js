#!/usr/bin/env node
// Opens the inspector's page so many times, for who measures what that costs (scripts/inspector --pages).
//
//   node Tests/Browser/open_pages.js URL PAGES
//
// Prints "open" when all are live, reads a number, and prints "seen" when every page has so many events.

import { once } from 'node:events';
import { createInterface } from 'node:readline';

import { openBrowser, openPage, until } from './Support/Page.js';

const [url, count] = [process.argv[2], Number(process.argv[3])];
const browser = await openBrowser();
const pages = await Promise.all(Array.from({ length: count }, () => openPage(browser, { page: url })));
console.log('open');
const [events] = await once(createInterface({ input: process.stdin }), 'line');
const text = `${new Intl.NumberFormat('en').format(Number(events))} events`;
await Promise.all(pages.map((page) => until(page, (expected) => document.querySelector('#live-note').textContent === expected, text)));
console.log('seen');
await browser.close();
