// What the page shows of the service at this moment: who is connected, which channels there are, and what was asked and
// refused lately.

const RATE_SECONDS = 60;

export class Overview {
  #service;
  #seconds = []; // the newest last: { at (whole seconds), counts: Map of command -> requests }
  #refusals = new Map(); // "command result" -> count

  constructor(service) {
    this.#service = service;
    service.activity.on('command', ({ at, command, outcome }) => this.#count(at, String(command), outcome));
  }

  #count(at, command, outcome) {
    const second = Math.floor(at / 1000);
    let newest = this.#seconds.at(-1);
    if (!newest || newest.at !== second) {
      this.#seconds.push((newest = { at: second, counts: new Map() }));
      if (this.#seconds.length > RATE_SECONDS) this.#seconds.shift();
    }
    const name = command.slice(0, 64);
    newest.counts.set(name, (newest.counts.get(name) ?? 0) + 1);
    if (outcome === 0 || outcome === 'scripted') return;
    const key = JSON.stringify([name, outcome]);
    if (this.#refusals.size < 1000 || this.#refusals.has(key)) this.#refusals.set(key, (this.#refusals.get(key) ?? 0) + 1);
  }

  snapshot() {
    const now = this.#service.now();
    const users = [];
    const channels = [];
    for (const [app, world] of this.#service.worlds) {
      for (const userId of world.store.knownUsers()) {
        const session = world.session(userId);
        if (session) users.push({ app, userId, since: session.since });
      }
      for (const channelId of world.store.channels()) {
        channels.push({ app, channelId, members: world.store.membersOf(channelId) });
      }
    }
    return { now, users, channels, rates: this.#rates(now), refusals: this.#refused() };
  }

  /** Requests by command: in the last full second, and on average over the last ten. */
  #rates(now) {
    const last = Math.floor(now / 1000) - 1;
    const rates = new Map();
    for (const { at, counts } of this.#seconds) {
      if (at > last || at <= last - 10) continue;
      for (const [command, count] of counts) {
        const rate = rates.get(command) ?? { command, last: 0, average: 0 };
        if (at === last) rate.last = count;
        rate.average += count / 10;
        rates.set(command, rate);
      }
    }
    return [...rates.values()].sort((a, b) => b.average - a.average);
  }

  #refused() {
    return [...this.#refusals].map(([key, count]) => {
      const [command, outcome] = JSON.parse(key);
      return { command, outcome, count };
    });
  }
}
