// Outcomes prepared for coming commands and logins, instead of what the service would have done itself.

export const LOGIN = Symbol('login');

const MOST_SHOWN = 20;
const MOST_CHARACTERS = 80;

export class Scripts {
  #entries = [];

  /** `what` is a command's name or LOGIN; without a user id the outcome is anyone's. */
  add(what, userId, times, outcome) {
    this.#entries.push({ what, userId, times, outcome, text: outcome && JSON.stringify(outcome).slice(0, MOST_CHARACTERS) });
  }

  /** The first few that are still to come: { what (null: logins), userId, times, text (null: no answer) }. */
  pending() {
    return this.#entries.slice(0, MOST_SHOWN).map(({ what, userId, times, text }) => ({ what: what === LOGIN ? null : what, userId, times, text }));
  }

  /** Takes the oldest outcome prepared for this user's login or command: { outcome }, or undefined when there is none. */
  take(what, userId) {
    const index = this.#entries.findIndex(
      (entry) => entry.what === what && (entry.userId === undefined || entry.userId === userId),
    );
    if (index < 0) return undefined;
    const entry = this.#entries[index];
    entry.times -= 1;
    if (entry.times === 0) this.#entries.splice(index, 1);
    return { outcome: entry.outcome };
  }
}
