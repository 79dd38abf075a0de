// What the lists show of a row.

import { h, setText } from './dom.js';
import { bytes, count, duration, fullTime, kindOf, rowTime, shortID } from './format.js';
import { textColumn } from './grid.js';
import { sizeText, statusText, toneOf } from './requestdetail.js';

const timeColumn = (timeOf) => ({
  title: 'Time', class: 'cell-time',
  fill: (cell, row) => {
    setText(cell, rowTime(timeOf(row)));
    cell.title = fullTime(timeOf(row));
  },
});

/** Whether a row has room for whole identifiers; elsewhere their beginnings tell one from another. */
export const wide = matchMedia('(min-width: 2000px)');

const idColumn = (title, className, idOf) =>
  textColumn(title, `cell-id ${className}`, (row) => (wide.matches ? idOf(row) ?? '' : shortID(idOf(row))));

/** A number that is only worth a look when it is not zero. */
const numberColumn = (title, className, numberOf, label) => ({
  title, class: `cell-number ${className}`, label,
  fill: (cell, row) => {
    const number = numberOf(row);
    cell.classList.toggle('none', number === 0);
    setText(cell, number === 0 ? '·' : count(number));
  },
});

export const EVENT_COLUMNS = [
  {
    title: 'Type', class: 'cell-kind',
    fill: (cell, row) => {
      cell.dataset.kind = kindOf(row.type);
      setText(cell, row.type);
    },
  },
  textColumn('Name', 'cell-name', (row) => row.name ?? ''),
  timeColumn((row) => row.timestamp),
  idColumn('Session', 'cell-session', (row) => row.session),
  idColumn('Client', 'cell-client', (row) => row.client),
  numberColumn('Dup', 'cell-duplicates', (row) => row.duplicates, 'Duplicates'),
];

function fillStatus(cell, request) {
  const tone = `pill ${toneOf(request)}`;
  if (cell.firstChild?.className === tone) setText(cell.firstChild, statusText(request));
  else cell.replaceChildren(h('span', { class: tone }, statusText(request)));
  cell.title = request.message ?? request.fault ?? '';
}

/** The host and path of an endpoint: that it is HTTPS is known. */
const shortEndpoint = (request) => request.endpoint.replace(/^https:\/\//, '');

export const REQUEST_COLUMNS = [
  { title: 'Status', class: 'cell-status', fill: fillStatus },
  timeColumn((request) => request.received_at),
  numberColumn('Events', 'cell-events', (request) => request.events),
  textColumn('Size', 'cell-number cell-size', (request) => (request.bytes ? sizeText(request) : bytes(0)), 'Size and compression'),
  textColumn('Took', 'cell-number cell-duration', (request) => duration(request.duration), 'Duration'),
  textColumn('Fault', 'cell-path cell-fault', (request) => request.fault ?? ''),
  textColumn('Endpoint', 'cell-path', shortEndpoint),
  textColumn('Try', 'cell-number cell-attempt', (request) => String(request.attempt), 'Attempt'),
];
