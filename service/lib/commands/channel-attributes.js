// Attributes of channels. One need not be a member to read or write them.

import { clear, merge, removeKeys, replace } from '../attributes.js';
import { flag, id, keys } from '../shapes.js';

const edit = (way) => ({
  takes: { channelId: id, option: flag('notify'), ...way.takes },
  malformed: 3,
  run({ state, session }, { channelId, option: notify, ...change }, answer) {
    state.editChannelAttributes(session, channelId, { ...way, ...change }, notify, answer);
  },
});

const read = (takes) => ({
  takes: { channelId: id, ...takes },
  malformed: 3,
  run: ({ state, session }, { channelId, attributeKeys }, answer) =>
    state.channelAttributes(session, channelId, attributeKeys, answer),
});

export const setChannelAttributes = edit(replace);
export const addOrUpdateChannelAttributes = edit(merge);
export const deleteChannelAttributesByKeys = edit(removeKeys);
export const clearChannelAttributes = edit(clear);
export const getChannelAttributes = read({});
export const getChannelAttributesByKeys = read({ attributeKeys: keys });
