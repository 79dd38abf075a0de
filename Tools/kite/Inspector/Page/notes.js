// Short words to the reader: a note at the bottom that goes again, read out as well; and copying.

import { byID, h } from './dom.js';

let timer = 0;

/** Says it to a screen reader alone. */
export function announce(text) {
  byID('announcer').textContent = text;
}

export function note(text) {
  const toast = byID('toast');
  toast.textContent = text;
  toast.hidden = false;
  announce(text);
  clearTimeout(timer);
  timer = setTimeout(() => (toast.hidden = true), 3500);
}

/** Without a secure context, such as over plain HTTP to another machine, there is no clipboard but the old command. */
function copyOldWay(text) {
  const field = h('textarea', { class: 'hidden-text', 'aria-hidden': 'true' });
  field.value = text;
  document.body.append(field);
  field.select();
  const isDone = document.execCommand('copy');
  field.remove();
  if (!isDone) throw new Error('the browser does not let the page copy');
}

export async function copy(text, what) {
  try {
    if (navigator.clipboard) await navigator.clipboard.writeText(text);
    else copyOldWay(text);
    note(`Copied ${what}`);
  } catch (error) {
    note(`Not copied: ${error.message}`);
  }
}

/** A block of text with a button that copies it. */
export const command = (text, what) =>
  h('div', { class: 'command' }, h('pre', {}, text),
    h('button', { type: 'button', click: () => copy(text, what) }, 'Copy'));
