// All commands by name. A command says what its payload must hold (`takes`), the result for a payload that does not
// (`malformed`), and what it asks of the state (`run`, whose `answer` gets the acknowledgement). Result numbers are each command's own.

import * as channelAttributes from './channel-attributes.js';
import * as channels from './channels.js';
import * as invitations from './invitations.js';
import * as peerMessages from './peer-messages.js';
import * as subscriptions from './subscriptions.js';
import * as userAttributes from './user-attributes.js';
import { readPayload } from '../shapes.js';

const commands = new Map(
  Object.entries({
    ...channels,
    ...channelAttributes,
    ...userAttributes,
    ...subscriptions,
    ...peerMessages,
    ...invitations,
  }),
);

const REFUSED = { result: 1 }; // by no command's own rules

export function isCommand(name) {
  return commands.has(name);
}

/** Runs one request of a user, { state, session, now }; `name` and `payload` are whatever the client sent. */
export function run(user, name, payload, answer) {
  const command = commands.get(name);
  if (!command) return answer(REFUSED);
  const read = readPayload(command.takes, payload);
  return read ? command.run(user, read, answer) : answer({ result: command.malformed });
}

export const COMMAND_NAMES = [...commands.keys()];
