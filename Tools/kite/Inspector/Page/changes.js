// What changed in the user info since the client's event before.

const isTree = (value) =>
  typeof value === 'object' && value !== null && !JSON.isRawJSON?.(value) && !Array.isArray(value) && Object.keys(value).length > 0;

/** The values of an object by their paths, such as "device.language". */
export function flatten(object, prefix = '', into = new Map()) {
  for (const [key, value] of Object.entries(object ?? {})) {
    const path = prefix ? `${prefix}.${key}` : key;
    if (isTree(value)) flatten(value, path, into);
    else into.set(path, value);
  }
  return into;
}

/**
 * The lines of both objects by path: those that differ first, then the others.
 * @returns {{path: string, kind: 'added'|'changed'|'removed'|'same', old?: any, value?: any}[]}
 */
export function changesBetween(before, now) {
  const values = flatten(now);
  if (!before) return [...values].map(([path, value]) => ({ path, kind: 'same', value }));
  const old = flatten(before);
  const changed = [];
  const same = [];
  for (const [path, value] of values) {
    if (!old.has(path)) changed.push({ path, kind: 'added', value });
    else if (JSON.stringify(old.get(path)) === JSON.stringify(value)) same.push({ path, kind: 'same', value });
    else changed.push({ path, kind: 'changed', old: old.get(path), value });
  }
  for (const [path, value] of old) if (!values.has(path)) changed.push({ path, kind: 'removed', old: value });
  return [...changed, ...same];
}
