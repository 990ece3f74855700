// One user's life as a timeline: his connections as bars, what he asked below them, and all of it in words.

import { make, renew, setText, svg } from './dom.js';
import { duration, endInWords, isLoss, preciseClock, runInWords, stepInWords } from './words.js';

const HEIGHT = 118;
const BAR = { top: 24, height: 20 };
const ASKED = { top: 52, height: 36 };
const AXIS = HEIGHT - 8;
const SPANS = [40, 60, 120, 240, 720].map((seconds) => seconds * 1000);
const MOST_SHOWN = 100;

/** The steps and requests of a life, the newest first: { at, since (ms after the one before), tone, text, id }. */
export function storyOf({ steps, runs }) {
  const story = [
    ...steps.map((step) => ({ at: step.at, order: step.number, id: `step ${step.number}`, ...stepInWords(step) })),
    ...runs.flatMap((run) => runInWords(run).map((told) => ({ at: run.at, order: run.after + 0.5, id: `${told.tone} ${run.at} ${run.after}`, ...told }))),
  ].sort((a, b) => a.order - b.order || a.at - b.at);
  return story.map((entry, i) => ({ ...entry, since: i > 0 ? entry.at - story[i - 1].at : 0 })).reverse().slice(0, MOST_SHOWN);
}

/** Draws `life` up to `now` into an element of a fixed height. */
export function drawTimeline(element, life, now) {
  const width = element.clientWidth;
  if (width === 0) return;
  const first = Math.min(...life.connections.map(({ from }) => from), ...life.steps.map(({ at }) => at), now);
  const span = SPANS.find((ms) => now - first <= ms * 0.95) ?? SPANS.at(-1);
  const x = (at) => Math.max(0, Math.min(width, ((at - now + span) / span) * width));
  const isSeen = ({ at, until = at }) => until >= now - span;
  const drawing = svg('svg', { width, height: HEIGHT, 'aria-hidden': 'true' },
    ...axis(width, span),
    ...gaps(life, x),
    ...life.connections.map((connection) => bar(connection, x, now)),
    ...frozen(life, x, now),
    ...life.runs.filter(isSeen).flatMap((run) => asked(run, x)),
    ...life.steps.filter(isSeen).map((step) => mark(step, x)));
  element.replaceChildren(drawing);
  element.ariaLabel = `Timeline of ${life.userId} over the last ${duration(span)}; told in words below.`;
}

function axis(width, span) {
  return [0, 0.25, 0.5, 0.75, 1].flatMap((part) => {
    const at = part * width;
    const anchor = part === 0 ? 'start' : part === 1 ? 'end' : 'middle';
    const text = part === 1 ? 'now' : `−${duration(span * (1 - part)).replace(/ min 0 s$/, ' min')}`;
    return [
      svg('line', { class: 'tick', x1: at, x2: at, y1: BAR.top - 6, y2: AXIS - 14 }),
      svg('text', { x: at, y: AXIS, 'text-anchor': anchor }, text),
    ];
  });
}

function bar({ from, to, reason, told }, x, now) {
  const title = to === undefined ? `connected for ${duration(now - from)}` : `${endInWords({ reason, told })}, after ${duration(to - from)}`;
  return span(`bar ${to === undefined ? 'present' : 'past'}`, x(from), x(to ?? now), title);
}

// While a connection was frozen: until it was thawed or ended.
function frozen({ steps }, x, now) {
  return steps.flatMap((step, i) => {
    if (step.action !== 'freeze') return [];
    const until = steps.slice(i + 1).find(({ kind, action }) => action === 'thaw' || kind === 'end')?.at ?? now;
    return [span('bar frozen', x(step.at), x(until), `frozen for ${duration(until - step.at)}`)];
  });
}

function span(className, left, right, title) {
  const width = Math.max(3, right - left);
  return svg('rect', { class: className, x: left, width, y: BAR.top, height: BAR.height, rx: 4 }, svg('title', {}, title));
}

// From a connection that was lost to the one that followed.
function gaps({ connections }, x) {
  const y = BAR.top + BAR.height / 2;
  return connections.flatMap((connection, i) => {
    const next = connections[i + 1];
    if (!next || !isLoss(connection)) return [];
    return [svg('line', { class: 'gap', x1: x(connection.to), x2: x(next.from), y1: y, y2: y })];
  });
}

// A run of requests, as a column for each tone: ten times as many are a third of the height more.
function asked(run, x) {
  const left = x(run.at);
  const width = Math.max(3, x(run.until) - left - 1);
  let y = ASKED.top;
  return runInWords(run).map(({ tone, text, count }) => {
    const height = Math.min(ASKED.height, 5 + (ASKED.height / 3) * Math.log10(count));
    const column = svg('rect', { class: `asked ${tone}`, x: left, width, y, height, rx: 1.5 }, svg('title', {}, text));
    y = Math.min(y + height + 1, ASKED.top + ASKED.height);
    return column;
  });
}

function mark(step, x) {
  const { tone, text } = stepInWords(step);
  const at = x(step.at);
  const title = svg('title', {}, text);
  if (step.kind === 'control') return svg('path', { class: `mark ${tone}`, d: `M${at - 5},4h10l-5,9z` }, title);
  if (step.kind === 'login') return svg('circle', { class: `mark ${tone}`, cx: at, cy: BAR.top + BAR.height / 2, r: 5 }, title);
  return svg('rect', { class: `mark ${tone}`, x: at - 2.5, width: 5, y: BAR.top - 5, height: BAR.height + 10, rx: 2 }, title);
}

/** Renews the list of a life's steps. */
export function tellStory(list, life) {
  renew(list, storyOf(life), {
    key: ({ id }) => id,
    create: ({ at, tone }) => make('li', { className: tone }, make('time', { textContent: preciseClock(at) }), make('span'), make('small')),
    update: (li, { text, since }) => {
      setText(li.children[1], text);
      setText(li.children[2], since > 0 ? `+${duration(since)}` : '');
    },
  });
}
