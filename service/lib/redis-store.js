// The store of a cluster: everything is in Redis, where its processes share it. Each operation is one call of a function that
// Redis runs as one step (redis-store.lua); answers and what users are told come back through RedisLink.

import { RedisLink } from './redis-link.js';
import { INVITATION_MS } from './store.js';

export class RedisStore {
  #link;
  #limits;
  #worlds = new Map(); // app id -> its RedisWorld

  /**
   * @param url      of Redis, 7 or later
   * @param prefix   of all keys; processes with the same prefix are one cluster
   * @param lease    after so many ms without a sign of life a process is taken for dead
   * @param onGone   called when this process was taken for dead: its sessions have ended
   */
  constructor({ limits, ...options }) {
    this.#limits = limits;
    this.#link = new RedisLink({ ...options, onTold: (...told) => this.#tell(...told) });
  }

  start() {
    return this.#link.start();
  }

  /** Ends what is left of this process's sessions. */
  stop() {
    return this.#link.stop();
  }

  world(appId, tell) {
    const world = new RedisWorld(this.#link, appId, this.#limits);
    this.#worlds.set(appId, tell);
    return world;
  }

  describe(now, answer) {
    this.#link.look('describe', [now]).then(answer);
  }

  greatestChannels(most, mostMembers, answer) {
    this.#link.look('greatestChannels', [most, mostMembers]).then(answer);
  }

  #tell(appId, socketIds, event, items) {
    if (event === 'peerMessages') items[0].forEach(readContent);
    if (event === 'channelMessage') items[3] = bytesOf(items[3]);
    this.#worlds.get(appId)?.(socketIds, event, ...items);
  }
}

class RedisWorld {
  #link;
  #appId;
  #limits;

  constructor(link, appId, limits) {
    this.#link = link;
    this.#appId = appId;
    this.#limits = limits;
  }

  open(session, answer) {
    this.#ask('open', session, [session.since], answer);
  }

  close(session) {
    this.#ask('close', session, [this.#link.passedOn]);
    this.#link.recount();
  }

  join(session, channelId, answer) {
    this.#ask('join', session, [channelId, this.#limits.channelsPerUser, this.#limits.membersPerChannel], answer);
    this.#link.recount();
  }

  leave(session, channelId, answer) {
    this.#ask('leave', session, [channelId], answer);
    this.#link.recount();
  }

  members(session, channelId, answer) {
    this.#ask('members', session, [channelId], answer);
  }

  memberCounts(session, channelIds, answer) {
    this.#ask('memberCounts', session, [list(channelIds)], answer);
  }

  sendToChannel(session, channelId, serverReceivedTs, content, answer) {
    this.#ask('sendToChannel', session, [channelId, serverReceivedTs, textOf(content)], answer);
  }

  editChannelAttributes(session, channelId, edit, notify, answer) {
    this.#ask('editChannelAttributes', session, [channelId, ...this.#edit(edit), notify], answer);
  }

  channelAttributes(session, channelId, keys = [], answer) {
    this.#ask('channelAttributes', session, [channelId, list(keys)], answer);
  }

  editUserAttributes(session, edit, answer) {
    this.#ask('editUserAttributes', session, this.#edit(edit), answer);
  }

  userAttributes(session, userIds, keys = [], answer) {
    this.#ask('userAttributes', session, [list(userIds), list(keys)], answer);
  }

  subscribe(session, kind, peerIds, answer) {
    this.#ask('subscribe', session, [kind, list(peerIds), this.#limits.subscriptionsPerUser], answer);
  }

  unsubscribe(session, kind, peerIds, answer) {
    this.#ask('unsubscribe', session, [kind, list(peerIds)], answer);
  }

  subscriptions(session, kind, answer) {
    this.#ask('subscriptions', session, [kind], answer);
  }

  areOnline(session, userIds, answer) {
    this.#ask('areOnline', session, [list(userIds)], answer);
  }

  sendToPeer(session, targetUserId, serverReceivedTs, content, isToBeKept, answer) {
    const { offlineMessagesPerUser } = this.#limits;
    const message = [targetUserId, serverReceivedTs, textOf(content), isToBeKept, offlineMessagesPerUser];
    this.#ask('sendToPeer', session, message, answer);
  }

  invite(session, invitation, now, answer) {
    const { inviter, invitee } = invitation;
    this.#ask('invite', session, [inviter, invitee, JSON.stringify(invitation), now, INVITATION_MS], answer);
  }

  endInvitation(session, { inviter, invitee }, needsOther, changes, now, answer) {
    this.#ask('endInvitation', session, [inviter, invitee, needsOther, JSON.stringify(changes), now], answer);
  }

  #edit({ how, attributes = [], attributeKeys = [] }) {
    const { attributesPerOwner, attributeBytesPerOwner } = this.#limits;
    return [how, list([...attributes].flat().concat([...attributeKeys])), attributesPerOwner, attributeBytesPerOwner];
  }

  #ask(operation, { userId, socketId }, values, answer) {
    this.#link.ask(operation, [this.#appId, userId, socketId, ...values], answer);
  }
}

// Redis takes text as UTF-8, which has no halves of surrogate pairs.
function list(texts) {
  return JSON.stringify([...texts]).replace(/\\(\\|ud[89a-f]..)/g, (escape, what) => (what === '\\' ? escape : '\\ufffd'));
}

// The content of a message as JSON, which has no bytes.
function textOf({ binary, ...content }) {
  return JSON.stringify(binary ? { ...content, binary: binary.toString('base64') } : content);
}

function bytesOf({ binary, ...content }) {
  return binary === undefined ? content : { ...content, binary: Buffer.from(binary, 'base64') };
}

function readContent(message) {
  message.content = bytesOf(message.content);
}
