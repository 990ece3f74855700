// Attributes that users give themselves, for as long as they are connected, and what peers may read of them.

import { clear, merge, removeKeys, replace } from '../attributes.js';
import { id, ids, keys } from '../shapes.js';

const edit = (way) => ({
  takes: way.takes,
  malformed: 3,
  run: ({ state, session }, change, answer) => state.editUserAttributes(session, { ...way, ...change }, answer),
});

const read = (takes) => ({
  takes: { userId: id, ...takes },
  malformed: 3,
  run({ state, session }, { userId, attributeKeys }, answer) {
    state.userAttributes(session, [userId], attributeKeys, (response) => {
      answer(response.result === 0 ? response.attributes[userId] : response);
    });
  },
});

const readMany = (takes) => ({
  takes: { userIds: ids, ...takes },
  malformed: 2,
  run: ({ state, session }, { userIds, attributeKeys }, answer) =>
    state.userAttributes(session, userIds, attributeKeys, answer),
});

export const setLocalUserAttributes = edit(replace);
export const addOrUpdateLocalUserAttributes = edit(merge);
export const deleteLocalUserAttributesByKeys = edit(removeKeys);
export const clearLocalUserAttributes = edit(clear);
export const getUserAttributes = read({});
export const getUserAttributesByKeys = read({ attributeKeys: keys });
export const getPeersUserAttributes = readMany({});
export const getPeersUserAttributesByKeys = readMany({ attributeKeys: keys });
