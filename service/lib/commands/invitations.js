// Invitations of one user by another. The service relays them and keeps the pending ones for as long as clients do.

import * as events from '../events.js';
import { invitation, oneOf } from '../shapes.js';

const PENDING_MS = 60_000;

const UNKNOWN = { result: 3 }; // the invitee has never been here
const OFFLINE = { result: 4 };
const NOT_YOURS = { result: 4 };
const DONE = { result: 0 };

const PENDING = 2;

function send(world, { inviter, invitee, ...rest }) {
  if (!world.store.isKnown(invitee)) return UNKNOWN;
  if (!world.store.isConnected(invitee)) return OFFLINE;
  const now = world.now();
  const pending = { inviter, invitee, ...rest, state: PENDING };
  world.store.putInvitation(pending, now + PENDING_MS, now);
  events.invitationNotice(world, invitee, pending);
  return DONE;
}

// One that is not pending any more was settled already: the answer is the same, but there is nobody to tell.
const settle = (state, toldOf) => (world, answer) => {
  const { inviter, invitee } = answer;
  const pending = world.store.pendingInvitation(inviter, invitee, world.now());
  if (!pending) return DONE;
  world.store.removeInvitation(inviter, invitee);
  events.invitationNotice(world, answer[toldOf], { ...pending, ...answer, state });
  return DONE;
};

const TYPES = {
  send: { by: 'inviter', run: send },
  cancel: { by: 'inviter', run: settle(3, 'invitee') },
  accept: { by: 'invitee', run: settle(4, 'inviter') },
  refuse: { by: 'invitee', run: settle(5, 'inviter') },
};

export const invitationOp = {
  takes: { type: oneOf(...Object.keys(TYPES)), invitation },
  malformed: 4,
  run({ world, userId }, { type, invitation: given }) {
    const { by, run } = TYPES[type];
    return given[by] === userId ? run(world, given) : NOT_YOURS;
  },
};
