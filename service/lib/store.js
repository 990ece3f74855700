// What the service knows about the users and channels of its apps, and whom it tells of changes: the interface that every
// store has. MemoryStore (memory-store.js) keeps it in this process; RedisStore (redis-store.js) keeps it in Redis, where the
// processes of a cluster share it. One table of tests holds both to it.
//
// A store is made with `limits` (config.js) and has
//   world(appId, tell)      what is true in one app; apps share nothing
//   describe(now, answer)   everything, for the control endpoints: app id -> { users, channels, invitations }
//   greatestChannels(most, mostMembers, answer)   { total, shown: [{ app, channelId, count, members }] }
//
// `tell(socketIds, event, ...items)` tells the users on these sockets; the events are those of events.js, and "kickedOff", which
// ends them. A world has the operations below. Each is one step: nothing of another operation happens in its midst, and what
// it tells is told whole and in the order of the steps. `answer` gets the acknowledgement (service/README.md has the results);
// whatever was told in earlier steps, or in this one before its answer, has been told by then. A store in this process answers
// before the call returns. A `session` is { userId, socketId, since }; what it asks after its end is refused.
//
//   open(session, answer)                  a user has one session: an older one is told and ends. Kept messages follow
//   close(session)                         nothing happens when a newer session has ended it already
//   join, leave, members (session, channelId, answer)
//   memberCounts(session, channelIds, answer)
//   sendToChannel(session, channelId, serverReceivedTs, content, answer)
//   editChannelAttributes(session, channelId, edit, notify, answer)      `edit` is one of attributes.js with its fields
//   channelAttributes(session, channelId, keys, answer)                  without keys: all of them
//   editUserAttributes(session, edit, answer)
//   userAttributes(session, userIds, keys, answer)      `attributes`: user id -> answer of one
//   subscribe, unsubscribe (session, kind, peerIds, answer)
//   subscriptions(session, kind, answer)
//   areOnline(session, userIds, answer)
//   sendToPeer(session, targetUserId, serverReceivedTs, content, isToBeKept, answer)
//   invite(session, invitation, now, answer)            to `invitee`, for INVITATION_MS
//   endInvitation(session, { inviter, invitee }, needsOther, changes, now, answer)   the other side is told; with needsOther
//                                                       the invitation stays while that side is offline

/** The two kinds of subscription to a peer. */
export const STATUS = 'status';
export const ATTRIBUTES = 'attributes';

export const INVITATION_MS = 60_000;
