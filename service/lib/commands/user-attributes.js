// Attributes that users give themselves, for as long as they are connected, and what peers may read of them.

import { areWithin, clear, merge, removeKeys, replace, toWire } from '../attributes.js';
import * as events from '../events.js';
import { id, ids, keys } from '../shapes.js';

const NOT_CONNECTED = 6;

const edit = ({ takes, apply }) => ({
  takes,
  malformed: 3,
  run({ world, userId }, change) {
    const before = world.store.userAttributes(userId);
    const after = apply(before, change);
    if (!areWithin(world.limits, after)) return { result: 4 };
    world.store.setUserAttributes(userId, after);
    events.userAttributesChanged(world, userId, before, after);
    return { result: 0 };
  },
});

const read = (takes) => ({
  takes: { userId: id, ...takes },
  malformed: 3,
  run: ({ world }, { userId, attributeKeys }) => attributesOf(world, userId, attributeKeys),
});

const readMany = (takes) => ({
  takes: { userIds: ids, ...takes },
  malformed: 2,
  run({ world }, { userIds, attributeKeys }) {
    const entries = Array.from(userIds, (userId) => [userId, attributesOf(world, userId, attributeKeys)]);
    return { result: 0, attributes: Object.fromEntries(entries) };
  },
});

function attributesOf(world, userId, attributeKeys) {
  if (!world.store.isConnected(userId)) return { result: NOT_CONNECTED };
  return { result: 0, attributes: toWire(world.store.userAttributes(userId), attributeKeys) };
}

export const setLocalUserAttributes = edit(replace);
export const addOrUpdateLocalUserAttributes = edit(merge);
export const deleteLocalUserAttributesByKeys = edit(removeKeys);
export const clearLocalUserAttributes = edit(clear);
export const getUserAttributes = read({});
export const getUserAttributesByKeys = read({ attributeKeys: keys });
export const getPeersUserAttributes = readMany({});
export const getPeersUserAttributesByKeys = readMany({ attributeKeys: keys });
