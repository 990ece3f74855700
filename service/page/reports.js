// What the event reports say: filtering them, and finding the logins in them. No part of the document is touched here.

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
    .map(([key, value]) => `${key} ${JSON.stringify(value, (name, inner) => (name === 'token' ? '…' : inner))}`)
    .join(' · ');
}

/** The points of the plot: [seconds since 1970, ms to find the server, ms to connect] of each login that succeeded. */
export function loginDurations(reports) {
  const times = [];
  const servers = [];
  const connects = [];
  for (const { event } of reports) {
    if (event.type !== 'LoginResult' || event.result !== 1 || typeof event.elapsedInfo !== 'object') continue;
    times.push(event.timestamp / 1000);
    servers.push(event.elapsedInfo.getServers);
    connects.push(event.elapsedInfo.connectServer);
  }
  return [times, servers, connects];
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
