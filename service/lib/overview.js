// What the page shows of the service at this moment: how many are connected, the greatest channels, what is asked and refused,
// and the last two minutes second by second. However busy the service is, a snapshot stays small.

const SECONDS = 120;
const MOST_CHANNELS = 100;
const MOST_MEMBERS = 12; // of a channel, by name
const MOST_COMMANDS = 100;
const MOST_OUTCOMES = 20; // of a command
const OTHERS = '(others)';

const SERIES = ['answered', 'refused', 'prepared', 'sent', 'delivered'];
const MESSAGES = new Set(['sendChannelMessage', 'sendMessageToPeer']);

export class Overview {
  #service;
  #seconds = []; // the newest last: { at (whole seconds), counts: Map of command -> requests, and a number for each of SERIES }
  #commands = new Map(); // name -> { total, refusals: Map of outcome -> count }
  #refused = 0;

  constructor(service) {
    this.#service = service;
    service.activity.on('command', ({ at, command, outcome }) => this.#count(at, String(command).slice(0, 64), outcome));
    service.activity.on('delivered', ({ at, messages }) => (this.#second(at).delivered += messages));
  }

  #second(at) {
    const second = Math.floor(at / 1000);
    const newest = this.#seconds.at(-1);
    if (newest?.at === second) return newest;
    const next = { at: second, counts: new Map(), ...Object.fromEntries(SERIES.map((name) => [name, 0])) };
    this.#seconds.push(next);
    if (this.#seconds.length > SECONDS) this.#seconds.shift();
    return next;
  }

  #count(at, asked, outcome) {
    const isNew = !this.#commands.has(asked);
    const name = isNew && this.#commands.size >= MOST_COMMANDS ? OTHERS : asked;
    const command = this.#commands.get(name) ?? { total: 0, refusals: new Map() };
    this.#commands.set(name, command);
    command.total += 1;
    const second = this.#second(at);
    second.counts.set(name, (second.counts.get(name) ?? 0) + 1);
    if (outcome === 'scripted') {
      second.prepared += 1;
    } else if (outcome === 0) {
      second.answered += 1;
      if (MESSAGES.has(name)) second.sent += 1;
    } else {
      second.refused += 1;
      this.#refused += 1;
      const { refusals } = command;
      if (refusals.size < MOST_OUTCOMES || refusals.has(outcome)) refusals.set(outcome, (refusals.get(outcome) ?? 0) + 1);
    }
  }

  /** `done` gets it; `processes` are those of a cluster. */
  snapshot(done) {
    const now = this.#service.now();
    const { lives, scripts, collector, store, processes } = this.#service;
    store.greatestChannels(MOST_CHANNELS, MOST_MEMBERS, (channels) =>
      done({
        now,
        connected: lives.connected,
        refused: this.#refused,
        reports: collector.received,
        channels,
        commands: this.#rates(now),
        chart: this.#chart(now),
        prepared: scripts.pending(),
        processes: processes?.(),
      }),
    );
  }

  /** Each command that was ever asked: in the last full second, on average over the last ten, and since the start. */
  #rates(now) {
    const last = Math.floor(now / 1000) - 1;
    const rates = new Map();
    for (const [command, { total, refusals }] of this.#commands) {
      rates.set(command, { command, last: 0, average: 0, total, refusals: [...refusals] });
    }
    for (const { at, counts } of this.#seconds) {
      if (at > last || at <= last - 10) continue;
      for (const [command, count] of counts) {
        const rate = rates.get(command);
        if (at === last) rate.last = count;
        rate.average += count / 10;
      }
    }
    return [...rates.values()];
  }

  /** The last two minutes of full seconds, the oldest first: `until` (whole seconds) and an array for each of SERIES. */
  #chart(now) {
    const until = Math.floor(now / 1000) - 1;
    const chart = { until };
    for (const name of SERIES) chart[name] = new Array(SECONDS).fill(0);
    for (const second of this.#seconds) {
      const index = second.at - until + SECONDS - 1;
      if (index >= 0 && index < SECONDS) for (const name of SERIES) chart[name][index] = second[name];
    }
    return chart;
  }
}
