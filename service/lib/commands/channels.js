// Channels: joining, leaving, members and their messages.

import * as events from '../events.js';
import { countsOf } from '../member-counts.js';
import { content, id, ids, isTooLong } from '../shapes.js';

const MOST_COUNTED_CHANNELS = 32;

export const join = {
  takes: { channelId: id },
  malformed: 3,
  run({ world, userId }, { channelId }) {
    const { store, limits } = world;
    if (store.isMember(channelId, userId)) return { result: 0 };
    if (store.channelCount(userId) >= limits.channelsPerUser) return { result: 5 };
    if (store.memberCount(channelId) >= limits.membersPerChannel) return { result: 6 };
    store.joinChannel(channelId, userId);
    events.memberJoined(world, channelId, userId);
    world.memberCounts.changed(channelId);
    return { result: 0 };
  },
};

export const leave = {
  takes: { channelId: id },
  malformed: 3,
  run({ world, userId }, { channelId }) {
    if (!world.store.isMember(channelId, userId)) return { result: 6 };
    world.store.leaveChannel(channelId, userId);
    events.memberLeft(world, channelId, userId, 'Quit');
    world.memberCounts.changed(channelId);
    return { result: 0 };
  },
};

export const getChannelMembers = {
  takes: { channelId: id },
  malformed: 3,
  run({ world, userId }, { channelId }) {
    if (!world.store.isMember(channelId, userId)) return { result: 5 };
    return { result: 0, members: world.store.membersOf(channelId) };
  },
};

export const sendChannelMessage = {
  takes: { channelId: id, content },
  malformed: 3,
  run({ world, userId }, { channelId, content }) {
    if (isTooLong(content)) return { result: 4 };
    if (!world.store.isMember(channelId, userId)) return { result: 5 };
    events.channelMessage(world, channelId, userId, content);
    return { result: 0 };
  },
};

export const getChannelMemberCount = {
  takes: { channelIds: ids },
  malformed: 2,
  run({ world }, { channelIds }) {
    if (channelIds.size > MOST_COUNTED_CHANNELS) return { result: 5 };
    return { result: 0, counts: countsOf(world.store, channelIds) };
  },
};
