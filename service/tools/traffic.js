#!/usr/bin/env node
// Clients that talk, so that there is something to look at: node tools/traffic.js URL [CLIENTS] [SECONDS] [PER_SECOND]
// Some say what is refused; now and then one loses its connection and comes back.

import { io } from 'socket.io-client';

const [url, ...numbers] = process.argv.slice(2);
const [count = 12, seconds = 60, perSecond = 2 * count] = numbers.map(Number);
if (!url || ![count, seconds, perSecond].every((number) => number > 0 && number <= 100_000)) {
  process.stderr.write('usage: traffic.js URL [CLIENTS] [SECONDS] [PER_SECOND]\n');
  process.exit(2);
}

const NAMES = ['ada', 'ben', 'cleo', 'dan', 'eva', 'finn', 'gus', 'hana', 'ida', 'jon', 'kim', 'leo', 'mia', 'noah', 'olga', 'pia'];
const CHANNELS = ['kitchen', 'garden', 'harbour', 'library'];
const TICK_MS = 50;

// The processes of a cluster are handed out in turn.
const discover = async () => (await (await fetch(`${url}/config/api/v1/pim-server?appId=demo`)).json()).data.brivelServers[0];
const servers = await Promise.all(Array.from({ length: Math.min(count, 64) }, discover));

const clients = Array.from({ length: count }, (_, i) => {
  // Channels stay small, so that a crowd does not drown in its own messages.
  return i < NAMES.length ? connect(i, NAMES[i], CHANNELS[i % CHANNELS.length]) : connect(i, `user-${i}`, `room-${Math.floor(i / 8)}`);
});
const any = (list) => list[Math.floor(Math.random() * list.length)];

function connect(i, userId, channelId) {
  const token = JSON.stringify({ token: '0123456789abcdef0123456789abcdef', userId, timestamp: Date.now(), connectTimeStamp: Date.now() });
  const socket = io(servers[i % servers.length], { transports: ['websocket'], forceNew: true, reconnectionDelay: 300, query: { app: 'brivel', roomId: 'demo', token } });
  socket.on('loginSuccess', () => ask({ socket }, 'join', { channelId }));
  return { socket, userId, channelId };
}

function ask({ socket }, command, payload) {
  socket.emit('command', command, payload, () => {});
}

const asks = [
  [50, (client) => ask(client, 'sendChannelMessage', { channelId: client.channelId, content: { text: 'hello' } })],
  [22, (client) => ask(client, 'sendMessageToPeer', { targetUserId: any(clients).userId, content: { text: 'you too' } })],
  [10, (client) => ask(client, 'getChannelMembers', { channelId: client.channelId })],
  [8, (client) => ask(client, 'addOrUpdateLocalUserAttributes', { attributes: { mood: 'good' } })],
  [5, (client) => ask(client, 'queryPeersOnlineStatus', { userIds: [any(clients).userId] })],
  [4, (client) => ask(client, 'getChannelMembers', { channelId: 'attic' })], // not a member
  [0.3, ({ socket }) => socket.io.engine?.close()],
];
const weights = asks.reduce((sum, [weight]) => sum + weight, 0);

function act(client) {
  let drawn = Math.random() * weights;
  asks.find(([weight]) => (drawn -= weight) < 0)[1](client);
}

// It swells and ebbs, as real traffic does.
let owed = 0;
const start = Date.now();
const timer = setInterval(() => {
  const at = (Date.now() - start) / 1000;
  if (at > seconds) {
    clearInterval(timer);
    for (const { socket } of clients) socket.disconnect();
    return;
  }
  owed += (perSecond * TICK_MS * (1 + 0.5 * Math.sin(at / 7) + 0.3 * Math.sin(at / 2.3))) / 1000;
  for (; owed >= 1; owed -= 1) {
    const client = any(clients);
    if (client.socket.connected) act(client);
  }
}, TICK_MS);
process.once('SIGTERM', () => process.exit(0)).once('SIGINT', () => process.exit(0));
