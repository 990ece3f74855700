// The log: one line for each login, logout and command.

const MOST_CHARACTERS = 100;

export function logActivity(activity, write) {
  const line = ({ at, appId, userId }, text) =>
    write(`${new Date(at).toISOString()} ${printable(appId)}/${printable(userId)} ${text}\n`);

  activity.on('login', (event) => line(event, `login -> ok, connection ${event.connectionId}`));
  activity.on('loginRefused', (event) => line(event, `login -> ${printable(event.reason)}`));
  activity.on('logout', (event) => line(event, `logout (${event.reason}) after ${event.at - event.since} ms`));
  activity.on('command', (event) => line(event, `${printable(event.command)} -> ${event.outcome}`));
}

/** A client's text as one short word of a log line: no client writes lines of its own, or to the terminal. */
function printable(value) {
  if (typeof value !== 'string') return `(${typeof value})`;
  const start = value.slice(0, MOST_CHARACTERS);
  if (start === value && /^[\w.:@-]+$/.test(value)) return value;
  const quoted = JSON.stringify(start).replace(/[^\x20-\x7e]/g, (unit) => {
    return `\\u${unit.charCodeAt(0).toString(16).padStart(4, '0')}`;
  });
  return start === value ? quoted : `${quoted}...`;
}
