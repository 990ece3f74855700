// Watching peers: their attributes and whether they are online. Subscriptions end with the subscriber's connection.

import { ids, integer } from '../shapes.js';
import { ATTRIBUTES, STATUS } from '../store.js';

// The kinds of subscription as clients number them.
const KINDS = new Map([
  [0, STATUS],
  [1, ATTRIBUTES],
]);

const change = (operation, kind) => ({
  takes: { userIds: ids },
  malformed: 2,
  run: ({ state, session }, { userIds }, answer) => state[operation](session, kind, userIds, answer),
});

export const subscribePeersUserAttributes = change('subscribe', ATTRIBUTES);
export const unsubscribePeersUserAttributes = change('unsubscribe', ATTRIBUTES);
export const subscribePeersOnlineStatus = change('subscribe', STATUS);
export const unsubscribePeersOnlineStatus = change('unsubscribe', STATUS);

export const queryPeersOnlineStatus = {
  takes: { userIds: ids },
  malformed: 2,
  run: ({ state, session }, { userIds }, answer) => state.areOnline(session, userIds, answer),
};

export const queryPeersBySubscriptionOption = {
  takes: { option: integer },
  malformed: 2,
  run({ state, session }, { option }, answer) {
    const kind = KINDS.get(option);
    if (kind) state.subscriptions(session, kind, answer);
    else answer({ result: 2 });
  },
};
