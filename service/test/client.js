// A bare client of the service, for the tests: the reference socket.io client with a log of what it was told.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { get } from 'node:http';
import { fileURLToPath } from 'node:url';
import { io } from 'socket.io-client';
import { createService } from '../lib/service.js';

export const TOKEN = '0123456789abcdef0123456789abcdef';
const DEADLINE_MS = 20_000;
const MAIN = fileURLToPath(new URL('../main.js', import.meta.url));
const READY = /^kvpim service ready on (http:\/\/\S+)\n/;

/** A service on a free port that ends with the test. */
export async function startService(t, options = {}) {
  const service = createService({ control: true, ...options });
  await service.start('127.0.0.1', 0);
  t.after(() => service.stop());
  return service;
}

/** The service as a process of its own: `out` and `err` grow as it writes, `exit` is its status. */
export function run(t, ...args) {
  const child = spawn(process.execPath, [MAIN, ...args], { stdio: ['pipe', 'pipe', 'pipe'] });
  t.after(() => child.kill('SIGKILL'));
  const program = { child, out: '', err: '', exit: once(child, 'close').then(([status]) => status) };
  child.stdout.on('data', (data) => (program.out += data));
  child.stderr.on('data', (data) => (program.err += data));
  return program;
}

export async function until(condition) {
  const deadline = Date.now() + DEADLINE_MS;
  while (!condition()) {
    assert.ok(Date.now() < deadline, `in time: ${condition}`);
    await new Promise((resolve) => setTimeout(resolve, 5));
  }
}

export async function ready(program) {
  await until(() => READY.test(program.out));
  return READY.exec(program.out)[1];
}

export class Client {
  events = []; // [name, ...items] in the order received, "disconnect" included
  #service;
  #waiting = new Set();

  constructor(t, service, userId, { app = 'brivel', appId = 'app', token = TOKEN, credentials } = {}) {
    this.userId = userId;
    this.#service = service;
    const login = credentials ?? { token, userId, timestamp: 1, connectTimeStamp: 2 };
    this.socket = io(service.baseUrl, {
      transports: ['websocket'],
      reconnection: false,
      forceNew: true,
      query: { app, roomId: appId, token: JSON.stringify(login) },
    });
    this.socket.onAny((...event) => this.#note(event));
    this.socket.on('disconnect', (reason) => this.#note(['disconnect', reason]));
    t.after(() => this.socket.disconnect());
  }

  static async login(t, service, userId, options) {
    const client = new Client(t, service, userId, options);
    await client.event('loginSuccess');
    return client;
  }

  /** The items of the first event of this name that was not taken yet; waits for it. */
  event(name) {
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.#waiting.delete(check);
        reject(new Error(`${this.userId} never got ${name}; got ${JSON.stringify(this.events)}`));
      }, DEADLINE_MS);
      const check = () => {
        const index = this.events.findIndex((event) => event[0] === name);
        if (index < 0) return;
        const [[, ...items]] = this.events.splice(index, 1);
        this.#waiting.delete(check);
        clearTimeout(timer);
        resolve(items);
      };
      this.#waiting.add(check);
      check();
    });
  }

  /** All events of a name that have come so far and were not taken. */
  had(name) {
    return this.events.filter((event) => event[0] === name).map(([, ...items]) => items);
  }

  command(name, payload) {
    return this.socket.timeout(DEADLINE_MS).emitWithAck('command', name, payload);
  }

  /** Everything the service sent before now has arrived: it answers in order. */
  settled() {
    return this.command('queryPeersBySubscriptionOption', { option: 0 });
  }

  /** Disconnects, and waits until the service knows. */
  async quit() {
    const gone = new Promise((resolve) => {
      this.#service.activity.on('logout', ({ userId }) => userId === this.userId && resolve());
    });
    this.socket.disconnect();
    await gone;
  }

  #note(event) {
    this.events.push(event);
    for (const check of this.#waiting) check();
  }
}

/** A WebSocket connection of which only the opening handshake is done: { response, socket, start }. */
export async function openMuteConnection(t, baseUrl, headers = {}) {
  const request = get(`${baseUrl}/socket.io/?EIO=4&transport=websocket`, {
    headers: {
      Connection: 'Upgrade',
      Upgrade: 'websocket',
      'Sec-WebSocket-Version': '13',
      'Sec-WebSocket-Key': Buffer.alloc(16).toString('base64'),
      ...headers,
    },
  });
  const [response, socket, start] = await once(request, 'upgrade');
  t.after(() => socket.destroy());
  return { response, socket: socket.on('error', () => {}), start };
}

export async function control(service, path, body) {
  const response = await fetch(`${service.baseUrl}/control/${path}`, {
    method: body === undefined ? 'GET' : 'POST',
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  const answer = await response.json();
  if (!response.ok) throw new Error(`${path}: ${answer.error}`);
  return answer;
}

const DEVICE = 'd'.repeat(32);
/** A line of a file of event reports. */
export const report = (event, envelope = {}) =>
  JSON.stringify({ logType: 1, deviceId: DEVICE, os: 'ios', timestamp: 1, encrypt: false, content: JSON.stringify(event), ...envelope });

export const upload = (service, body) => fetch(`${service.baseUrl}/pim/v1/collect-logan`, { method: 'POST', body });
