// The events that users are sent unasked: each makes its name on the wire and its item of what the store tells.

const ONLINE = 0;
const OFFLINE = 1;
const DELETED = '!!&@#DELETED#@&!!';

export const memberJoined = (channelId, userId) => ['MemberJoined', { channelId, userId }];

/** `reason` is "Quit" for a user who left and "Disconnect" for one whose connection ended. */
export const memberLeft = (channelId, userId, reason) => ['MemberLeft', { channelId, userId, reason }];

export const memberCounts = (counts) => ['ChannelMemberCount', { counts }];

export const channelMessage = (channelId, userId, serverReceivedTs, content) => [
  'ChannelMessageReceived',
  { from: { channelId, userId }, serverReceivedTs, content },
];

export const channelAttributesUpdated = (channelId, attributes) => ['ChannelAttributesUpdated', { channelId, attributes }];

export const peerMessages = (msgs) => ['MessageToPeerReceived', { msgs }];

/** `status` says of each peer whether he is online. */
export const peersStatus = (status) => [
  'PeersOnlineStatusChanged',
  { status: mapValues(status, (isOnline) => (isOnline ? ONLINE : OFFLINE)) },
];

/** Tells what differs between two states of a user's attributes; nothing when they are the same. */
export function userAttributesChanged(userId, before, after) {
  const changed = Object.entries(after).filter(([key, value]) => !Object.hasOwn(before, key) || before[key] !== value);
  const deleted = Object.keys(before).filter((key) => !Object.hasOwn(after, key)).map((key) => [key, DELETED]);
  if (changed.length + deleted.length === 0) return undefined;
  const attributes = Object.fromEntries([...changed, ...deleted]);
  return ['PeersUserAttributesChanged', { attributes: Object.fromEntries([[userId, { attributes }]]) }];
}

/** `changes` is what the side that acts has made of it, if it did. */
export const invitationNotice = (invitation, changes) => ['InvitationNotify', { invitation: { ...invitation, ...changes } }];

/** How many messages an event brings to each who is told. */
export function messagesIn(event, ...items) {
  if (event === 'peerMessages') return items[0].length;
  return event === 'channelMessage' ? 1 : 0;
}

function mapValues(object, change) {
  return Object.fromEntries(Object.entries(object).map(([key, value]) => [key, change(value)]));
}
