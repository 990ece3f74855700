// Messages from one user to another.

import * as events from '../events.js';
import { content, flag, id, isTooLong } from '../shapes.js';

export const sendMessageToPeer = {
  takes: { targetUserId: id, content, option: flag('offline') },
  malformed: 4,
  run({ world, userId }, { targetUserId, content, option: offline }) {
    const { store, limits } = world;
    if (isTooLong(content)) return { result: 7 };
    const message = { fromUserId: userId, serverReceivedTs: world.now(), content };
    if (store.isConnected(targetUserId)) {
      events.peerMessages(world, targetUserId, [message]);
      return { result: 0 };
    }
    if (!offline) return { result: 3 };
    if (store.keptMessageCount(targetUserId) >= limits.offlineMessagesPerUser) return { result: 6 };
    store.keepMessage(targetUserId, message);
    return { result: 0 };
  },
};
