'use strict';
// The reference socket.io server, for the tests: echoes, pushes, and closes in every way. Ends with its standard input.
// Arguments: the package.json whose modules it uses; the settings of permessage-deflate as JSON, "false" for none.
const http = require('http');
const { createRequire } = require('module');
const { Server } = createRequire(process.argv[2])('socket.io');

const httpServer = http.createServer();
const io = new Server(httpServer, {
  transports: ['websocket'],
  serveClient: false,
  maxHttpBufferSize: 32 << 20,
  pingInterval: 300,
  pingTimeout: 10000,
  perMessageDeflate: JSON.parse(process.argv[3]),
});

io.use((socket, next) => {
  const { refuse } = socket.handshake.query;
  next(refuse ? new Error(refuse) : undefined);
});

io.on('connection', (socket) => {
  socket.emit('loginSuccess', { query: socket.handshake.query });
  socket.on('echo', (...items) => {
    const answer = items.pop();
    if (typeof answer === 'function') answer(...items);
    else socket.emit('echoed', ...items, answer);
  });
  socket.on('push', (count) => {
    for (let i = 0; i < count; i += 1) socket.emit('pushed', i, Buffer.alloc(i % 7, i % 256));
  });
  socket.on('ask', () => socket.emit('question', 1, (...answer) => socket.emit('event', ...answer)));
  socket.on('leaveMe', () => socket.disconnect());
  socket.on('closeMe', () => socket.disconnect(true));
  socket.on('dropMe', () => socket.conn.transport.socket.terminate());
  socket.on('disconnect', (reason) => process.stdout.write(`left: ${reason}\n`));
});

httpServer.listen(0, '127.0.0.1', () => process.stdout.write(`${httpServer.address().port}\n`));
process.stdin.on('end', () => process.exit(0)).resume();
