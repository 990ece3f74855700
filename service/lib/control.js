// The control endpoints, for tests and demonstrations: they show the state, break connections, prepare answers and emit
// events. Anybody who can reach the address can use them, so they are there on request only.

import { isCommand } from './commands/index.js';
import { RequestError } from './http.js';
import { LOGIN } from './scripts.js';
import { isObject } from './shapes.js';
import { dismiss, freeze } from './world.js';

const isText = (value) => typeof value === 'string';
const isFlag = (value) => typeof value === 'boolean';
const isCount = (value) => Number.isInteger(value) && value > 0;
const optional = (isGood) => (value) => value === undefined || isGood(value);
const nullOr = (isGood) => (value) => value === null || isGood(value);

/** The endpoints: "METHOD /path" -> function of the body, which returns the answer. */
export function createControl(service) {
  return endpointsOf(service, actionsOf(service));
}

/** Those that show something, and `actions`: path -> { fields, run }. */
export function endpointsOf(service, actions) {
  const endpoints = Object.entries(actions).map(([path, { fields, run }]) => [
    `POST /control/${path}`,
    async (body) => {
      checkBody(fields, body);
      await run(body);
      return { ok: true };
    },
  ]);
  const counts = countCommands(service.activity);
  const describe = async () => {
    const apps = await new Promise((resolve) => service.store.describe(service.now(), resolve));
    return { apps, commands: Object.fromEntries(counts) };
  };
  const reports = () => ({ reports: service.collector.reports });
  return new Map([['GET /control/state', describe], ['GET /control/reports', reports], ...endpoints]);
}

export function actionsOf(service) {
  const socketOf = ({ app, userId }) => findSocket(service, app, userId).socket;
  // The socket, once the act is published: what happens to it comes after.
  const acting = (action, { app, userId }) => {
    const { appId, socket } = findSocket(service, app, userId);
    service.activity.publish('control', { appId, userId, action });
    return socket;
  };
  const { scripts } = service;
  return {
    drop: {
      fields: { app: optional(isText), userId: isText },
      run: (body) => acting('cut', body).request.socket.destroy(),
    },
    disconnect: {
      fields: { app: optional(isText), userId: isText, reason: optional(isText) },
      run: (body) => dismiss(acting('disconnect', body), body.reason),
    },
    freeze: {
      fields: { app: optional(isText), userId: isText, frozen: optional(isFlag) },
      run: ({ frozen = true, ...body }) => freeze(acting(frozen ? 'freeze' : 'thaw', body), frozen),
    },
    answer: {
      fields: { command: isCommand, userId: optional(isText), times: optional(isCount), answer: nullOr(Array.isArray) },
      run: ({ command, userId, times = 1, answer }) => scripts.add(command, userId, times, answer),
    },
    login: {
      fields: { userId: optional(isText), times: optional(isCount), reason: nullOr(isText) },
      run: ({ userId, times = 1, reason }) => scripts.add(LOGIN, userId, times, reason),
    },
    collect: {
      fields: { status: nullOr(isCount), times: optional(isCount) },
      run: ({ status, times = 1 }) => service.collector.script(status, times),
    },
    emit: {
      fields: { app: optional(isText), userId: isText, event: isText, items: Array.isArray },
      run: (body) => emit(socketOf(body), body.event, body.items),
    },
  };
}

function checkBody(fields, body) {
  if (!isObject(body)) throw new RequestError(400, 'The body must be an object.');
  const unknown = Object.keys(body).find((name) => !Object.hasOwn(fields, name));
  if (unknown !== undefined) throw new RequestError(400, `There is no field ${JSON.stringify(unknown)}.`);
  const bad = Object.keys(fields).find((name) => !fields[name](body[name]));
  if (bad !== undefined) throw new RequestError(400, `The field "${bad}" is missing or not acceptable.`);
}

function findSocket(service, appId, userId) {
  for (const [name, world] of service.worlds) {
    const socket = world.socketOf(userId);
    if (socket && (appId === undefined || appId === name)) return { appId: name, socket };
  }
  throw new RequestError(404, 'This user is not connected.');
}

function emit(socket, event, items) {
  try {
    socket.emit(event, ...items);
  } catch (error) {
    throw new RequestError(400, error.message); // socket.io keeps some names for itself
  }
}

// Names that are no command are the clients' own and could be any number: they count as one.
function countCommands(activity) {
  const counts = new Map();
  activity.on('command', ({ command }) => {
    const name = isCommand(command) ? command : 'unknown';
    counts.set(name, (counts.get(name) ?? 0) + 1);
  });
  return counts;
}
