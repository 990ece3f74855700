// The lives of users, for the page: each user's connections one after the other, with how they began and ended, what was asked
// in them and what the control endpoints did to them. Kept in memory, and bounded: the newest of each life, and of the lives
// that are over.

const MOST_CONNECTIONS = 30; // of one life, as are the next two
const MOST_STEPS = 60;
const MOST_RUNS = 40;
const MOST_KINDS = 12; // of requests, in one run
const MOST_GONE = 2000;
const MOST_SHOWN = 100;
const RUN_MS = 5000;

// Ends that the client did not ask for: it comes back by itself.
const LOST = new Set(['transport close', 'transport error', 'ping timeout', 'parse error']);

// A user id has no NUL, so that no two users share a key.
const keyOf = (appId, userId) => `${userId}\0${appId}`;

export class Lives {
  #connected = new Map(); // key -> life
  #gone = new Map(); // the same, in the order in which they ended
  #begun = 0;

  constructor(activity) {
    activity.on('login', (event) => this.#login(event));
    activity.on('loginRefused', (event) => this.#refused(event));
    activity.on('logout', (event) => this.#logout(event));
    activity.on('command', (event) => this.#request(event));
    activity.on('control', (event) => this.#control(event));
  }

  get connected() {
    return this.#connected.size;
  }

  /** The newest users whose id contains the text, those who are connected first; `matching` counts all of them. */
  list(text = '') {
    const has = ({ userId }) => userId.includes(text);
    const connected = [...this.#connected.values()].filter(has);
    const gone = [...this.#gone.values()].filter(has);
    const shown = [...newest(connected, MOST_SHOWN), ...newest(gone, MOST_SHOWN - Math.min(connected.length, MOST_SHOWN))];
    shown.sort((a, b) => isGone(a) - isGone(b) || b.number - a.number); // a user who comes back keeps his place
    return { matching: connected.length + gone.length, users: shown.map(inShort) };
  }

  /** All that is known of one user: { connections, steps, runs } beside what `list` tells, or undefined. */
  life(appId, userId) {
    const life = this.#find(keyOf(appId, userId));
    return life && { ...inShort(life), connections: life.connections, steps: life.steps, runs: life.runs };
  }

  #begin(app, userId) {
    this.#begun += 1;
    return { number: this.#begun, app, userId, frozen: false, requests: 0, connections: [], steps: [], runs: [] };
  }

  #find(key) {
    return this.#connected.get(key) ?? this.#gone.get(key);
  }

  #login({ at, appId, userId, connectionId }) {
    const key = keyOf(appId, userId);
    const life = this.#find(key) ?? this.#begin(appId, userId);
    const last = life.connections.at(-1);
    this.#gone.delete(key);
    this.#connected.delete(key);
    this.#connected.set(key, life);
    life.frozen = false;
    const lostFor = last && LOST.has(last.reason) ? at - last.to : undefined;
    keep(life.connections, MOST_CONNECTIONS, { id: connectionId, from: at });
    step(life, { kind: 'login', at, lostFor });
  }

  #refused({ at, appId, userId, reason }) {
    if (typeof appId !== 'string' || userId === undefined) return; // nobody that one could name
    const key = keyOf(appId, userId);
    const life = this.#find(key) ?? this.#begin(appId, userId);
    if (!this.#connected.has(key)) this.#bury(key, life);
    step(life, { kind: 'refused', at, reason });
  }

  #logout({ at, appId, userId, connectionId, reason, told, since }) {
    const key = keyOf(appId, userId);
    const life = this.#connected.get(key);
    if (!life) return;
    const connection = life.connections.find(({ id }) => id === connectionId);
    if (connection) Object.assign(connection, { to: at, reason, told });
    step(life, { kind: 'end', at, reason, told, lasted: at - since });
    if (life.connections.at(-1) !== connection) return; // a newer one took its place
    life.frozen = false;
    this.#connected.delete(key);
    this.#bury(key, life);
  }

  #bury(key, life) {
    this.#gone.delete(key);
    this.#gone.set(key, life);
    if (this.#gone.size > MOST_GONE) this.#gone.delete(this.#gone.keys().next().value);
  }

  // Requests that come close together are one run: thousands a second stay legible, and small. A step ends it.
  #request({ at, appId, userId, command, outcome }) {
    const life = this.#connected.get(keyOf(appId, userId));
    if (!life) return;
    life.requests += 1;
    let run = life.runs.at(-1);
    if (!run || at - run.at >= RUN_MS || life.steps.at(-1).number > run.after) {
      run = { at, until: at, after: life.steps.at(-1).number, asked: [] };
      keep(life.runs, MOST_RUNS, run);
    }
    run.until = at;
    const name = String(command).slice(0, 64);
    const same = run.asked.find((kind) => kind.command === name && kind.outcome === outcome);
    if (same) same.count += 1;
    else if (run.asked.length < MOST_KINDS) run.asked.push({ command: name, outcome, count: 1 });
  }

  #control({ at, appId, userId, action }) {
    const life = this.#connected.get(keyOf(appId, userId));
    if (!life) return;
    if (action === 'freeze' || action === 'thaw') life.frozen = action === 'freeze';
    step(life, { kind: 'control', at, action });
  }
}

function keep(list, most, item) {
  list.push(item);
  if (list.length > most) list.shift();
}

function step(life, what) {
  keep(life.steps, MOST_STEPS, { number: (life.steps.at(-1)?.number ?? 0) + 1, ...what });
}

const isGone = ({ connections }) => connections.length === 0 || connections.at(-1).to !== undefined;

const newest = (list, count) => (count > 0 ? list.slice(-count).reverse() : []);

function inShort({ app, userId, frozen, requests, connections }) {
  const { from, to, reason, told } = connections.at(-1) ?? {};
  return { app, userId, frozen, requests, from, to, reason, told };
}
