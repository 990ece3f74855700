// Numbers, times and outcomes as people read them. No part of the document is touched here.

export const plural = (count, one, many = `${one}s`) => `${grouped(count)} ${count === 1 ? one : many}`;

export const grouped = (number) => number.toLocaleString('en-US');

/** A rate or a mean: one decimal where that says more. */
export const rate = (value) => (value > 0 && value < 10 && !Number.isInteger(value) ? value.toFixed(1) : grouped(Math.round(value)));

const MINUTE = 60;
const HOUR = 60 * MINUTE;
const DAY = 24 * HOUR;
const YEAR = 365 * DAY;

export function duration(ms) {
  if (!(ms > 0)) return '0 ms';
  if (ms < 1000) return `${Math.round(ms)} ms`;
  if (ms < 10_000) return `${(Math.floor(ms / 100) / 10).toFixed(1)} s`;
  const seconds = Math.floor(ms / 1000);
  if (seconds < MINUTE) return `${seconds} s`;
  if (seconds < HOUR) return `${Math.floor(seconds / MINUTE)} min ${seconds % MINUTE} s`;
  if (seconds < DAY) return `${Math.floor(seconds / HOUR)} h ${Math.floor((seconds % HOUR) / MINUTE)} min`;
  if (seconds < YEAR) return `${plural(Math.floor(seconds / DAY), 'day')} ${Math.floor((seconds % DAY) / HOUR)} h`;
  return `${plural(Math.floor(seconds / YEAR), 'year')} ${plural(Math.floor((seconds % YEAR) / DAY), 'day')}`;
}

export const clock = (ms) => new Date(ms).toLocaleTimeString('en-GB');

export const preciseClock = (ms) => `${clock(ms)}.${String(ms % 1000).padStart(3, '0')}`;

// The first time stamp of 13 digits is of September 2001: what is smaller counts something else, seconds mostly.
const LEAST_TIME_STAMP = 1e12;
const MOST_CLOCK_SKEW = DAY * 1000;

/** How long ago a time stamp was at `at`, both in ms since 1970; a stamp that cannot be one is told as that. */
export function sinceTimeStamp(elapsed, at) {
  const isOne = at - elapsed >= LEAST_TIME_STAMP && elapsed >= -MOST_CLOCK_SKEW;
  return isOne ? duration(elapsed) : 'unknown (time stamp not in milliseconds)';
}

const ENDS = {
  'client namespace disconnect': 'logged out',
  'transport close': 'connection lost: closed without a goodbye',
  'transport error': 'connection lost: it broke',
  'ping timeout': 'connection lost: no sign of life (ping timeout)',
  'parse error': 'connection lost: it sent what is no packet',
  'server shutting down': 'the service stopped',
};

/** Why a connection ended. `told` is what the service said before it disconnected the user. */
export function endInWords({ reason, told }) {
  if (told === 'KickOff') return 'kicked off ("KickOff"): as by a login elsewhere';
  if (told !== undefined) return `disconnected: "${told}"`;
  return ENDS[reason] ?? (reason === 'server namespace disconnect' ? 'disconnected by the service' : String(reason));
}

export const isLoss = ({ reason, told }) => told === undefined && (ENDS[reason] ?? '').startsWith('connection lost');

const ACTIONS = {
  cut: 'cut through the control endpoints',
  freeze: 'frozen: nothing comes or goes any more',
  thaw: 'thawed: what was held back goes on its way',
  disconnect: 'a disconnection was asked for through the control endpoints',
};

/** A step of a life: { tone, text }. */
export function stepInWords(step) {
  switch (step.kind) {
    case 'login':
      if (step.lostFor === undefined) return { tone: 'good', text: 'logged in' };
      return { tone: 'good', text: `connected again, ${duration(step.lostFor)} after the connection was lost` };
    case 'refused':
      return { tone: 'bad', text: `login refused: ${step.reason}` };
    case 'end':
      return { tone: isLoss(step) || step.told !== undefined ? 'bad' : 'soft', text: `${endInWords(step)}, after ${duration(step.lasted)}` };
    case 'control':
      return { tone: 'control', text: ACTIONS[step.action] };
    default:
      throw new Error(`there is no step "${step.kind}"`);
  }
}

/** A run of requests: { tone, count, text } for those that were answered, and for those that were not as they should be. */
export function runInWords({ asked }) {
  const byTone = ['accent', 'bad', 'control'].map((tone) => [tone, asked.filter(({ outcome }) => toneOf(outcome) === tone)]);
  return byTone.filter(([, kinds]) => kinds.length > 0).map(([tone, kinds]) => ({
    tone,
    count: kinds.reduce((sum, { count }) => sum + count, 0),
    text: kinds.map(({ command, count, outcome }) => `${command}${count > 1 ? ` × ${grouped(count)}` : ''}${outcomeInWords(outcome)}`).join(', '),
  }));
}

function toneOf(outcome) {
  if (outcome === 0) return 'accent';
  return outcome === 'scripted' ? 'control' : 'bad';
}

function outcomeInWords(outcome) {
  if (outcome === 0) return '';
  if (outcome === 'scripted') return ': answered as prepared';
  return typeof outcome === 'number' ? `: refused with result ${outcome}` : `: ${outcome}`;
}
