// One process of a cluster: a whole service upon the store in Redis. It listens where the process that started it says
// (cluster.js), tells that one what happens, and ends with it. Arguments are those of the service.
//
// Messages to it:   { id, open: port }   listen there; 0 is any free port    -> { id, port }, or { id, failed: "why" }
//                   { id, close: port }  listen there no longer              -> { id }
//                   { id, path, body }   do what this control endpoint does; `body` is JSON   -> { id }, or { id, status, failed }
// Beside the answers it says { ready: true } once, and { activity: [[event, details], ...] }.

import { once } from 'node:events';
import { createServer } from 'node:net';

import { EVENTS } from './activity.js';
import { prepareConfig } from './config.js';
import { createControl } from './control.js';
import { reviveBytes } from './http.js';
import { readOptions } from './options.js';
import { RedisStore } from './redis-store.js';
import { createService, urlOf } from './service.js';

const TOLD_EVERY_MS = 50;

const options = readOptions(process.argv.slice(2));
const { limits } = prepareConfig(options.config);
const store = new RedisStore({ url: options.redis, limits, onGone: () => service.cutAll() });
const service = createService({ ...options, store });
const control = createControl(service);
const listeners = new Map(); // port -> the listener

async function open(port) {
  const listener = createServer((connection) => service.take(connection)).listen(port, options.host);
  await once(listener, 'listening');
  const { port: opened } = listener.address();
  listeners.set(opened, listener);
  service.baseUrl ??= urlOf(options.tls, options.host, opened);
  return { port: opened };
}

// Connections that came there stay.
function close(port) {
  listeners.get(port).close();
  listeners.delete(port);
}

async function act(path, body) {
  await control.get(`POST /control/${path}`)(JSON.parse(body, reviveBytes));
}

// The other side may have ended meanwhile, which is heard of as "disconnect".
function say(message) {
  process.send(message, () => {});
}

process.on('message', async ({ id, ...message }) => {
  try {
    if (message.open !== undefined) say({ id, ...(await open(message.open)) });
    else if (message.close !== undefined) say({ id, ...close(message.close) });
    else say({ id, ...(await act(message.path, message.body)) });
  } catch (error) {
    say({ id, status: error.status, failed: error.message });
  }
});

let activity = [];
for (const event of EVENTS) service.activity.on(event, (details) => activity.push([event, details]));
setInterval(() => {
  if (activity.length > 0) say({ activity });
  activity = [];
}, TOLD_EVERY_MS);

// A terminal's Ctrl-C reaches all processes: they wait for their parent's word.
process.on('SIGINT', () => {}).on('SIGTERM', () => {});
process.once('disconnect', async () => {
  await service.stop();
  await store.stop();
  process.exit(0);
});

await store.start();
say({ ready: true });
