// The page's address: ?q= is the search, the hash is the view and what is open in it, so that a view can be shared.

export const VIEWS = ['live', 'sessions', 'requests', 'faults'];

/** @typedef {{view: string, item: string[], query: string}} Place */

/** @returns {Place} */
export function read() {
  const [view, ...item] = location.hash.slice(1).split('/').map(decode);
  return {
    view: VIEWS.includes(view) ? view : 'live',
    item: item.filter((part) => part !== ''),
    query: new URLSearchParams(location.search).get('q') ?? '',
  };
}

function decode(part) {
  try {
    return decodeURIComponent(part);
  } catch {
    return '';
  }
}

/** @param {Place} place */
export function addressOf({ view, item = [], query }) {
  const search = query ? `?q=${encodeURIComponent(query).replaceAll('%3A', ':').replaceAll('%20', '+')}` : '';
  return `/${search}#${[view, ...item].map(encodeURIComponent).join('/')}`;
}

/** Changes the address; `isStep` makes it one that the browser's back button returns from. */
export function write(place, isStep = false) {
  const address = addressOf(place);
  if (address === location.pathname + location.search + location.hash) return;
  if (isStep) history.pushState(null, '', address);
  else history.replaceState(null, '', address);
}
