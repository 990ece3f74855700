// What the service knows about the users and channels of its apps, kept in memory.
//
// Everything else in the service reaches this state through a MemoryStore and the worlds that it hands out, and only
// through their methods, so another class with the same methods can take its place. Answers are given at once: a store
// that keeps its data elsewhere holds what it needs here and writes behind. Lists and maps that are handed out are the
// caller's to read, never to change.

export class MemoryStore {
  #worlds = new Map();

  /** The state of one app. Apps share nothing. */
  world(appId) {
    let world = this.#worlds.get(appId);
    if (!world) this.#worlds.set(appId, (world = new MemoryWorld()));
    return world;
  }
}

/** The two kinds of subscription to a peer. */
export const STATUS = 'status';
export const ATTRIBUTES = 'attributes';

const NONE = new Map();

class MemoryWorld {
  #known = new Set();
  #connected = new Map(); // user id -> what lasts as long as the user's connection
  #channels = new Map(); // channel id -> { members, attributes }; absent when both are empty
  #subscribers = { [STATUS]: new Map(), [ATTRIBUTES]: new Map() }; // peer id -> ids of the users who watch that peer
  #kept = new Map(); // user id -> messages that wait for the user
  #invitations = new Map(); // in order of expiry

  // Users and their connections

  connect(userId) {
    this.#known.add(userId);
    this.#connected.set(userId, {
      channels: new Set(),
      attributes: NONE,
      subscriptions: { [STATUS]: new Set(), [ATTRIBUTES]: new Set() },
    });
  }

  /** Forgets what lasts only as long as a connection. */
  disconnect(userId) {
    for (const channelId of this.channelsOf(userId)) this.leaveChannel(channelId, userId);
    for (const kind of [STATUS, ATTRIBUTES]) this.unsubscribe(kind, userId, this.subscriptionsOf(kind, userId));
    this.#connected.delete(userId);
  }

  isConnected(userId) {
    return this.#connected.has(userId);
  }

  /** True once the user has ever connected. */
  isKnown(userId) {
    return this.#known.has(userId);
  }

  knownUsers() {
    return [...this.#known];
  }

  // Channels

  joinChannel(channelId, userId) {
    this.#channel(channelId).members.add(userId);
    this.#connected.get(userId).channels.add(channelId);
  }

  leaveChannel(channelId, userId) {
    this.#channel(channelId).members.delete(userId);
    this.#connected.get(userId).channels.delete(channelId);
    this.#dropIfUnused(channelId);
  }

  isMember(channelId, userId) {
    return this.#channels.get(channelId)?.members.has(userId) ?? false;
  }

  /** In the order of joining. */
  membersOf(channelId) {
    return [...(this.#channels.get(channelId)?.members ?? [])];
  }

  memberCount(channelId) {
    return this.#channels.get(channelId)?.members.size ?? 0;
  }

  channelsOf(userId) {
    return [...(this.#connected.get(userId)?.channels ?? [])];
  }

  channelCount(userId) {
    return this.#connected.get(userId).channels.size;
  }

  channels() {
    return [...this.#channels.keys()];
  }

  channelAttributes(channelId) {
    return this.#channels.get(channelId)?.attributes ?? NONE;
  }

  setChannelAttributes(channelId, attributes) {
    this.#channel(channelId).attributes = attributes;
    this.#dropIfUnused(channelId);
  }

  #channel(channelId) {
    let channel = this.#channels.get(channelId);
    if (!channel) this.#channels.set(channelId, (channel = { members: new Set(), attributes: NONE }));
    return channel;
  }

  #dropIfUnused(channelId) {
    const { members, attributes } = this.#channels.get(channelId);
    if (members.size === 0 && attributes.size === 0) this.#channels.delete(channelId);
  }

  // Attributes of connected users

  userAttributes(userId) {
    return this.#connected.get(userId)?.attributes ?? NONE;
  }

  setUserAttributes(userId, attributes) {
    this.#connected.get(userId).attributes = attributes;
  }

  // Subscriptions to peers, who need not be known

  subscribe(kind, userId, peerIds) {
    const own = this.#connected.get(userId).subscriptions[kind];
    for (const peerId of peerIds) {
      own.add(peerId);
      const users = this.#subscribers[kind].get(peerId);
      if (users) users.add(userId);
      else this.#subscribers[kind].set(peerId, new Set([userId]));
    }
  }

  unsubscribe(kind, userId, peerIds) {
    const own = this.#connected.get(userId).subscriptions[kind];
    for (const peerId of peerIds) {
      if (!own.delete(peerId)) continue;
      const users = this.#subscribers[kind].get(peerId);
      users.delete(userId);
      if (users.size === 0) this.#subscribers[kind].delete(peerId);
    }
  }

  subscriptionsOf(kind, userId) {
    return [...(this.#connected.get(userId)?.subscriptions[kind] ?? [])];
  }

  isSubscribed(kind, userId, peerId) {
    return this.#connected.get(userId).subscriptions[kind].has(peerId);
  }

  subscriptionCount(kind, userId) {
    return this.#connected.get(userId).subscriptions[kind].size;
  }

  subscribersOf(kind, peerId) {
    return [...(this.#subscribers[kind].get(peerId) ?? [])];
  }

  // Messages kept for users who are not connected

  keepMessage(userId, message) {
    const messages = this.#kept.get(userId);
    if (messages) messages.push(message);
    else this.#kept.set(userId, [message]);
  }

  keptMessageCount(userId) {
    return this.#kept.get(userId)?.length ?? 0;
  }

  /** Hands the kept messages over, in the order in which they came. */
  takeMessages(userId) {
    const messages = this.#kept.get(userId) ?? [];
    this.#kept.delete(userId);
    return messages;
  }

  // Pending invitations, at most one from one user to another

  putInvitation(invitation, expiresAt, now) {
    const key = invitationKey(invitation.inviter, invitation.invitee);
    this.#invitations.delete(key);
    this.#invitations.set(key, { invitation, expiresAt });
    for (const [old, entry] of this.#invitations) {
      if (entry.expiresAt > now) break;
      this.#invitations.delete(old);
    }
  }

  pendingInvitation(inviter, invitee, now) {
    const entry = this.#invitations.get(invitationKey(inviter, invitee));
    return entry && entry.expiresAt > now ? entry.invitation : undefined;
  }

  removeInvitation(inviter, invitee) {
    this.#invitations.delete(invitationKey(inviter, invitee));
  }

  pendingInvitations(now) {
    return [...this.#invitations.values()].filter((entry) => entry.expiresAt > now).map((entry) => entry.invitation);
  }
}

function invitationKey(inviter, invitee) {
  return JSON.stringify([inviter, invitee]);
}
