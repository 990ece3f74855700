// A Redis of the cluster's own: on a free port of this machine, in a directory of its own, and gone with it.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm } from 'node:fs/promises';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

const READY = 'Ready to accept connections';
const MOST_ATTEMPTS = 5;

export class RedisServer {
  #child;
  #directory;
  #port;

  get url() {
    return `redis://127.0.0.1:${this.#port}`;
  }

  get pid() {
    return this.#child.pid;
  }

  async start() {
    this.#directory = await mkdtemp(join(tmpdir(), 'kvpim-redis-'));
    for (let attempt = 1; ; attempt += 1) {
      this.#port = await freePort();
      try {
        return await this.#run();
      } catch (error) {
        if (attempt === MOST_ATTEMPTS) throw error; // else somebody else has taken the port meanwhile
      }
    }
  }

  /** Ends it and starts it again, with what it had written. */
  async restart() {
    await this.#end();
    await this.#run();
  }

  async stop() {
    await this.#end();
    await rm(this.#directory, { recursive: true, force: true });
  }

  async #run() {
    const options = { port: this.#port, bind: '127.0.0.1', dir: this.#directory, appendonly: 'yes', save: '' };
    const words = Object.entries(options).flatMap(([name, value]) => [`--${name}`, String(value)]);
    // So that it does not outlive a service that is killed; and not in reach of the terminal's Ctrl-C, before the others end.
    const child = spawn('setpriv', ['--pdeathsig', 'TERM', 'redis-server', ...words], { detached: true });
    this.#child = child;
    let said = '';
    const ready = new Promise((resolve, reject) => {
      child.once('error', reject);
      child.once('close', () => reject(new Error(`redis-server does not run: ${said.trim().split('\n').at(-1)}`)));
      const listen = (data) => {
        said = (said + data).slice(-10_000);
        if (said.includes(READY)) resolve();
      };
      child.stdout.on('data', listen);
      child.stderr.on('data', listen);
    });
    await ready;
  }

  async #end() {
    if (!this.#child || this.#child.exitCode !== null || this.#child.signalCode !== null) return;
    const ended = once(this.#child, 'close');
    this.#child.kill('SIGTERM');
    await ended;
  }
}

async function freePort() {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  return port;
}
