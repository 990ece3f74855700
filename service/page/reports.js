// What the event reports say: filtering them, and finding the logins in them. No part of the document is touched here.

import { duration, sinceTimeStamp } from './words.js';

export const isFailed = ({ event }) => event.result === 0;

export function matches(report, { user, type, failedOnly }) {
  const { event } = report;
  if (user !== '' && !String(event.uid ?? '').includes(user)) return false;
  if (type !== '' && event.type !== type) return false;
  return !failedOnly || isFailed(report);
}

const SHOWN_ELSEWHERE = new Set(['uid', 'type', 'result', 'timestamp', 'appId', 'os', 'platform', 'sdkVer', 'deviceId', 'clientSessionId']);

/** What is special about a report, as text. Tokens are nobody's business here. */
export function details({ event }) {
  return Object.entries(event)
    .filter(([key]) => !SHOWN_ELSEWHERE.has(key))
    .map(([key, value]) => inWords(key, value, event))
    .join(' · ');
}

function inWords(key, value, { timestamp }) {
  if (key === 'elapsed' && Number.isFinite(value)) return `${key} ${duration(value)}`;
  if (key === 'totalElapsed' && Number.isFinite(value)) return `${key} ${sinceTimeStamp(value, timestamp)}`; // since the token's
  if (key === 'elapsedInfo' && value) return `finding the server ${duration(value.getServers)} · connecting ${duration(value.connectServer)}`;
  return `${key} ${JSON.stringify(value, (name, inner) => (name === 'token' ? '…' : inner))}`;
}

/** The logins that succeeded: { at, user, server (ms to find it), connect (ms) }. */
export function loginDurations(reports) {
  const isTime = (value) => Number.isFinite(value) && value >= 0;
  return reports
    .filter(({ event }) => event.type === 'LoginResult' && event.result === 1)
    .map(({ event }) => ({ at: event.timestamp, user: event.uid, server: event.elapsedInfo?.getServers, connect: event.elapsedInfo?.connectServer }))
    .filter(({ server, connect }) => isTime(server) && isTime(connect));
}

/** From the start of the login that a report belongs to, to its end: the same device and user, in order. */
export function roadOf(reports, chosen) {
  const own = reports.filter(
    ({ deviceId, event }) => deviceId === chosen.deviceId && event.uid === chosen.event.uid,
  );
  const at = own.indexOf(chosen);
  let start = at;
  while (start >= 0 && own[start].event.type !== 'StartLogin') start -= 1;
  if (start < 0) return [];
  let end = own.findIndex((report, index) => index > start && report.event.type === 'LoginResult');
  if (end < 0) end = own.length - 1;
  return own.slice(start, end + 1).filter(({ event }) => ['StartLogin', 'ConnectState', 'LoginResult'].includes(event.type));
}
