// Invitations from one user to another. Clients take every result but 3 and 4 for success.

import * as events from '../events.js';
import { invitation, oneOf } from '../shapes.js';

const NOT_ACCEPTABLE = 3; // malformed, in another's name, or to a user who was never seen
const OFFLINE = 4;

const PENDING = 2;
const CANCELED = 3;
const ACCEPTED = 4;
const REFUSED = 5;

const LIFETIME_MS = 60_000;

export const invitationOp = {
  takes: { type: oneOf('send', 'cancel', 'accept', 'refuse'), invitation },
  malformed: NOT_ACCEPTABLE,
  run({ world, userId }, { type, invitation }) {
    const { sender, act } = operations[type];
    if (invitation[sender] !== userId) return { result: NOT_ACCEPTABLE };
    return act(world, invitation);
  },
};

const operations = {
  send: {
    sender: 'inviter',
    act(world, { inviter, invitee, requestInfo, responseInfo }) {
      const { store } = world;
      if (!store.isKnown(invitee)) return { result: NOT_ACCEPTABLE };
      if (!store.isConnected(invitee)) return { result: OFFLINE };
      const sent = { inviter, invitee, requestInfo, responseInfo, state: PENDING };
      store.putInvitation(sent, world.now() + LIFETIME_MS, world.now());
      events.invitationNotice(world, invitee, sent);
      return { result: 0 };
    },
  },
  // An invitee who is offline need not hear of a canceled invitation: it is gone when he comes back.
  cancel: {
    sender: 'inviter',
    act: (world, { inviter, invitee, requestInfo }) =>
      end(world, pending(world, inviter, invitee), invitee, { requestInfo, state: CANCELED }),
  },
  accept: { sender: 'invitee', act: (world, given) => respond(world, given, ACCEPTED) },
  refuse: { sender: 'invitee', act: (world, given) => respond(world, given, REFUSED) },
};

// An inviter who is offline may be back before the invitation expires, so that the invitee can try again.
function respond(world, { inviter, invitee, responseInfo }, state) {
  const found = pending(world, inviter, invitee);
  if (found && !world.store.isConnected(inviter)) return { result: OFFLINE };
  return end(world, found, inviter, { responseInfo, state });
}

function pending(world, inviter, invitee) {
  return world.store.pendingInvitation(inviter, invitee, world.now());
}

// What is over already stays as it ended: that is no error, as the other side's notice may still be under way.
function end(world, found, otherSide, changes) {
  if (!found) return { result: 0 };
  world.store.removeInvitation(found.inviter, found.invitee);
  events.invitationNotice(world, otherSide, { ...found, ...changes });
  return { result: 0 };
}
