// Subscriptions to peers' online status and attributes, and questions about them. They last as long as the connection.

import * as events from '../events.js';
import { ids, integer } from '../shapes.js';
import { ATTRIBUTES, STATUS } from '../store.js';

const MALFORMED = 2;
const TOO_MANY = 6;

/** What `queryPeersBySubscriptionOption` calls the two kinds. */
const KIND_OF_OPTION = [STATUS, ATTRIBUTES];

const subscribe = (kind, afterwards = () => {}) => ({
  takes: { userIds: ids },
  malformed: MALFORMED,
  run({ world, userId }, { userIds }) {
    const { store, limits } = world;
    if (store.subscriptionCount(kind, userId) + userIds.length > limits.subscriptionsPerUser) return { result: TOO_MANY };
    store.subscribe(kind, userId, userIds);
    afterwards(world, userId, userIds);
    return { result: 0 };
  },
});

const unsubscribe = (kind) => ({
  takes: { userIds: ids },
  malformed: MALFORMED,
  run({ world, userId }, { userIds }) {
    world.store.unsubscribe(kind, userId, userIds);
    return { result: 0 };
  },
});

export const subscribePeersOnlineStatus = subscribe(STATUS, (world, userId, peerIds) => {
  events.statusOf(world, [userId], peerIds); // how they are now; from here on only changes are told
});
export const unsubscribePeersOnlineStatus = unsubscribe(STATUS);
export const subscribePeersUserAttributes = subscribe(ATTRIBUTES);
export const unsubscribePeersUserAttributes = unsubscribe(ATTRIBUTES);

export const queryPeersOnlineStatus = {
  takes: { userIds: ids },
  malformed: MALFORMED,
  run: ({ world }, { userIds }) => ({
    result: 0,
    status: Object.fromEntries(userIds.map((userId) => [userId, world.store.isConnected(userId)])),
  }),
};

export const queryPeersBySubscriptionOption = {
  takes: { option: integer },
  malformed: MALFORMED,
  run({ world, userId }, { option }) {
    const kind = KIND_OF_OPTION[option];
    return kind ? { result: 0, userIds: world.store.subscriptionsOf(kind, userId) } : { result: MALFORMED };
  },
};
