// Messages from one user to another.

import { content, flag, id, isTooLong } from '../shapes.js';

export const sendMessageToPeer = {
  takes: { targetUserId: id, content, option: flag('offline') },
  malformed: 4,
  run({ state, session, now }, { targetUserId, content, option: isToBeKept }, answer) {
    if (isTooLong(content)) answer({ result: 7 });
    else state.sendToPeer(session, targetUserId, now(), content, isToBeKept, answer);
  },
};
