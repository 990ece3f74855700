#!/usr/bin/env node
// The same workloads with the JavaScript client of Socket.IO: what this library is compared with.
//     client.js PORT WORKLOAD OPS WARMUP [PEM]
'use strict';
const fs = require('fs');
const path = require('path');
const { createRequire } = require('module');
const { io } = createRequire(path.join(__dirname, '../service/package.json'))('socket.io-client');

const [port, workload] = process.argv.slice(2);
const [operations, warmUp] = process.argv.slice(4, 6).map(Number);
const ca = process.argv[6] && fs.readFileSync(process.argv[6]);  // of a server that speaks TLS
const TEXT = 'x'.repeat(64);
const BLOB = Buffer.alloc(32768, 4);
const LOGINS_AT_A_TIME = 50;

const cpuSeconds = () => {
  const { user, system } = process.cpuUsage();
  return (user + system) / 1e6;
};
const userSeconds = () => process.cpuUsage().user / 1e6;
const wallSeconds = () => Number(process.hrtime.bigint()) / 1e9;
const residentKiB = () => Number(/VmRSS:\s+(\d+)/.exec(fs.readFileSync('/proc/self/status', 'utf8'))[1]);

function percentile(values, share) {
  values.sort((a, b) => a - b);
  return Number(values[Math.min(values.length - 1, Math.floor(share * values.length))].toFixed(1));
}

function login() {
  return new Promise((resolve, reject) => {
    const socket = io(`${ca ? 'https' : 'http'}://127.0.0.1:${port}`, {
      transports: ['websocket'],
      reconnection: workload === 'reconnect',
      forceNew: true,
      ca,
      query: { app: 'bench', roomId: 'room-1', token: JSON.stringify({ userId: 'alice', token: 't' }) },
    });
    socket.once('loginSuccess', () => resolve(socket));
    socket.once('connect_error', reject);
  });
}

function logout(socket) {
  return new Promise((resolve) => {
    socket.once('disconnect', resolve);
    socket.disconnect();
  });
}

const textMessage = () => ({ targetUserId: 'bob', content: { text: TEXT, binary: null }, option: { offline: false } });
const binaryMessage = () => ({ targetUserId: 'bob', content: { text: null, binary: BLOB }, option: { offline: false } });

function pipelined(socket, count, depth, makeMessage) {
  return new Promise((resolve) => {
    let sent = 0;
    let answered = 0;
    const send = () => {
      sent++;
      socket.emit('command', 'sendMessageToPeer', makeMessage(), onAnswer);
    };
    const onAnswer = ({ result }) => {
      if (result !== 0) throw new Error('bad answer');
      answered++;
      if (sent < count) send();
      else if (answered === count) resolve();
    };
    for (let i = 0; i < depth && sent < count; i++) send();
  });
}

async function sequential(socket, count, latencies) {
  for (let i = 0; i < count; i++) {
    const start = wallSeconds();
    await new Promise((resolve) => socket.emit('command', 'sendMessageToPeer', textMessage(), resolve));
    latencies.push((wallSeconds() - start) * 1e6);
  }
}

function receive(socket, count, binary) {
  return new Promise((resolve, reject) => {
    const size = binary ? BLOB.length : TEXT.length;
    let received = 0;
    let bytes = 0;
    socket.removeAllListeners('MessageToPeerReceived');
    socket.on('MessageToPeerReceived', ({ msgs }) => {
      const { content } = msgs[0];
      received++;
      bytes += binary ? content.binary.length : content.text.length;
    });
    socket.once('floodEnd', () => {
      if (received === count && bytes === count * size) resolve();
      else reject(new Error(`received ${received} messages of ${bytes} bytes together`));
    });
    socket.emit('flood', { n: count, size, binary });
  });
}

/** Runs the warm-up and then, with the clocks, the operations; `columns` are further ones of the printed line. */
async function measure(run, { prepare = () => run(warmUp, []), columns = () => ({}) } = {}) {
  await prepare();
  const latencies = [];
  const [cpu, user, wall] = [cpuSeconds(), userSeconds(), wallSeconds()];
  await run(operations, latencies);
  const [cpuUsed, userUsed, wallUsed] = [cpuSeconds() - cpu, userSeconds() - user, wallSeconds() - wall];
  console.log(JSON.stringify({
    workload: (ca ? 'tls_' : '') + workload,
    client: 'js',
    ops: operations,
    wall_s: Number(wallUsed.toFixed(4)),
    cpu_s: Number(cpuUsed.toFixed(4)),
    cpu_us_per_op: Number((cpuUsed * 1e6 / operations).toFixed(3)),
    user_us_per_op: Number((userUsed * 1e6 / operations).toFixed(3)),
    ops_per_s: Math.round(operations / wallUsed),
    ...(latencies.length && { p50_us: percentile(latencies, 0.5), p99_us: percentile(latencies, 0.99) }),
    ...(await columns()),
    peak_rss_kb: process.resourceUsage().maxRSS,
  }));
}

async function connect() {
  const first = await login();
  const start = process.env.START_NS;
  const cold = {
    cold_ms: start ? Number((Date.now() - start / 1e6).toFixed(2)) : 0,
    cold_cpu_ms: Number((cpuSeconds() * 1e3).toFixed(2)),
  };
  await logout(first);
  const cycles = async (count, latencies) => {
    for (let i = 0; i < count; i++) {
      const begin = wallSeconds();
      const socket = await login();
      latencies.push((wallSeconds() - begin) * 1e6);
      await logout(socket);
    }
  };
  await measure(cycles, { columns: () => cold });
}

async function manyClients() {
  let before;
  const prepare = async () => {
    await logout(await login());
    before = residentKiB();
  };
  const sockets = [];
  const loginAll = async (count) => {
    while (sockets.length < count) {
      sockets.push(...await Promise.all(Array.from({ length: LOGINS_AT_A_TIME }, login)));
    }
  };
  const columns = async () => {
    await new Promise((resolve) => setTimeout(resolve, 1000));
    return { rss_kb_per_conn: Number(((residentKiB() - before) / operations).toFixed(2)) };
  };
  await measure(loginAll, { prepare, columns });
}

async function reconnect() {
  const sockets = [];
  while (sockets.length < operations) {
    sockets.push(...await Promise.all(Array.from({ length: LOGINS_AT_A_TIME }, login)));
  }
  const back = (socket) => new Promise((resolve) => {
    socket.once('loginSuccess', resolve);
    socket.emit('drop');
  });
  await measure(() => Promise.all(sockets.map(back)), { prepare: async () => {} });
}

async function main() {
  if (workload === 'connect') return connect();
  if (workload === 'reconnect') return reconnect();
  if (workload === 'many_clients') return manyClients();
  const socket = await login();
  const runs = {
    ack_pipelined: (count) => pipelined(socket, count, 64, textMessage),
    ack_sequential: (count, latencies) => sequential(socket, count, latencies),
    send_binary32k: (count) => pipelined(socket, count, 8, binaryMessage),
    recv_text: (count) => receive(socket, count, false),
    recv_binary32k: (count) => receive(socket, count, true),
  };
  return measure(runs[workload]);
}

main().then(() => process.exit(0), (error) => {
  console.error(error);
  process.exit(1);
});
