// How much the local service carries as one process in memory, and as a cluster of 1, 2 and 3 processes upon one Redis: logins
// and messages of one user to another, and what these cost.   node bench/cluster.js [CLIENTS] [MESSAGES]

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';

import { RedisServer } from '../service/lib/redis-server.js';

const require = createRequire(new URL('../service/main.js', import.meta.url));
const { createClient } = require('@redis/client');
const { io } = require('socket.io-client');

const [clientCount = 10_000, messageCount = 40_000] = process.argv.slice(2).map(Number);
const LOGINS_AT_A_TIME = 100;
const SENDERS = 400;
const UNDER_WAY = 5; // messages of each sender that are not acknowledged yet
const TICKS_PER_SECOND = 100;

async function startService(words) {
  const main = new URL('../service/main.js', import.meta.url).pathname;
  const child = spawn(process.execPath, [main, '--port', '0', '--control', '--quiet', '--exit-with-stdin', ...words], { stdio: ['pipe', 'pipe', 'inherit'] });
  const [line] = await once(child.stdout, 'data');
  return { child, url: /http:\S+/.exec(line)[0] };
}

async function logIn(url, i) {
  const discovered = await (await fetch(`${url}/config/api/v1/pim-server?appId=bench`)).json();
  const token = JSON.stringify({ token: 't'.repeat(32), userId: `user${i}`, timestamp: 1 });
  const options = { transports: ['websocket'], forceNew: true, query: { app: 'brivel', roomId: 'bench', token } };
  const socket = io(discovered.data.brivelServers[0], options);
  await new Promise((resolve) => socket.once('loginSuccess', resolve));
  return socket;
}

/** Runs `work(i)` for all i, so many at a time. */
async function each(count, atATime, work) {
  let next = 0;
  const worker = async () => {
    while (next < count) await work(next++);
  };
  await Promise.all(Array.from({ length: atATime }, worker));
}

async function talk(sockets) {
  let received = 0;
  let done;
  const all = new Promise((resolve) => (done = resolve));
  for (const socket of sockets) socket.on('MessageToPeerReceived', ({ msgs }) => (received += msgs.length) >= messageCount && done());
  const times = [];
  await each(messageCount, Math.min(SENDERS, sockets.length) * UNDER_WAY, async (i) => {
    const began = performance.now();
    const payload = { targetUserId: `user${(i * 7919 + 1) % sockets.length}`, content: { text: 'hello' } };
    const { result } = await sockets[i % Math.min(SENDERS, sockets.length)].emitWithAck('command', 'sendMessageToPeer', payload);
    if (result !== 0) throw new Error(`a message was answered with ${result}`);
    times.push(performance.now() - began);
  });
  await all;
  for (const socket of sockets) socket.off('MessageToPeerReceived');
  return times.sort((a, b) => a - b);
}

// Processor seconds of a process.
function cpuOf(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').replace(/^.*\) /, '').split(' ');
  return (Number(fields[11]) + Number(fields[12])) / TICKS_PER_SECOND;
}

async function callsOf(redis) {
  const stats = await redis.sendCommand(['INFO', 'commandstats']);
  const count = (name) => Number(new RegExp(`cmdstat_${name}:calls=(\\d+)`).exec(stats)?.[1] ?? 0);
  return { fcall: count('fcall'), xread: count('xread'), xtrim: count('xtrim') };
}

async function measure(processes) {
  const server = processes > 0 ? new RedisServer() : undefined;
  await server?.start();
  const redis = server && createClient({ url: server.url });
  await redis?.connect();
  const { child, url } = await startService(processes > 0 ? ['--cluster', String(processes), '--redis', server.url] : []);
  const members = processes > 0 ? (await (await fetch(`${url}/control/processes`)).json()).processes.map(({ pid }) => pid) : [];
  const cpu = () => [[child.pid, ...members], server ? [server.pid] : [], ['self']].map((pids) => pids.reduce((sum, pid) => sum + cpuOf(pid), 0));

  const sockets = [];
  const loginBegan = performance.now();
  await each(clientCount, LOGINS_AT_A_TIME, async (i) => (sockets[i] = await logIn(url, i)));
  const loginSeconds = (performance.now() - loginBegan) / 1000;
  const before = { cpu: cpu(), calls: redis && (await callsOf(redis)), at: performance.now() };
  const times = await talk(sockets);
  const seconds = (performance.now() - before.at) / 1000;
  const [service, ofRedis, ofClients] = cpu().map((now, i) => Math.round(((now - before.cpu[i]) * 1e6) / messageCount));
  const calls = redis && (await callsOf(redis));
  const perMessage = (name) => (calls ? ((calls[name] - before.calls[name]) / messageCount).toFixed(2) : '-');
  const row = {
    service: processes > 0 ? `cluster of ${processes}` : 'one, in memory',
    'logins/s': Math.round(clientCount / loginSeconds),
    'messages/s': Math.round(messageCount / seconds),
    'median ms': times[times.length >> 1].toFixed(1),
    'p99 ms': times[Math.floor(times.length * 0.99)].toFixed(1),
    'FCALL each': perMessage('fcall'),
    'XREAD each': perMessage('xread'),
    'XTRIM each': perMessage('xtrim'),
    'service us': service, // of a processor, for each message; so are the next two
    'Redis us': ofRedis,
    'clients us': ofClients,
  };
  for (const socket of sockets) socket.disconnect();
  await redis?.close();
  child.stdin.end();
  await once(child, 'exit');
  await server?.stop();
  return row;
}

const rows = [];
for (const processes of [0, 1, 2, 3]) {
  rows.push(await measure(processes));
  console.error(`${rows.at(-1).service}: ${rows.at(-1)['messages/s']} messages per second`);
}
console.log(`${clientCount} clients in one process, ${messageCount} messages of one to another`);
console.table(rows);
process.exit(0);
