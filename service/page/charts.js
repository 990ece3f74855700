// Charts that move: the last two minutes, a point a second, drawn as SVG.

import { make, setText, svg } from './dom.js';
import { clock, rate } from './words.js';

const HEIGHT = 170;
const LEFT = 44;
const WIDE_LEFT = 58;
const TOP = 10;
const BOTTOM = 22;
const GLIDE_MS = 1000;

const isStill = matchMedia('(prefers-reduced-motion: reduce)');

export class Chart {
  #series;
  #isStacked;
  #label;
  #svg = svg('svg', { height: HEIGHT, 'aria-hidden': 'true' });
  #grid = svg('g', { class: 'grid' });
  #moving = svg('svg', { height: HEIGHT, 'aria-hidden': 'true' }); // by itself: a browser moves it without painting it again
  #cursor = svg('line', { class: 'cursor', y1: TOP, y2: HEIGHT - BOTTOM, visibility: 'hidden' });
  #shapes;
  #values;
  #when = make('span', { className: 'when' });
  #data;
  #top = 0;
  #width = 0;
  #chosen; // index of the second under the pointer or chosen by key

  /** @param series  { name, label, tone } each, drawn as lines; stacked, on top of each other as areas, the lowest with a line */
  constructor(container, label, series, { isStacked = false } = {}) {
    this.#series = series;
    this.#isStacked = isStacked;
    this.#label = label;
    this.#shapes = series.map(({ tone }) => [svg('path', { class: `area ${tone}` }), svg('path', { class: `line ${tone}` })]);
    this.#moving.append(...this.#shapes.flatMap(([area, line], i) => (!isStacked ? [line] : i === 0 ? [area, line] : [area])));
    this.#svg.append(this.#grid, this.#cursor);
    this.#values = series.map(() => make('b', { textContent: '0' }));
    const legend = series.map((one, i) => make('span', { className: `key ${one.tone}` }, `${one.label} `, this.#values[i]));
    const picture = make('div', { className: 'picture', tabIndex: 0, role: 'img' }, this.#svg, make('div', { className: 'window' }, this.#moving));
    container.append(make('p', { className: 'legend' }, ...legend, this.#when), picture);
    this.picture = picture;
    picture.addEventListener('pointermove', ({ clientX }) => this.#choose(this.#indexAt(clientX)));
    picture.addEventListener('pointerleave', () => this.#choose(undefined));
    picture.addEventListener('blur', () => this.#choose(undefined));
    picture.addEventListener('keydown', (event) => {
      const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
      if (step === undefined || !this.#data) return;
      event.preventDefault();
      this.#choose((this.#chosen ?? this.#count) + step);
    });
    new ResizeObserver(() => this.#data && this.#draw()).observe(picture);
  }

  show(data) {
    const seconds = this.#data ? data.until - this.#data.until : 0;
    if (this.#data && seconds === 0) return;
    this.#data = data;
    this.#draw();
    if (seconds > 0 && seconds < 5 && !isStill.matches && !document.hidden) {
      const from = `translateX(${seconds * this.#step}px)`;
      this.#moving.animate([{ transform: from }, { transform: 'none' }], { duration: GLIDE_MS, easing: 'linear' });
    }
  }

  get #count() {
    return this.#data[this.#series[0].name].length;
  }

  get #step() {
    return (this.#width - LEFT) / (this.#count - 1);
  }

  #indexAt(clientX) {
    if (!this.#data) return undefined;
    return Math.round((clientX - this.#svg.getBoundingClientRect().left - LEFT) / this.#step);
  }

  #choose(index) {
    this.#chosen = index === undefined || !this.#data ? undefined : Math.max(0, Math.min(this.#count - 1, index));
    this.#showValues();
  }

  #showValues() {
    if (!this.#data) return;
    const last = this.#count - 1;
    const at = this.#chosen ?? last;
    this.#series.forEach(({ name }, i) => setText(this.#values[i], rate(this.#data[name][at])));
    setText(this.#when, this.#chosen === undefined ? 'per second' : `at ${clock((this.#data.until - last + at) * 1000)}`);
    const x = LEFT + at * this.#step;
    this.#cursor.setAttribute('x1', x);
    this.#cursor.setAttribute('x2', x);
    this.#cursor.setAttribute('visibility', this.#chosen === undefined ? 'hidden' : 'visible');
    const now = this.#series.map(({ name, label }) => `${label} ${this.#data[name][at]}`).join(', ');
    this.picture.ariaLabel = `${this.#label} over the last two minutes; ${this.#when.textContent}: ${now}. Arrow keys choose a second.`;
  }

  #draw() {
    const width = this.picture.clientWidth;
    if (width === 0) return;
    this.#width = width;
    this.#svg.setAttribute('width', width);
    this.#moving.setAttribute('width', width - LEFT);
    const layers = this.#layers();
    this.#top = niceTop(Math.max(...layers.flatMap(({ high }) => high)), this.#top);
    this.#drawGrid();
    layers.forEach(({ low, high }, i) => {
      const [area, line] = this.#shapes[i];
      const upper = this.#curve(high);
      line.setAttribute('d', `M${upper}`);
      if (this.#isStacked) area.setAttribute('d', `M${upper}L${this.#curve(low, true)}Z`);
    });
    this.#showValues();
  }

  // From the lowest to the highest: where each series begins and ends, second by second.
  #layers() {
    let low = new Array(this.#count).fill(0);
    return this.#series.map(({ name }) => {
      const values = this.#data[name];
      const layer = { low, high: this.#isStacked ? values.map((value, i) => low[i] + value) : values };
      if (this.#isStacked) low = layer.high;
      return layer;
    });
  }

  #y(value) {
    return TOP + (HEIGHT - TOP - BOTTOM) * (1 - value / this.#top);
  }

  // Through all points, level at each, so that nothing swings below or above what was.
  #curve(values, isBackwards = false) {
    const points = values.map((value, i) => [i * this.#step, this.#y(value)]);
    if (isBackwards) points.reverse();
    const [[x, y], ...rest] = points;
    let path = `${x.toFixed(1)},${y.toFixed(1)}`;
    let [lastX, lastY] = [x, y];
    for (const [nextX, nextY] of rest) {
      const middle = ((lastX + nextX) / 2).toFixed(1);
      path += nextY === lastY
        ? `H${nextX.toFixed(1)}`
        : `C${middle},${lastY.toFixed(1)} ${middle},${nextY.toFixed(1)} ${nextX.toFixed(1)},${nextY.toFixed(1)}`;
      [lastX, lastY] = [nextX, nextY];
    }
    return path;
  }

  #drawGrid() {
    const lines = [0, 0.5, 1].flatMap((part) => {
      const y = Math.round(this.#y(part * this.#top)) + 0.5;
      return [
        svg('line', { x1: LEFT, x2: this.#width, y1: y, y2: y }),
        svg('text', { x: LEFT - 8, y: y + 4, 'text-anchor': 'end' }, rate(part * this.#top)),
      ];
    });
    const times = [['2 min ago', 0, 'start'], ['1 min', 0.5, 'middle'], ['now', 1, 'end']].map(([text, part, anchor]) =>
      svg('text', { x: LEFT + part * (this.#width - LEFT), y: HEIGHT - 4, 'text-anchor': anchor }, text));
    this.#grid.replaceChildren(...lines, ...times);
  }
}

/** The top of a scale: round and even, never below 4, and not lowered for a little, so that the scale does not flicker. */
export function niceTop(most, present = 0) {
  if (most <= present && most > present / 3) return present;
  const power = 10 ** Math.floor(Math.log10(Math.max(most, 4)));
  return Math.max(4, [1, 2, 4, 6, 8, 10].find((factor) => factor * power >= most) * power);
}

/** Durations of logins, the newest last: a column each, of the time to find the server and the time to connect. */
export function drawLogins(element, logins) {
  const width = element.clientWidth;
  const shown = logins.slice(-Math.max(1, Math.floor((width - WIDE_LEFT) / 14)));
  element.dataset.points = logins.length;
  if (width === 0 || shown.length === 0) return element.replaceChildren();
  const top = niceTop(Math.max(...shown.map(({ server, connect }) => server + connect)));
  const y = (ms) => TOP + (HEIGHT - TOP - BOTTOM) * (1 - ms / top);
  const grid = [0, 0.5, 1].flatMap((part) => {
    const at = Math.round(y(part * top)) + 0.5;
    return [
      svg('line', { x1: WIDE_LEFT, x2: width, y1: at, y2: at }),
      svg('text', { x: WIDE_LEFT - 8, y: at + 4, 'text-anchor': 'end' }, `${rate(part * top)} ms`),
    ];
  });
  const columns = shown.map(({ user, server, connect, at }, i) => {
    const x = WIDE_LEFT + 6 + i * 14;
    const column = (tone, low, high) => svg('rect', { class: `area ${tone}`, x, width: 9, y: y(high), height: Math.max(1, y(low) - y(high)), rx: 2 });
    return svg('g', {}, column('teal', 0, server), column('accent', server, server + connect),
      svg('title', {}, `${user} at ${clock(at)}: server found in ${server} ms, connected in ${connect} ms`));
  });
  return element.replaceChildren(svg('svg', { width, height: HEIGHT, 'aria-hidden': 'true' }, svg('g', { class: 'grid' }, ...grid), ...columns));
}
