// The processes of a cluster, as the one that started them sees them. One that dies is started again.
//
// Each has a port. While it is dead another one listens there: its clients, who come back to where they were, find somebody.

import { fork } from 'node:child_process';
import { once } from 'node:events';
import { setTimeout as pause } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { RequestError } from './http.js';

const PROGRAM = fileURLToPath(new URL('member.js', import.meta.url));
const REST_MS = 500; // before a process is started again
const LONGEST_STOP_MS = 300;
const NEWS_MS = 50;
const LONGEST_NEWS_MS = 500;

export class Members {
  #all;
  #isStopping = false;
  #turn = 0;
  #settled = Promise.resolve();

  constructor(count, activity) {
    this.#all = Array.from({ length: count }, (_, i) => new Member(i + 1, activity));
  }

  /** Starts all of them, with these arguments, and rejects when one cannot be started. */
  async start(args) {
    await Promise.all(this.#all.map((member) => member.start(args)));
    for (const member of this.#all) member.onDeath(() => this.#revive(member, args));
    await this.#settle();
  }

  async stop() {
    this.#isStopping = true;
    await Promise.all(this.#all.map((member) => member.stop()));
  }

  /** The ports of those who are there, in turn. */
  nextPort() {
    const there = this.#all.filter(({ isUp, listener }) => isUp && listener);
    if (there.length === 0) return this.#all[0].port;
    this.#turn += 1;
    return there[this.#turn % there.length].port;
  }

  /** Has the process do what a control endpoint does to one of its users. */
  async act(path, appId, userId, body) {
    // The newest: that an older session has ended may be heard of later still.
    const find = () => this.#all.reduce((best, member) => (member.since(appId, userId) > (best?.since(appId, userId) ?? 0) ? member : best), undefined);
    // A login is heard of here a moment later than by its user.
    for (let waited = 0; !find() && waited < LONGEST_NEWS_MS; waited += NEWS_MS) await pause(NEWS_MS);
    const found = find();
    if (!found) throw new RequestError(404, 'This user is not connected.');
    await found.ask({ path, body });
  }

  kill(number) {
    const found = this.#all.find((member) => member.number === number && member.isUp);
    if (!found) throw new RequestError(404, 'There is no such process.');
    found.kill();
  }

  describe() {
    return this.#all.map((member) => member.describe());
  }

  async #revive(member, args) {
    if (this.#isStopping) return;
    for (const other of this.#all) if (other.listener === member) other.listener = undefined;
    this.#settle();
    await pause(REST_MS);
    if (this.#isStopping) return;
    // One that does not start has died, and is heard of again.
    await member.start(args).catch(() => {});
    this.#settle();
  }

  /** Has each port listened at by its own process or, while that is dead, by another. */
  #settle() {
    return (this.#settled = this.#settled.then(async () => {
      for (const member of this.#all) {
        const wanted = member.isUp ? member : this.#all.find(({ isUp }) => isUp);
        // Whoever dies meanwhile is heard of, and all of this is looked at again.
        if (member.listener !== wanted) await member.moveTo(wanted).catch(() => {});
      }
    }));
  }
}

class Member {
  #activity;
  #child;
  #asked = new Map(); // number of a question -> what takes the answer
  #questions = 0;
  #connections = new Map(); // connection id -> the login that began it
  #onDeath = () => {};
  #deaths = 0;

  isUp = false;
  port = 0;
  /** The member whose process listens at this one's port. */
  listener;

  constructor(number, activity) {
    this.number = number;
    this.#activity = activity;
  }

  async start(args) {
    const child = fork(PROGRAM, args);
    this.#child = child;
    await new Promise((resolve, reject) => {
      child.on('message', (message) => (message.ready ? resolve() : this.#hear(message)));
      child.once('exit', () => {
        reject(new Error(`process ${this.number} of the cluster does not start`));
        this.#die();
      });
    });
    this.isUp = true;
  }

  onDeath(tell) {
    this.#onDeath = tell;
  }

  async stop() {
    const child = this.#child;
    if (!child || child.exitCode !== null || child.signalCode !== null) return;
    const ended = once(child, 'exit');
    if (child.connected) child.disconnect();
    const timer = setTimeout(() => child.kill('SIGKILL'), LONGEST_STOP_MS);
    await ended;
    clearTimeout(timer);
  }

  kill() {
    this.#child.kill('SIGKILL');
  }

  /** When this user logged in here last, among those who are connected; 0 if he is not. */
  since(appId, userId) {
    const isHis = (login) => login.userId === userId && (appId === undefined || login.appId === appId);
    return Math.max(0, ...[...this.#connections.values()].filter(isHis).map(({ at }) => at));
  }

  /** Has the port listened at by another member, which may be none. */
  async moveTo(listener) {
    const { listener: before } = this;
    this.listener = undefined;
    if (before?.isUp) await before.ask({ close: this.port });
    if (!listener) return;
    this.port = (await listener.ask({ open: this.port })).port;
    this.listener = listener;
  }

  /** Asks the process (member.js), and resolves with its answer. */
  async ask(question) {
    this.#questions += 1;
    const id = this.#questions;
    const answer = await new Promise((resolve) => {
      this.#asked.set(id, resolve);
      this.#child.send({ id, ...question }, () => {}); // one that cannot be reached is about to be dead
    });
    if (answer.failed) throw new RequestError(answer.status ?? 500, answer.failed);
    return answer;
  }

  describe() {
    const { number, port, isUp } = this;
    return { number, port, isUp, pid: this.#child.pid, connected: this.#connections.size, deaths: this.#deaths };
  }

  #hear({ id, activity, ...answer }) {
    if (!activity) {
      this.#asked.get(id)?.(answer);
      this.#asked.delete(id);
      return;
    }
    for (const [event, details] of activity) {
      if (event === 'login') this.#connections.set(details.connectionId, details);
      if (event === 'logout') this.#connections.delete(details.connectionId);
      this.#activity.emit(event, details);
    }
  }

  #die() {
    this.isUp = false;
    this.#deaths += 1;
    for (const answer of this.#asked.values()) answer({ failed: 'The process has died.' });
    this.#asked.clear();
    for (const { at: since, ...login } of this.#connections.values()) {
      this.#activity.publish('logout', { ...login, since, reason: 'transport close' });
    }
    this.#connections.clear();
    this.#onDeath();
  }
}
