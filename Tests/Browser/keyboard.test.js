import assert from 'node:assert/strict';
import { test } from 'node:test';

import { anAction, aSessionStart, aUUID, now } from './Support/Events.js';
import { useInspector } from './Support/Inspector.js';
import { detailOf, rowNamed, until } from './Support/Page.js';

const inspector = useInspector((collector) => collector.send(Array.from({ length: 120 }, (_, index) => anAction(`step-${index}`))));

const selected = (page) => page.locator('#event-grid .row[aria-selected=true] .cell-name');

/** What a screen reader is at, of the list that has the focus. */
const current = (page) => page.evaluate(() => {
  const list = document.activeElement;
  return document.getElementById(list.getAttribute('aria-activedescendant') ?? '')?.textContent ?? null;
});

test('everything is reached without a pointer', async () => {
  const page = await inspector.open();
  const press = async (...keys) => {
    for (const key of keys) await page.keyboard.press(key);
  };
  await rowNamed(page, 'step-119').waitFor();

  await press('j', 'j', 'k');
  await selected(page).getByText('step-119').waitFor();
  await press('ArrowDown', 'Enter');
  await detailOf(page).getByRole('heading', { name: 'step-118' }).waitFor();
  await press('j');
  await detailOf(page).getByRole('heading', { name: 'step-117' }).waitFor();

  await press('Enter');
  await until(page, () => document.activeElement.matches('#detail h2'));
  await press('c');
  await page.getByText('Copied the event as JSON').first().waitFor();
  await press('l');
  await page.getByText('Copied the line for kite host').first().waitFor();
  await press('Escape');
  await detailOf(page).getByText('Select a row').waitFor();
  await until(page, () => document.activeElement.id === 'event-grid');

  await press('End');
  await selected(page).getByText('step-0', { exact: true }).waitFor();
  assert.match(await current(page), /step-0/);
  await press('PageUp', 'Home');
  await selected(page).getByText('step-119').waitFor();
  await press('Escape', ' ');
  await page.getByRole('button', { name: 'Paused' }).waitFor();
  await press(' ');
  await page.getByRole('button', { name: 'Following' }).waitFor();

  await press('/');
  await until(page, () => document.activeElement.id === 'query');
  await page.keyboard.type('name:step-7');
  await press('Enter');
  await selected(page).waitFor({ state: 'detached' });
  await until(page, () => document.activeElement.id === 'event-grid');
  await rowNamed(page, 'step-7').waitFor();
  await press('/', 'Escape');
  await until(page, () => document.activeElement.id === 'event-grid');

  await press('?');
  await page.getByRole('dialog', { name: 'Keys and search' }).waitFor();
  await press('j', 'Escape');
  await page.getByRole('dialog', { name: 'Keys and search' }).waitFor({ state: 'hidden' });
  assert.equal(await selected(page).count(), 0, 'keys do nothing behind the help');

  await press('2');
  await page.locator('#sessions').waitFor();
  await press('3', 'j', 'Enter');
  await detailOf(page).getByRole('heading', { name: 'POST /v4/events' }).waitFor();
  await press('4');
  await page.getByRole('radio', { name: 'Answer a status' }).waitFor();
  await press('1');
  await page.locator('#live').waitFor();

  const theme = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const before = await theme();
  await press('t');
  assert.notEqual(await theme(), before);
  await press('t');
});

test('a fault is added and the database is cleared without a pointer', async () => {
  const page = await inspector.open({ at: '#faults' });
  await page.getByRole('radio', { name: 'Answer a status' }).focus();
  await page.keyboard.press('ArrowDown');
  await page.keyboard.press('Tab');
  await page.keyboard.type('15');
  await page.keyboard.press('Enter');
  await page.locator('.fault-list').getByText('delay:15').waitFor();
  await page.getByRole('button', { name: 'Remove all' }).press('Enter');
  await page.locator('.fault-list li').waitFor({ state: 'detached' });

  await page.keyboard.press('Escape');
  await page.locator('nav a[data-view=live]').press('Enter');
  await page.getByRole('button', { name: 'Clear…' }).press('Enter');
  await page.keyboard.press('Tab');
  await until(page, () => document.activeElement.id === 'clear-database');
  await page.keyboard.press('Escape');
});

test('a session opens without a pointer, and a screen reader is told of it', async () => {
  const [client, session] = [aUUID(), aUUID()];
  await inspector.collector.send([aSessionStart(session, now() - 5), anAction('in', { session })], { client });
  const page = await inspector.open({ at: `#sessions/${client}` });
  await page.locator('.session-list').focus();
  await page.keyboard.press('j');
  assert.ok(await page.locator('.session-list').getAttribute('aria-activedescendant'));
  await page.keyboard.press('Enter');
  await detailOf(page).getByRole('heading', { name: /2 events/ }).waitFor();
});

test('where the focus is can be seen on every control', async () => {
  const page = await inspector.open();
  await rowNamed(page, 'step-119').waitFor();
  await page.evaluate(() => document.activeElement.blur());
  const seen = new Set();
  for (let step = 0; step < 16; step++) {
    await page.keyboard.press('Tab');
    const { name, outline } = await page.evaluate(() => {
      const { outlineStyle, outlineWidth } = getComputedStyle(document.activeElement);
      const element = document.activeElement;
      const name = element === document.body ? '' : element.id || element.textContent.trim();
      return { name, outline: outlineStyle === 'none' ? 0 : parseFloat(outlineWidth) };
    });
    if (name === '' || seen.has(name)) break;
    seen.add(name);
    assert.ok(outline >= 2, `${name} shows its focus`);
  }
  for (const name of ['query', 'theme', 'help-button', 'follow', 'clear', 'event-grid']) assert.ok(seen.has(name), `${name} is reached by Tab`);
});
