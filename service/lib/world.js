// The connections of one app: which user is on which socket of this process, and how users are told things.

import * as events from './events.js';

// A client closes its connection when it is told that it was disconnected; one that does not is cut off after this time.
const FAREWELL_MS = 5000;

export class World {
  #io;
  #activity;
  #sockets = new Map(); // user id -> the socket of the user's session
  state;

  constructor(io, store, appId, activity) {
    this.#io = io;
    this.#activity = activity;
    this.state = store.world(appId, (...told) => this.#tell(...told));
  }

  /** The socket of a user who has a session in this process. */
  socketOf(userId) {
    return this.#sockets.get(userId);
  }

  /** Begins a session on this socket; `begun` is called when the user has been told. */
  open(session, socket, begun) {
    this.state.open(session, () => {
      this.#sockets.set(session.userId, socket);
      socket.emit('loginSuccess', { connectionId: socket.id });
      begun();
    });
  }

  /** Ends a session whose socket is gone. */
  close(session) {
    if (this.#sockets.get(session.userId)?.id === session.socketId) this.#sockets.delete(session.userId);
    this.state.close(session);
  }

  // An event is encoded once for all its receivers.
  #tell(socketIds, event, ...items) {
    if (event === 'kickedOff') return socketIds.forEach((id) => this.#kickOff(id));
    const told = events[event](...items);
    // Without a recipient socket.io would send to everybody.
    if (told && socketIds.length > 0) this.#io.to(socketIds).emit(...told);
    const messages = socketIds.length * events.messagesIn(event, ...items);
    if (messages > 0) this.#activity.publish('delivered', { messages });
    return undefined;
  }

  #kickOff(socketId) {
    const socket = this.#io.sockets.sockets.get(socketId);
    if (socket) dismiss(socket, 'KickOff');
  }
}

/** Disconnects a socket from this side, telling it why when there is a reason. */
export function dismiss(socket, reason) {
  if (reason !== undefined) {
    socket.data.told = reason;
    socket.emit('disconnectReason', reason);
  }
  socket.disconnect();
  setTimeout(() => socket.conn.close(), FAREWELL_MS).unref();
}

/**
 * Makes a connection silent in both directions, as a network is that loses everything, or ends that: what was held back goes
 * on its way then.
 */
export function freeze(socket, isFrozen) {
  if ((socket.data.isFrozen ?? false) === isFrozen) return;
  socket.data.isFrozen = isFrozen;
  const webSocket = socket.conn.transport.socket;
  const { socket: tcp } = socket.request;
  if (isFrozen) {
    webSocket.pause(); // reads nothing more
    tcp.cork(); // whatever is written waits
  } else {
    tcp.uncork();
    webSocket.resume();
  }
}
