// The users of one app as the service sees them now: who is connected on which socket, how they are told things, and
// what begins and ends with a connection. Apps are worlds apart.

import * as events from './events.js';
import { MemberCounts } from './member-counts.js';

// A client closes its connection when it is told that it was disconnected; one that does not is cut off after this time.
const FAREWELL_MS = 5000;

export class World {
  #io;
  #sessions = new Map(); // user id -> { userId, socket, since }

  constructor(io, store, { activity, limits, now }) {
    this.#io = io;
    this.store = store;
    this.activity = activity;
    this.limits = limits;
    this.now = now;
    this.memberCounts = new MemberCounts(this);
  }

  session(userId) {
    return this.#sessions.get(userId);
  }

  /** Emits one event to those of the users who are connected, and returns how many. It is encoded once for all of them. */
  push(userIds, event, item) {
    const sockets = [];
    for (const userId of userIds) {
      const session = this.#sessions.get(userId);
      if (session) sockets.push(session.socket.id);
    }
    // Without a recipient socket.io would send to everybody.
    if (sockets.length > 0) this.#io.to(sockets).emit(event, item);
    return sockets.length;
  }

  /** Begins the user's session on this socket. A user has one session: an older one is told and ends. */
  open(userId, socket) {
    const older = this.#sessions.get(userId);
    if (older) {
      this.#forget(older);
      dismiss(older.socket, 'KickOff');
    }
    const session = { userId, socket, since: this.now() };
    this.#sessions.set(userId, session);
    this.store.connect(userId);
    socket.emit('loginSuccess', { connectionId: socket.id });
    const kept = this.store.takeMessages(userId);
    if (kept.length > 0) events.peerMessages(this, userId, kept);
    if (!older) events.statusChanged(this, userId);
    return session;
  }

  /** Ends a session whose socket is gone; nothing is left to do when a newer session has already ended it. */
  close(session) {
    if (this.#sessions.get(session.userId) !== session) return;
    this.#forget(session);
    events.statusChanged(this, session.userId);
  }

  #forget({ userId }) {
    const channels = this.store.channelsOf(userId);
    const attributes = this.store.userAttributes(userId);
    this.#sessions.delete(userId);
    this.store.disconnect(userId);
    for (const channelId of channels) {
      events.memberLeft(this, channelId, userId, 'Disconnect');
      this.memberCounts.changed(channelId);
    }
    events.userAttributesChanged(this, userId, attributes, new Map());
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
