// A process's place in the cluster: its requests go to Redis, and what it is to tell comes back, each in order, exactly once,
// also when Redis is away for a while.
//
// Requests are numbered, and repeated after a lost connection until Redis has done them; Redis knows which it has done. Answers
// and what users are to be told come through one stream for each process, which keeps what this process has not passed on.

import { createHash, randomUUID } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { setImmediate as nextTurn, setTimeout as pause } from 'node:timers/promises';
import { ErrorReply, createClient } from '@redis/client';

const RETRY_MS = 100;
const MOST_ENTRIES = 1000; // in one turn
const LONGEST_WAIT_MS = 1000; // of one call, for something to read
const LONGEST_GOODBYE_MS = 300;
const DEFAULT_LEASE_MS = 5000;
const RENEWALS_PER_LEASE = 5;

const FAILED = { result: 1 };

// Functions outlive Redis's restart, and those of another version stay beside them.
const source = readFileSync(new URL('redis-store.lua', import.meta.url), 'utf8');
const library = `kvpim_${createHash('sha256').update(source).digest('hex').slice(0, 12)}`;
const code = `#!lua name=${library}\n${source.replaceAll('LIBRARY', library)}`;

export class RedisLink {
  #options;
  #client; // for requests
  #reader; // for the stream: it waits there
  #process; // the name of this process, while it is not taken for dead
  #isReady = false; // to take requests
  #isStopped = false;
  #requests = new Map(); // number -> { values, answer }, in order: whatever is not answered yet
  #numbered = 0;
  #isRecounting = false;

  /** The newest entry of the stream that was passed on. */
  passedOn;

  constructor({ url, prefix = 'kvpim:', lease = DEFAULT_LEASE_MS, onTold, onGone = () => {} }) {
    this.#options = { prefix, lease, onTold, onGone };
    const options = { url, socket: { reconnectStrategy: () => RETRY_MS }, disableOfflineQueue: true };
    this.#client = createClient(options);
    this.#reader = createClient(options);
    this.#client.on('error', () => (this.#isReady = false));
    this.#reader.on('error', () => {}); // its calls fail
  }

  async start() {
    await Promise.all([this.#client.connect(), this.#reader.connect()]);
    await this.#comeBack();
    this.#client.on('ready', () => this.#comeBack());
    this.#read();
    this.#renew();
  }

  /** Ends what is left of this process's sessions. */
  async stop() {
    for (let waited = 0; this.#requests.size > 0 && waited < LONGEST_GOODBYE_MS; waited += 10) await pause(10);
    this.#isStopped = true;
    if (this.#isReady) await this.#call('leave', [this.#process]).catch(() => {});
    this.#client.destroy();
    this.#reader.destroy();
  }

  /** Without `answer` there is none. */
  ask(operation, values, answer) {
    this.#numbered += 1;
    this.#requests.set(this.#numbered, { operation, values, answer });
    if (this.#isReady) this.#send(this.#numbered);
  }

  /** Has members told how many they are, once for all changes of this turn. */
  recount() {
    if (this.#isRecounting) return;
    this.#isRecounting = true;
    setImmediate(() => {
      this.#isRecounting = false;
      this.ask('tellCounts', ['', '', '']);
    });
  }

  /** Asks for what changes nothing; the answer comes by itself, in no order with others. */
  async look(what, values) {
    for (;;) {
      try {
        return JSON.parse(await this.#call(what, values));
      } catch (error) {
        if (error instanceof ErrorReply || this.#isStopped) throw error;
        await pause(RETRY_MS);
      }
    }
  }

  #call(what, values) {
    return this.#client.sendCommand(['FCALL', `${library}_${what}`, '1', this.#options.prefix, ...values.map(String)]);
  }

  async #send(number) {
    const process = this.#process;
    const { operation, values, answer } = this.#requests.get(number);
    try {
      const outcome = await this.#call('run', [operation, process, number, ...values]);
      if (outcome === 'gone') this.#beBornAgain(process);
      else if (!answer) this.#requests.delete(number);
    } catch (error) {
      if (!(error instanceof ErrorReply)) return; // it is sent again when the connection is back
      console.error(`kvpim service: ${operation}: ${error.message}`);
      this.#requests.delete(number);
      answer?.(FAILED);
    }
  }

  // Redis may have lost the functions and this process, or say for a while that it is still loading.
  async #comeBack() {
    this.#isReady = false;
    while (!this.#isStopped) {
      try {
        await this.#client.sendCommand(['FUNCTION', 'LOAD', 'REPLACE', code]);
        if (!this.#process) await this.#enter();
        break;
      } catch (error) {
        if (!(error instanceof ErrorReply)) return; // the next connection begins anew
        if (!/^(LOADING|BUSY)/.test(error.message)) throw error;
        await pause(RETRY_MS);
      }
    }
    this.#isReady = true;
    for (const number of this.#requests.keys()) this.#send(number);
  }

  async #enter() {
    const process = randomUUID();
    await this.#call('enter', [process, this.#options.lease]);
    this.#process = process;
    this.passedOn = '0-0';
  }

  // Its sessions have ended for the others: their sockets must, and a new life begins.
  #beBornAgain(process) {
    if (process !== this.#process) return;
    this.#process = undefined;
    const unanswered = [...this.#requests.values()];
    this.#requests.clear();
    for (const { answer } of unanswered) answer?.(FAILED);
    this.#options.onGone();
    this.#comeBack();
  }

  async #read() {
    while (!this.#isStopped) {
      const process = this.#process;
      const found = process && (await this.#waitForEntries(process).catch(() => undefined));
      if (found === undefined) await pause(RETRY_MS);
      if (!found || process !== this.#process) continue;
      for (const [id, entry] of found[0][1]) {
        this.passedOn = id;
        this.#passOn(entry);
      }
      await nextTurn(); // the sockets have got it
      const [time, number] = this.passedOn.split('-');
      this.#reader.sendCommand(['XTRIM', this.#streamOf(process), 'MINID', `${time}-${Number(number) + 1}`]).catch(() => {});
    }
  }

  // null when there are none for a while.
  #waitForEntries(process) {
    const limits = ['COUNT', String(MOST_ENTRIES), 'BLOCK', String(LONGEST_WAIT_MS)];
    return this.#reader.sendCommand(['XREAD', ...limits, 'STREAMS', this.#streamOf(process), this.passedOn]);
  }

  // Either an answer, or what somebody is to be told.
  #passOn([what, json, appId, sockets]) {
    const content = JSON.parse(json);
    if (appId !== undefined) return this.#options.onTold(appId, sockets.split(' '), what, content);
    const number = Number(what);
    const answer = this.#requests.get(number)?.answer;
    this.#requests.delete(number);
    return answer?.(content);
  }

  #streamOf(process) {
    return `${this.#options.prefix}stream:${process}`;
  }

  async #renew() {
    const { lease } = this.#options;
    while (!this.#isStopped) {
      const process = this.#process;
      const outcome = process && (await this.#call('renew', [process, lease]).catch(() => undefined));
      if (outcome === 'gone') this.#beBornAgain(process);
      if (outcome === 'recounted') this.recount();
      if (outcome !== 'more') await pause(lease / RENEWALS_PER_LEASE, undefined, { ref: false });
    }
  }
}
