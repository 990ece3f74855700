#!/usr/bin/env node
// The server of the benchmarks: discovery, login, acknowledgements, and messages as fast as a client takes them.
// Prints "PORT n", and ends with its standard input.
//     server.js [PEM]    over TLS with the certificate and key of this file
'use strict';
const fs = require('fs');
const http = require('http');
const https = require('https');
const net = require('net');
const path = require('path');
const { createRequire } = require('module');
const { Server } = createRequire(path.join(__dirname, '../service/package.json'))('socket.io');

const ADDRESSES = 8;
const TEXT_BYTES = 64;
const BINARY_BYTES = 32768;
const MESSAGES_IN_A_WRITE = { text: 256, binary: 8 };
const FROM = ['alice', 'carol', 'dave', 'erin'];

const pem = process.argv[2] && fs.readFileSync(process.argv[2]);
const scheme = pem ? 'https' : 'http';

function answerDiscovery(request, response) {
  const data = { brivelServers: [`${scheme}://${request.headers.host}`] };
  response.end(JSON.stringify({ code: 200, data }));
}

const httpServer = pem ? https.createServer({ cert: pem, key: pem }, answerDiscovery) : http.createServer(answerDiscovery);
const io = new Server(httpServer, {
  transports: ['websocket'],
  serveClient: false,
  maxHttpBufferSize: 16 << 20,
  perMessageDeflate: false,
});

function message(number, content) {
  return ['MessageToPeerReceived',
    { msgs: [{ fromUserId: FROM[number & 3], serverReceivedTs: 1700000000000 + number, content }] }];
}

function frame(opcode, body) {
  const length = body.length < 126 ? Buffer.from([body.length]) : Buffer.from([126, body.length >> 8, body.length & 255]);
  return Buffer.concat([Buffer.from([0x80 | opcode]), length, body]);
}

function frames(kind, number) {
  if (kind === 'text') {
    const text = `message body number ${number} `.padEnd(TEXT_BYTES, 'abcdefghij');
    return frame(1, Buffer.from(`42${JSON.stringify(message(number, { text, binary: null }))}`));
  }
  const bytes = Buffer.from(Array.from({ length: BINARY_BYTES }, (_, at) => (at * 31 + number * 7 + 4) & 255));
  const event = message(number, { text: null, binary: { _placeholder: true, num: 0 } });
  return Buffer.concat([frame(1, Buffer.from(`451-${JSON.stringify(event)}`)), frame(2, bytes)]);
}

// Ready-made pieces, so that the client and not this process is the one that has to work.
const pieces = new Map();
function pieceOf(kind, count) {
  const key = `${kind} ${count}`;
  if (!pieces.has(key)) pieces.set(key, Buffer.concat(Array.from({ length: count }, (_, i) => frames(kind, i))));
  return pieces.get(key);
}

const connectionOf = (socket) => socket.conn.transport.socket._socket;

// The client finds its connection lost, not closed by anyone.
const drop = (socket) => connectionOf(socket).destroy();

function flood(socket, kind, count) {
  const connection = connectionOf(socket);
  let left = count;
  const step = () => {
    for (let taken = true; left > 0 && taken;) {
      const some = Math.min(MESSAGES_IN_A_WRITE[kind], left);
      left -= some;
      taken = connection.write(pieceOf(kind, some));
    }
    if (left > 0) connection.once('drain', step);
    else socket.emit('floodEnd', { n: count });
  };
  step();
}

io.on('connection', (socket) => {
  socket.on('command', (name, { targetUserId, content }, answer) => {
    answer({ result: 0 });
    if (targetUserId === 'flood-text') flood(socket, 'text', Number(content.text));
    if (targetUserId === 'flood-binary') flood(socket, 'binary', Number(content.text));
    if (targetUserId === 'me') socket.emit(...message(0, content));
    if (targetUserId === 'drop') drop(socket);
  });
  socket.on('drop', () => drop(socket));
  socket.on('flood', ({ n, binary }) => flood(socket, binary ? 'binary' : 'text', n));
  socket.emit('loginSuccess', { connectionId: socket.id });
});

// One address has too few ports for fifty thousand connections.
httpServer.listen(0, '127.0.0.1', 16384, () => {
  const { port } = httpServer.address();
  for (let i = 2; i <= ADDRESSES; i++) {
    net.createServer((connection) => httpServer.emit('connection', connection)).listen(port, `127.0.0.${i}`, 16384);
  }
  console.log(`PORT ${port}`);
});
process.stdin.once('end', () => process.exit(0)).resume();
