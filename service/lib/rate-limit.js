// At most so many requests in a second; a new second starts with the first request after the last one ended.

const SECOND_MS = 1000;

export class RateLimit {
  #perSecond;
  #now;
  #startedAt = -Infinity;
  #count = 0;

  constructor(perSecond, now) {
    this.#perSecond = perSecond;
    this.#now = now;
  }

  /** Counts one request; false when it is one too many. */
  admits() {
    const now = this.#now();
    if (now - this.#startedAt >= SECOND_MS) {
      this.#startedAt = now;
      this.#count = 0;
    }
    this.#count += 1;
    return this.#count <= this.#perSecond;
  }
}
