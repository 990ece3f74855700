// Watching peers: their attributes and whether they are online. Subscriptions end with the subscriber's connection.

import * as events from '../events.js';
import { ids, integer } from '../shapes.js';
import { ATTRIBUTES, STATUS } from '../store.js';

// The kinds of subscription as clients number them.
const KINDS = new Map([
  [0, STATUS],
  [1, ATTRIBUTES],
]);

const subscribe = (kind, afterwards = () => {}) => ({
  takes: { userIds: ids },
  malformed: 2,
  run({ world, userId }, { userIds }) {
    const { store, limits } = world;
    const added = [...userIds].filter((peerId) => !store.isSubscribed(kind, userId, peerId));
    if (store.subscriptionCount(kind, userId) + added.length > limits.subscriptionsPerUser) return { result: 6 };
    store.subscribe(kind, userId, added);
    // The acknowledgement goes out as soon as this call returns; what follows from it comes after it.
    queueMicrotask(() => afterwards(world, userId, userIds));
    return { result: 0 };
  },
});

const unsubscribe = (kind) => ({
  takes: { userIds: ids },
  malformed: 2,
  run({ world, userId }, { userIds }) {
    world.store.unsubscribe(kind, userId, userIds);
    return { result: 0 };
  },
});

export const subscribePeersUserAttributes = subscribe(ATTRIBUTES);
export const unsubscribePeersUserAttributes = unsubscribe(ATTRIBUTES);

export const subscribePeersOnlineStatus = subscribe(STATUS, (world, userId, peerIds) =>
  events.statusOf(world, [userId], peerIds),
);
export const unsubscribePeersOnlineStatus = unsubscribe(STATUS);

export const queryPeersOnlineStatus = {
  takes: { userIds: ids },
  malformed: 2,
  run({ world }, { userIds }) {
    // Here true is online; in the event for subscribers 0 is.
    const status = Array.from(userIds, (peerId) => [peerId, world.store.isConnected(peerId)]);
    return { result: 0, status: Object.fromEntries(status) };
  },
};

export const queryPeersBySubscriptionOption = {
  takes: { option: integer },
  malformed: 2,
  run({ world, userId }, { option }) {
    const kind = KINDS.get(option);
    return kind ? { result: 0, userIds: world.store.subscriptionsOf(kind, userId) } : { result: 2 };
  },
};
