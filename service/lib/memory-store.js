// The store of a service that is one process: everything is in memory, and forgotten when it stops.

import { areWithin, toWire } from './attributes.js';
import { ATTRIBUTES, INVITATION_MS, STATUS } from './store.js';

export class MemoryStore {
  #worlds = new Map();
  #limits;

  constructor(limits) {
    this.#limits = limits;
  }

  world(appId, tell) {
    const world = new MemoryWorld(this.#limits, tell);
    this.#worlds.set(appId, world);
    return world;
  }

  describe(now, answer) {
    answer(Object.fromEntries([...this.#worlds].map(([appId, world]) => [appId, world.describe(now)])));
  }

  greatestChannels(most, mostMembers, answer) {
    const all = [...this.#worlds].flatMap(([app, world]) => world.channels().map((channel) => ({ app, ...channel })));
    all.sort((a, b) => b.members.size - a.members.size);
    const shown = all.slice(0, most).map(({ app, channelId, members }) => {
      return { app, channelId, count: members.size, members: [...members.keys()].slice(0, mostMembers) };
    });
    answer({ total: all.length, shown });
  }
}

const NONE = new Map();
const DONE = { result: 0 };

class MemoryWorld {
  #limits;
  #tell;
  #known = new Set(); // whoever has ever had a session
  #connected = new Map(); // user id -> the session, with what lasts as long as it
  #channels = new Map(); // channel id -> { members: Map of user id -> socket id, attributes }; absent when both are empty
  #subscribers = { [STATUS]: new Map(), [ATTRIBUTES]: new Map() }; // peer id -> ids of the users who watch that peer
  #kept = new Map(); // user id -> messages that wait for the user
  #invitations = new Map(); // at most one from one user to another; in order of expiry
  #recounted = new Set(); // channels whose members are still to be told how many they are

  constructor(limits, tell) {
    this.#limits = limits;
    this.#tell = tell;
  }

  // Sessions

  open({ userId, socketId, since }, answer) {
    const older = this.#connected.get(userId);
    if (older) {
      this.#forget(userId);
      this.#tell([older.socketId], 'kickedOff');
    }
    this.#known.add(userId);
    const subscriptions = { [STATUS]: new Set(), [ATTRIBUTES]: new Set() };
    this.#connected.set(userId, { socketId, since, channels: new Set(), attributes: NONE, subscriptions });
    answer(DONE);
    const kept = this.#kept.get(userId);
    this.#kept.delete(userId);
    if (kept) this.#tell([socketId], 'peerMessages', kept);
    if (!older) this.#tellStatus(userId);
  }

  close({ userId, socketId }) {
    if (this.#connected.get(userId)?.socketId !== socketId) return;
    this.#forget(userId);
    this.#tellStatus(userId);
  }

  #forget(userId) {
    const { channels, attributes, subscriptions } = this.#connected.get(userId);
    for (const kind of [STATUS, ATTRIBUTES]) this.#unwatch(kind, userId, subscriptions[kind]);
    for (const channelId of channels) this.#part(channelId, userId, 'Disconnect');
    this.#connected.delete(userId);
    this.#tellAttributes(userId, attributes, NONE);
  }

  #tellStatus(userId) {
    this.#tell(this.#watchers(STATUS, userId), 'peersStatus', { [userId]: this.#connected.has(userId) });
  }

  // Channels

  join({ userId, socketId }, channelId, answer) {
    const { channels } = this.#connected.get(userId);
    if (channels.has(channelId)) return answer(DONE);
    if (channels.size >= this.#limits.channelsPerUser) return answer({ result: 5 });
    const { members } = this.#channel(channelId);
    if (members.size >= this.#limits.membersPerChannel) {
      this.#dropIfUnused(channelId);
      return answer({ result: 6 });
    }
    this.#tell([...members.values()], 'memberJoined', channelId, userId);
    members.set(userId, socketId);
    channels.add(channelId);
    this.#recount(channelId);
    return answer(DONE);
  }

  leave({ userId }, channelId, answer) {
    const { channels } = this.#connected.get(userId);
    if (!channels.delete(channelId)) return answer({ result: 6 });
    this.#part(channelId, userId, 'Quit');
    return answer(DONE);
  }

  #part(channelId, userId, reason) {
    const { members } = this.#channels.get(channelId);
    members.delete(userId);
    this.#tell([...members.values()], 'memberLeft', channelId, userId, reason);
    this.#recount(channelId);
    this.#dropIfUnused(channelId);
  }

  members({ userId }, channelId, answer) {
    const members = this.#membersOf(channelId);
    answer(members.has(userId) ? { result: 0, members: [...members.keys()] } : { result: 5 });
  }

  memberCounts(session, channelIds, answer) {
    answer({ result: 0, counts: this.#counts(channelIds) });
  }

  sendToChannel({ userId }, channelId, serverReceivedTs, content, answer) {
    const members = this.#membersOf(channelId);
    if (!members.has(userId)) return answer({ result: 5 });
    const others = [...members].filter(([id]) => id !== userId).map(([, socketId]) => socketId);
    this.#tell(others, 'channelMessage', channelId, userId, serverReceivedTs, content);
    return answer(DONE);
  }

  channels() {
    return [...this.#channels].map(([channelId, channel]) => ({ channelId, ...channel }));
  }

  #membersOf(channelId) {
    return this.#channels.get(channelId)?.members ?? NONE;
  }

  #counts(channelIds) {
    return Object.fromEntries(Array.from(channelIds, (channelId) => [channelId, this.#membersOf(channelId).size]));
  }

  #channel(channelId) {
    let channel = this.#channels.get(channelId);
    if (!channel) this.#channels.set(channelId, (channel = { members: new Map(), attributes: NONE }));
    return channel;
  }

  #dropIfUnused(channelId) {
    const { members, attributes } = this.#channels.get(channelId);
    if (members.size === 0 && attributes.size === 0) this.#channels.delete(channelId);
  }

  // All changes of one turn make one push per user, and it names all channels of that user: clients take a channel that a
  // push does not mention for an empty one.
  #recount(channelId) {
    if (this.#recounted.size === 0) setImmediate(() => this.#tellCounts());
    this.#recounted.add(channelId);
  }

  #tellCounts() {
    const userIds = new Set([...this.#recounted].flatMap((channelId) => [...this.#membersOf(channelId).keys()]));
    this.#recounted.clear();
    for (const userId of userIds) {
      const { socketId, channels } = this.#connected.get(userId);
      this.#tell([socketId], 'memberCounts', this.#counts(channels));
    }
  }

  // Attributes

  editChannelAttributes(session, channelId, edit, notify, answer) {
    const attributes = edit.apply(this.#channels.get(channelId)?.attributes ?? NONE, edit);
    if (!areWithin(this.#limits, attributes)) return answer({ result: 4 });
    const channel = this.#channel(channelId);
    channel.attributes = attributes;
    this.#dropIfUnused(channelId);
    if (notify) this.#tell([...channel.members.values()], 'channelAttributesUpdated', channelId, toWire(attributes));
    return answer(DONE);
  }

  channelAttributes(session, channelId, keys, answer) {
    answer({ result: 0, attributes: toWire(this.#channels.get(channelId)?.attributes ?? NONE, keys) });
  }

  editUserAttributes({ userId }, edit, answer) {
    const connected = this.#connected.get(userId);
    const before = connected.attributes;
    const after = edit.apply(before, edit);
    if (!areWithin(this.#limits, after)) return answer({ result: 4 });
    connected.attributes = after;
    this.#tellAttributes(userId, before, after);
    return answer(DONE);
  }

  userAttributes(session, userIds, keys, answer) {
    const entries = Array.from(userIds, (userId) => {
      const connected = this.#connected.get(userId);
      return [userId, connected ? { result: 0, attributes: toWire(connected.attributes, keys) } : { result: 6 }];
    });
    answer({ result: 0, attributes: Object.fromEntries(entries) });
  }

  #tellAttributes(userId, before, after) {
    this.#tell(this.#watchers(ATTRIBUTES, userId), 'userAttributesChanged', userId, toWire(before), toWire(after));
  }

  // Subscriptions to peers, who need not be known

  subscribe({ userId, socketId }, kind, peerIds, answer) {
    const own = this.#connected.get(userId).subscriptions[kind];
    const added = [...peerIds].filter((peerId) => !own.has(peerId));
    if (own.size + added.length > this.#limits.subscriptionsPerUser) return answer({ result: 6 });
    for (const peerId of added) {
      own.add(peerId);
      const users = this.#subscribers[kind].get(peerId);
      if (users) users.add(userId);
      else this.#subscribers[kind].set(peerId, new Set([userId]));
    }
    answer(DONE);
    if (kind === STATUS) this.#tell([socketId], 'peersStatus', this.#online(peerIds));
    return undefined;
  }

  unsubscribe({ userId }, kind, peerIds, answer) {
    this.#unwatch(kind, userId, peerIds);
    answer(DONE);
  }

  #unwatch(kind, userId, peerIds) {
    const own = this.#connected.get(userId).subscriptions[kind];
    for (const peerId of peerIds) {
      if (!own.delete(peerId)) continue;
      const users = this.#subscribers[kind].get(peerId);
      users.delete(userId);
      if (users.size === 0) this.#subscribers[kind].delete(peerId);
    }
  }

  subscriptions({ userId }, kind, answer) {
    answer({ result: 0, userIds: [...this.#connected.get(userId).subscriptions[kind]] });
  }

  areOnline(session, userIds, answer) {
    answer({ result: 0, status: this.#online(userIds) });
  }

  #watchers(kind, peerId) {
    return Array.from(this.#subscribers[kind].get(peerId) ?? [], (userId) => this.#connected.get(userId).socketId);
  }

  #online(userIds) {
    return Object.fromEntries(Array.from(userIds, (userId) => [userId, this.#connected.has(userId)]));
  }

  // Messages from one user to another

  sendToPeer({ userId }, targetUserId, serverReceivedTs, content, isToBeKept, answer) {
    const message = { fromUserId: userId, serverReceivedTs, content };
    const target = this.#connected.get(targetUserId);
    if (target) {
      this.#tell([target.socketId], 'peerMessages', [message]);
      return answer(DONE);
    }
    if (!isToBeKept) return answer({ result: 3 });
    const kept = this.#kept.get(targetUserId) ?? [];
    if (kept.length >= this.#limits.offlineMessagesPerUser) return answer({ result: 6 });
    kept.push(message);
    this.#kept.set(targetUserId, kept);
    return answer(DONE);
  }

  // Invitations

  invite(session, invitation, now, answer) {
    const { inviter, invitee } = invitation;
    if (!this.#known.has(invitee)) return answer({ result: 3 });
    const target = this.#connected.get(invitee);
    if (!target) return answer({ result: 4 });
    const key = invitationKey(inviter, invitee);
    this.#invitations.delete(key);
    this.#invitations.set(key, { invitation, expiresAt: now + INVITATION_MS });
    for (const [old, { expiresAt }] of this.#invitations) {
      if (expiresAt > now) break;
      this.#invitations.delete(old);
    }
    this.#tell([target.socketId], 'invitationNotice', invitation);
    return answer(DONE);
  }

  endInvitation({ userId }, { inviter, invitee }, needsOther, changes, now, answer) {
    const key = invitationKey(inviter, invitee);
    const found = this.#invitations.get(key);
    if (!found || found.expiresAt <= now) return answer(DONE);
    const other = this.#connected.get(userId === inviter ? invitee : inviter);
    if (!other && needsOther) return answer({ result: 4 });
    this.#invitations.delete(key);
    if (other) this.#tell([other.socketId], 'invitationNotice', found.invitation, changes);
    return answer(DONE);
  }

  // For the control endpoints

  describe(now) {
    const users = Array.from(this.#known, (userId) => [userId, this.#describeUser(userId)]);
    const channels = Array.from(this.#channels, ([channelId, { members, attributes }]) => {
      return [channelId, { members: [...members.keys()], attributes: toWire(attributes) }];
    });
    const pending = [...this.#invitations.values()].filter(({ expiresAt }) => expiresAt > now);
    return {
      users: Object.fromEntries(users),
      channels: Object.fromEntries(channels),
      invitations: pending.map(({ invitation }) => invitation),
    };
  }

  #describeUser(userId) {
    const connected = this.#connected.get(userId);
    return {
      connected: connected !== undefined,
      since: connected?.since ?? null,
      socketId: connected?.socketId ?? null,
      channels: [...(connected?.channels ?? [])],
      attributes: toWire(connected?.attributes ?? NONE),
      statusSubscriptions: [...(connected?.subscriptions[STATUS] ?? [])],
      attributeSubscriptions: [...(connected?.subscriptions[ATTRIBUTES] ?? [])],
      offlineMessages: this.#kept.get(userId)?.length ?? 0,
    };
  }
}

function invitationKey(inviter, invitee) {
  return JSON.stringify([inviter, invitee]);
}
