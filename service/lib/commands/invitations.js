// Invitations from one user to another. Clients take every result but 3 and 4 for success.

import { invitation, oneOf } from '../shapes.js';

const NOT_ACCEPTABLE = 3; // malformed, or in another's name

const PENDING = 2;
const CANCELED = 3;
const ACCEPTED = 4;
const REFUSED = 5;

export const invitationOp = {
  takes: { type: oneOf('send', 'cancel', 'accept', 'refuse'), invitation },
  malformed: NOT_ACCEPTABLE,
  run(user, { type, invitation }, answer) {
    const { sender, act } = operations[type];
    if (invitation[sender] === user.session.userId) act(user, invitation, answer);
    else answer({ result: NOT_ACCEPTABLE });
  },
};

const operations = {
  send: {
    sender: 'inviter',
    act({ state, session, now }, { inviter, invitee, requestInfo, responseInfo }, answer) {
      state.invite(session, { inviter, invitee, requestInfo, responseInfo, state: PENDING }, now(), answer);
    },
  },
  // An invitee who is offline need not hear of a canceled invitation: it is gone when he comes back.
  cancel: {
    sender: 'inviter',
    act: ({ state, session, now }, { requestInfo, ...given }, answer) =>
      state.endInvitation(session, given, false, { requestInfo, state: CANCELED }, now(), answer),
  },
  accept: { sender: 'invitee', act: (user, given, answer) => respond(user, given, ACCEPTED, answer) },
  refuse: { sender: 'invitee', act: (user, given, answer) => respond(user, given, REFUSED, answer) },
};

// An inviter who is offline may be back before the invitation expires, so that the invitee can try again.
function respond({ state, session, now }, { responseInfo, ...given }, outcome, answer) {
  state.endInvitation(session, given, true, { responseInfo, state: outcome }, now(), answer);
}
