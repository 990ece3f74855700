// Attributes of channels. Any user may read and write those of any channel; members are told of a change when the
// writer asks for it.

import * as events from '../events.js';
import { attributes, flag, id, isWithin, keys, picked } from '../shapes.js';

const MALFORMED = 3;
const TOO_MANY = 4;

/** A command that replaces a channel's attributes by what `change` makes of them. */
const write = (takes, change) => ({
  takes: { channelId: id, ...takes, option: flag('notify') },
  malformed: MALFORMED,
  run({ world }, { channelId, option: notify, ...payload }) {
    const changed = change(world.store.channelAttributes(channelId), payload);
    if (!isWithin(world.limits, changed)) return { result: TOO_MANY };
    world.store.setChannelAttributes(channelId, changed);
    if (notify) events.channelAttributesUpdated(world, channelId);
    return { result: 0 };
  },
});

export const setChannelAttributes = write({ attributes }, (_, { attributes: given }) => given);
export const addOrUpdateChannelAttributes = write({ attributes }, (old, { attributes: given }) => new Map([...old, ...given]));
export const deleteChannelAttributesByKeys = write({ attributeKeys: keys }, (old, { attributeKeys }) => {
  const deleted = new Set(attributeKeys);
  return new Map([...old].filter(([key]) => !deleted.has(key)));
});
export const clearChannelAttributes = write({}, () => new Map());

export const getChannelAttributes = {
  takes: { channelId: id },
  malformed: MALFORMED,
  run: ({ world }, { channelId }) => ({ result: 0, attributes: Object.fromEntries(world.store.channelAttributes(channelId)) }),
};

export const getChannelAttributesByKeys = {
  takes: { channelId: id, attributeKeys: keys },
  malformed: MALFORMED,
  run: ({ world }, { channelId, attributeKeys }) => ({
    result: 0,
    attributes: Object.fromEntries(picked(world.store.channelAttributes(channelId), attributeKeys)),
  }),
};
