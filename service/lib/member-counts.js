// Tells members how many they are. All changes of one turn make one push per user, and it names all channels of that
// user: clients take a channel that a push does not mention for an empty one.

export class MemberCounts {
  #world;
  #changed = new Set();

  constructor(world) {
    this.#world = world;
  }

  changed(channelId) {
    if (this.#changed.size === 0) setImmediate(() => this.#push());
    this.#changed.add(channelId);
  }

  #push() {
    const { store } = this.#world;
    const userIds = new Set([...this.#changed].flatMap((channelId) => store.membersOf(channelId)));
    this.#changed.clear();
    for (const userId of userIds) {
      this.#world.push([userId], 'ChannelMemberCount', { counts: countsOf(store, store.channelsOf(userId)) });
    }
  }
}

export function countsOf(store, channelIds) {
  return Object.fromEntries(Array.from(channelIds, (channelId) => [channelId, store.memberCount(channelId)]));
}
