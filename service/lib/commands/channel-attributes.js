// Attributes of channels. One need not be a member to read or write them.

import { areWithin, clear, merge, removeKeys, replace, toWire } from '../attributes.js';
import * as events from '../events.js';
import { flag, id, keys } from '../shapes.js';

const edit = ({ takes, apply }) => ({
  takes: { channelId: id, option: flag('notify'), ...takes },
  malformed: 3,
  run({ world }, { channelId, option: notify, ...change }) {
    const attributes = apply(world.store.channelAttributes(channelId), change);
    if (!areWithin(world.limits, attributes)) return { result: 4 };
    world.store.setChannelAttributes(channelId, attributes);
    if (notify) events.channelAttributesUpdated(world, channelId);
    return { result: 0 };
  },
});

const read = (takes) => ({
  takes: { channelId: id, ...takes },
  malformed: 3,
  run({ world }, { channelId, attributeKeys }) {
    return { result: 0, attributes: toWire(world.store.channelAttributes(channelId), attributeKeys) };
  },
});

export const setChannelAttributes = edit(replace);
export const addOrUpdateChannelAttributes = edit(merge);
export const deleteChannelAttributesByKeys = edit(removeKeys);
export const clearChannelAttributes = edit(clear);
export const getChannelAttributes = read({});
export const getChannelAttributesByKeys = read({ attributeKeys: keys });
