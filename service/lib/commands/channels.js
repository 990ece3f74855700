// Channels: joining, leaving, members and their messages.

import { content, id, ids, isTooLong } from '../shapes.js';

const MOST_COUNTED_CHANNELS = 32;

const onChannel = (operation) => ({
  takes: { channelId: id },
  malformed: 3,
  run: ({ state, session }, { channelId }, answer) => state[operation](session, channelId, answer),
});

export const join = onChannel('join');
export const leave = onChannel('leave');
export const getChannelMembers = onChannel('members');

export const sendChannelMessage = {
  takes: { channelId: id, content },
  malformed: 3,
  run({ state, session, now }, { channelId, content }, answer) {
    if (isTooLong(content)) answer({ result: 4 });
    else state.sendToChannel(session, channelId, now(), content, answer);
  },
};

export const getChannelMemberCount = {
  takes: { channelIds: ids },
  malformed: 2,
  run({ state, session }, { channelIds }, answer) {
    if (channelIds.size > MOST_COUNTED_CHANNELS) answer({ result: 5 });
    else state.memberCounts(session, channelIds, answer);
  },
};
