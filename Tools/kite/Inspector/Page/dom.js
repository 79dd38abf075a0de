// Builds elements. Whatever is not a node becomes text: nothing that was received is ever taken for markup.

const SVG = 'http://www.w3.org/2000/svg';

/**
 * @param {Element} element
 * @param {Object<string, any>} properties attributes; a function is a listener of the event of that name
 * @param {any[]} children
 */
function fill(element, properties, children) {
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (typeof value === 'function') element.addEventListener(name, value);
    else element.setAttribute(name, value === true ? '' : String(value));
  }
  element.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

/** An element, such as h('p', {class: 'note'}, 'text', another). */
export const h = (tag, properties = {}, ...children) =>
  /** @type {HTMLElement} */ (fill(document.createElement(tag), properties, children));

/** The same for the elements of a drawing. */
export const s = (tag, properties = {}, ...children) => fill(document.createElementNS(SVG, tag), properties, children);

/** The element of the page with that id. */
export const byID = (id) => {
  const element = document.getElementById(id);
  if (!element) throw new Error(`the page has no #${id}`);
  return element;
};

/** Writes a text only if it differs, and into the text that is there: what stands around it is not styled anew. */
export function setText(element, text) {
  const only = element.firstChild;
  if (only instanceof Text && !only.nextSibling) {
    if (only.data !== text) only.data = text;
  } else if (element.textContent !== text) element.textContent = text;
}

/** Whether keys that are typed into the element are its own. */
export const takesText = (element) =>
  element instanceof HTMLElement && element.matches('input, textarea, select, [contenteditable]');

/** Whether Enter and space do something on the element already. */
export const takesPress = (element) =>
  takesText(element) || (element instanceof HTMLElement && element.closest('button, a, summary') !== null);
