// The collector's API. Every answer that is not 2xx becomes an error with the collector's own line.

/**
 * @typedef {{seq: number, id: string, type: string, name: string|null, timestamp: number, received_at: number, app: string,
 *   client: string, session: string|null, tester: boolean, duplicates: number}} Row
 * @typedef {{seq: number, received_at: number, method: string, path: string, endpoint: string, status: number,
 *   error_code: number|null, message: string|null, fault: string|null, bytes: number, unpacked_bytes: number|null,
 *   events: number, new: number, duplicates: number, duration: number, attempt: number, client: string|null,
 *   request_id: string|null, has_body: boolean}} Request
 * @typedef {{id: string, client: string, start: number, end: number, ended: boolean, crashed: boolean, open: boolean,
 *   events: number, background: [number, number][], gap_before: number|null, overlaps: boolean}} Session
 */

export class APIError extends Error {
  /** @param {number} status 0 when there was no answer */
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

/** An address of the API; members without a value are left out. */
export function address(path, members = {}) {
  const query = new URLSearchParams();
  for (const [name, value] of Object.entries(members)) {
    if (value !== undefined && value !== null && value !== '') query.set(name, String(value));
  }
  const text = query.toString();
  return `/api/${path}${text ? `?${text}` : ''}`;
}

async function messageOf(answer) {
  try {
    return (await answer.json()).error ?? `the collector answered ${answer.status}`;
  } catch {
    return `the collector answered ${answer.status}`;
  }
}

async function ask(path, members, options) {
  let answer;
  try {
    answer = await fetch(address(path, members), options);
  } catch (error) {
    if (error.name === 'AbortError') throw error;
    throw new APIError(0, 'the collector does not answer');
  }
  if (!answer.ok) throw new APIError(answer.status, await messageOf(answer));
  return answer.json();
}

/** @param {AbortSignal} [signal] */
export const get = (path, members, signal) => ask(path, members, { signal });

export const remove = (path) => ask(path, {}, { method: 'DELETE' });

export const post = (path, body) =>
  ask(path, {}, { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body) });
