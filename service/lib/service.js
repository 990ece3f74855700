// Puts the service together: one HTTP server that answers discovery and carries the WebSocket connections.

import { createServer } from 'node:http';
import { createServer as createTlsServer } from 'node:https';
import { Server } from 'socket.io';

import { Activity } from './activity.js';
import { Collector } from './collector.js';
import { prepareConfig } from './config.js';
import { serveConnection } from './connections.js';
import { createControl } from './control.js';
import { createRequestHandler } from './http.js';
import { Lives } from './lives.js';
import { Overview } from './overview.js';
import { createPage } from './page.js';
import { Scripts } from './scripts.js';
import { MemoryStore } from './memory-store.js';
import { World } from './world.js';

const SOCKET_OPTIONS = {
  transports: ['websocket'],
  // The threshold counts only without context takeover; otherwise every small push is deflated, on a thread of its own.
  perMessageDeflate: { threshold: 1024, serverNoContextTakeover: true },
  maxHttpBufferSize: 16 * 1024 * 1024,
  serveClient: false,
};

/**
 * A service that is not listening yet.
 * @param config     what a configuration file holds; all fields are optional
 * @param rateLimit  requests that one connection may make in a second; absent: any number
 * @param control    whether the control endpoints are there
 * @param pingInterval, pingTimeout  of each connection, in milliseconds
 * @param tls        { cert, key } in PEM; absent: plain HTTP
 * @param now        the clock, in milliseconds since 1970
 * @param store      what keeps the state (store.js); absent: this process's memory
 */
export function createService({
  config = {},
  rateLimit,
  control = false,
  pingInterval = 25_000,
  pingTimeout = 20_000,
  tls,
  now = Date.now,
  store = new MemoryStore(prepareConfig(config).limits),
} = {}) {
  const httpServer = tls ? createTlsServer(tls) : createServer();
  const io = new Server({ ...SOCKET_OPTIONS, pingInterval, pingTimeout });
  const prepared = prepareConfig(config);
  const worlds = new Map();
  const activity = new Activity(now);

  const service = {
    config: prepared,
    rateLimit,
    now,
    activity,
    lives: new Lives(activity),
    scripts: new Scripts(),
    collector: new Collector(),
    store,
    worlds,

    world(appId) {
      let world = worlds.get(appId);
      if (!world) {
        world = new World(io, store, appId, activity);
        worlds.set(appId, world);
      }
      return world;
    },

    /** Starts listening and resolves with the base URL; rejects when the address cannot be had. */
    async start(host, port) {
      await new Promise((resolve, reject) => {
        httpServer.once('error', reject).listen(port, host, resolve);
      });
      service.baseUrl = urlOf(tls, host, httpServer.address().port);
      return service.baseUrl;
    },

    /** Takes a connection that came to another listener of this process. */
    take(connection) {
      httpServer.emit('connection', connection);
    },

    /** Where a client connects to that asked for `host`, if that is a good one: at the same address. */
    serverFor: (host) => (host ? `${schemeOf(tls)}://${host}` : service.baseUrl),

    /** Cuts all connections, as a failing network would. */
    cutAll() {
      for (const socket of io.sockets.sockets.values()) socket.conn.close();
    },

    /** Closes the address and all connections. */
    async stop() {
      httpServer.closeAllConnections();
      await io.close();
    },
  };

  service.overview = new Overview(service);
  // Socket.io takes over the listeners that are there when it attaches, and leaves them what is not its own.
  const page = createPage(service, control);
  httpServer.on('request', createRequestHandler(service, page, control ? createControl(service) : undefined));
  io.attach(httpServer);
  io.on('connection', (socket) => serveConnection(socket, service));
  return service;
}

export const schemeOf = (tls) => (tls ? 'https' : 'http');

export function urlOf(tls, host, port) {
  const name = host.includes(':') && !host.startsWith('[') ? `[${host}]` : host;
  return `${schemeOf(tls)}://${name}:${port}`;
}
