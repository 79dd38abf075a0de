// Events in the shape in which a body holds them, and bodies signed as a host signs them.

import { createHmac, randomUUID } from 'node:crypto';
import { gzipSync } from 'node:zlib';

export const APP = 'trail-maps';
export const KEY = 'secret';

export const aUUID = () => randomUUID().toUpperCase();
export const now = () => Date.now() / 1000;

/** An event; what is not given has a usual value. */
export const anEvent = ({ type = 'Purchase', id = aUUID(), timestamp = now(), info = { country: 'NZ' }, data = { price: 9.5 } } = {}) => ({
  type, id, timestamp, app: APP, user: { info, ids: { user_id: 'u1' } }, data,
});

export const anAction = (name, { session = null, isInBackground = false, info: actionInfo = {}, userInfo, ...rest } = {}) => anEvent({
  type: 'UserAction',
  info: userInfo,
  data: {
    action_info: actionInfo, action_kind: name, is_background_event: isInBackground, last_foreground_session_id: null,
    process_id: aUUID(), seconds_from_session_start: null, session_id: session,
  },
  ...rest,
});

export const aSessionStart = (session, timestamp) =>
  anEvent({ type: 'Session', id: session, timestamp, data: { subtype: 'session_start' } });

export const aSessionEnd = (session, timestamp, { crashed = false, duration = -1 } = {}) =>
  anEvent({ type: 'Session', timestamp, data: { crashed, duration, session_start_id: session, subtype: 'session_end' } });

const hexadecimal = (bytes) => Buffer.from(bytes).toString('hex');

/**
 * A request that a collector accepts; `change` makes a mistake in what is signed, sent or told.
 * @param {{url: string}} collector
 */
export function aRequest(collector, events, { client = aUUID(), change = {} } = {}) {
  const requestTimestamp = now() + (change.skew ?? 0);
  const stamped = events.map((event) => ({ ...event, request_timestamp: requestTimestamp }));
  const body = gzipSync(JSON.stringify({ events: stamped }), { level: 1 });
  const timestamp = String(Math.round(requestTimestamp * 1000));
  const id = aUUID();
  const scheme = change.leavesHTTPS ? 'https://' : 'http://';
  const text = [collector.url.replace('https://', scheme), hexadecimal(body), timestamp, id].join(':');
  return {
    body,
    headers: {
      'Content-Type': 'application/json', 'Content-Encoding': 'gzip', 'Lumo-Id': APP, 'Kite-Client-ID': client,
      'Kite-Tester': 'false', 'Kite-Version': '7.3.0', 'Wicket-Protocol': 'Sha512', 'Wicket-Timestamp': timestamp,
      'Wicket-Request-Id': id, 'Wicket-Signature': createHmac('sha512', KEY).update(text).digest('hex'),
    },
  };
}
