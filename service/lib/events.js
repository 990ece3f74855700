// The events that users are sent unasked, each in its wire form.

import { ATTRIBUTES, STATUS } from './store.js';

const ONLINE = 0;
const OFFLINE = 1;
const DELETED = '!!&@#DELETED#@&!!';

export function memberJoined(world, channelId, userId) {
  world.push(otherMembers(world, channelId, userId), 'MemberJoined', { channelId, userId });
}

/** `reason` is "Quit" for a user who left and "Disconnect" for one whose connection ended. */
export function memberLeft(world, channelId, userId, reason) {
  world.push(world.store.membersOf(channelId), 'MemberLeft', { channelId, userId, reason });
}

export function channelMessage(world, channelId, userId, content) {
  const messages = world.push(otherMembers(world, channelId, userId), 'ChannelMessageReceived', {
    from: { channelId, userId },
    serverReceivedTs: world.now(),
    content,
  });
  world.activity.publish('delivered', { messages });
}

export function channelAttributesUpdated(world, channelId) {
  const attributes = Object.fromEntries(world.store.channelAttributes(channelId));
  world.push(world.store.membersOf(channelId), 'ChannelAttributesUpdated', { channelId, attributes });
}

export function peerMessages(world, userId, msgs) {
  const receivers = world.push([userId], 'MessageToPeerReceived', { msgs });
  world.activity.publish('delivered', { messages: receivers * msgs.length });
}

/** Tells the user's subscribers whether he is online now. */
export function statusChanged(world, userId) {
  statusOf(world, world.store.subscribersOf(STATUS, userId), [userId]);
}

/** Tells users whether these peers are online now. */
export function statusOf(world, userIds, peerIds) {
  const status = Array.from(peerIds, (peerId) => [peerId, world.store.isConnected(peerId) ? ONLINE : OFFLINE]);
  world.push(userIds, 'PeersOnlineStatusChanged', { status: Object.fromEntries(status) });
}

/** Tells the user's subscribers what differs between two states of his attributes. */
export function userAttributesChanged(world, userId, before, after) {
  const changes = differences(before, after);
  if (changes.length === 0) return;
  const attributes = Object.fromEntries([[userId, { attributes: Object.fromEntries(changes) }]]);
  world.push(world.store.subscribersOf(ATTRIBUTES, userId), 'PeersUserAttributesChanged', { attributes });
}

export function invitationNotice(world, userId, invitation) {
  world.push([userId], 'InvitationNotify', { invitation });
}

function otherMembers(world, channelId, userId) {
  return world.store.membersOf(channelId).filter((member) => member !== userId);
}

function differences(before, after) {
  const changed = [...after].filter(([key, value]) => before.get(key) !== value);
  const deleted = [...before.keys()].filter((key) => !after.has(key)).map((key) => [key, DELETED]);
  return [...changed, ...deleted];
}
