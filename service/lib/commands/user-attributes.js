// Attributes of users: each writes his own, which last as long as his connection; anybody reads them.

import * as events from '../events.js';
import { attributes, id, ids, isWithin, keys, picked } from '../shapes.js';

const TOO_MANY = 4;
const NOT_CONNECTED = 6;

/** A command that replaces the user's own attributes by what `change` makes of them, and tells his subscribers. */
const write = (takes, change) => ({
  takes,
  malformed: 3,
  run({ world, userId }, payload) {
    const old = world.store.userAttributes(userId);
    const changed = change(old, payload);
    if (!isWithin(world.limits, changed)) return { result: TOO_MANY };
    world.store.setUserAttributes(userId, changed);
    events.userAttributesChanged(world, userId, old, changed);
    return { result: 0 };
  },
});

export const setLocalUserAttributes = write({ attributes }, (_, { attributes: given }) => given);
export const addOrUpdateLocalUserAttributes = write({ attributes }, (old, { attributes: given }) => new Map([...old, ...given]));
export const deleteLocalUserAttributesByKeys = write({ attributeKeys: keys }, (old, { attributeKeys }) => {
  const deleted = new Set(attributeKeys);
  return new Map([...old].filter(([key]) => !deleted.has(key)));
});
export const clearLocalUserAttributes = write({}, () => new Map());

/** What is read of one user: all attributes, or those under some keys. */
function read({ store }, userId, attributeKeys) {
  if (!store.isConnected(userId)) return { result: NOT_CONNECTED };
  const all = store.userAttributes(userId);
  return { result: 0, attributes: Object.fromEntries(attributeKeys ? picked(all, attributeKeys) : all) };
}

const readOne = (takes) => ({
  takes: { userId: id, ...takes },
  malformed: 3,
  run: ({ world }, { userId, attributeKeys }) => read(world, userId, attributeKeys),
});

const readSeveral = (takes) => ({
  takes: { userIds: ids, ...takes },
  malformed: 2,
  run: ({ world }, { userIds, attributeKeys }) => ({
    result: 0,
    attributes: Object.fromEntries(userIds.map((userId) => [userId, read(world, userId, attributeKeys)])),
  }),
});

export const getUserAttributes = readOne({});
export const getUserAttributesByKeys = readOne({ attributeKeys: keys });
export const getPeersUserAttributes = readSeveral({});
export const getPeersUserAttributesByKeys = readSeveral({ attributeKeys: keys });
