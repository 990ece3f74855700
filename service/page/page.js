// Keeps the page up to date with the service's stream. Whatever a client sent is only ever set as text.

import uPlot from '/page/uPlot.js';
import { details, isFailed, loginDurations, matches, roadOf } from '/page/reports.js';

const MOST_REPORTS = 5000;
const MOST_ROWS = 300;

const $ = (id) => document.getElementById(id);
const reports = [];
const types = new Set();
let plot;

function row(...cells) {
  const tr = document.createElement('tr');
  for (const cell of cells) {
    const td = document.createElement('td');
    const { text, className } = typeof cell === 'object' ? cell : { text: cell };
    td.textContent = text;
    if (className) td.className = className;
    tr.append(td);
  }
  return tr;
}

function fill(tableId, rows, nothing) {
  const body = $(tableId).tBodies[0];
  if (rows.length === 0) {
    const empty = row({ text: nothing, className: 'empty' });
    empty.firstChild.colSpan = $(tableId).tHead.rows[0].cells.length;
    rows = [empty];
  }
  body.replaceChildren(...rows);
}

const number = (text) => ({ text, className: 'number' });

function duration(ms) {
  const seconds = Math.max(0, Math.floor(ms / 1000));
  if (seconds < 60) return `${seconds} s`;
  if (seconds < 3600) return `${Math.floor(seconds / 60)} min ${seconds % 60} s`;
  return `${Math.floor(seconds / 3600)} h ${Math.floor((seconds % 3600) / 60)} min`;
}

const time = (ms) => new Date(ms).toLocaleTimeString([], { hour12: false }) + '.' + String(ms % 1000).padStart(3, '0');

function showOverview({ now, users, channels, rates, refusals }) {
  $('totals').textContent = `${users.length} connected, ${channels.length} channels, ${reports.length} reports`;
  fill('users', users.map(({ userId, app, since }) => row(userId, app, duration(now - since))), 'Nobody is connected.');
  fill('channels', channels.map(({ channelId, app, members }) => row(channelId, app, `${members.length}: ${members.join(', ')}`)), 'There are no channels.');
  fill('rates', rates.map(({ command, last, average }) => row(command, number(last), number(average.toFixed(1)))), 'Nothing was asked lately.');
  fill('refusals', refusals.map(({ command, outcome, count }) => row(command, String(outcome), number(count))), 'Nothing was refused.');
}

function addReports(added) {
  for (const report of added) {
    reports.push(report);
    if (types.has(report.event.type)) continue;
    types.add(report.event.type);
    const option = document.createElement('option');
    option.value = option.textContent = report.event.type;
    $('filter-type').append(option);
  }
  reports.splice(0, Math.max(0, reports.length - MOST_REPORTS));
  soon();
}

let isPlanned = false;
function soon() {
  if (isPlanned) return;
  isPlanned = true;
  requestAnimationFrame(() => {
    isPlanned = false;
    showReports();
    showPlot();
  });
}

function showReports() {
  const filter = { user: $('filter-user').value, type: $('filter-type').value, failedOnly: $('filter-failed').checked };
  const wanted = reports.filter((report) => matches(report, filter));
  $('shown').textContent = `${wanted.length} of ${reports.length}`;
  const rows = wanted.slice(-MOST_ROWS).reverse().map((report) => {
    const { event } = report;
    const result = event.result === undefined ? '' : isFailed(report) ? { text: `failed ${event.errorCode}`, className: 'failed' } : { text: 'ok', className: 'fine' };
    const tr = row(time(event.timestamp), event.uid ?? '', event.type, result, details(report));
    tr.tabIndex = 0;
    tr.addEventListener('click', () => showRoad(report));
    tr.addEventListener('keydown', ({ key }) => key === 'Enter' && showRoad(report));
    return tr;
  });
  fill('reports', rows, 'No report matches.');
}

function showRoad(report) {
  const road = roadOf(reports, report);
  $('road-section').hidden = road.length === 0;
  const start = road[0]?.event.timestamp;
  $('road').replaceChildren(...road.map((step) => {
    const li = document.createElement('li');
    const { type, state, reason, errorCode, elapsedInfo } = step.event;
    const more = type === 'ConnectState' ? ` ${state}, reason ${reason}`
      : type === 'LoginResult' ? ` ${isFailed(step) ? `failed with ${errorCode}` : 'succeeded'}: server found in ${elapsedInfo?.getServers} ms, connected in ${elapsedInfo?.connectServer} ms` : '';
    li.textContent = `${type}${more}`;
    const at = document.createElement('time');
    at.textContent = `+${step.event.timestamp - start} ms`;
    li.append(at);
    return li;
  }));
  $('road-section').scrollIntoView({ block: 'nearest' });
}

function showPlot() {
  const data = loginDurations(reports);
  $('plot-note').textContent = data[0].length === 0 ? 'No logins reported yet.' : `${data[0].length} logins`;
  $('plot').dataset.points = data[0].length;
  if (data[0].length === 0) return;
  const width = $('plot').clientWidth;
  if (plot) {
    plot.setSize({ width, height: 220 });
    plot.setData(data);
    return;
  }
  const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
  const axis = { stroke: colour('--soft'), grid: { stroke: colour('--line') }, ticks: { stroke: colour('--line') } };
  const series = (label, stroke) => ({ label, stroke, paths: () => null, points: { show: true, size: 7, fill: stroke }, value: (_, v) => (v == null ? '–' : `${v} ms`) });
  plot = new uPlot({
    width, height: 220,
    scales: { y: { range: (_, low, high) => [0, Math.max(10, high * 1.1)] } },
    axes: [axis, { ...axis, values: (_, ticks) => ticks.map((tick) => `${tick} ms`), size: 70 }],
    series: [{}, series('finding the server', colour('--accent')), series('connecting', colour('--good'))],
  }, data, $('plot'));
}

function live(isOn) {
  $('live').className = isOn ? 'on' : 'off';
  $('live').textContent = isOn ? 'live' : 'not connected';
}

const stream = new EventSource('/page/stream');
stream.addEventListener('open', () => {
  reports.length = 0; // the service sends what it has again
  live(true);
});
stream.addEventListener('error', () => live(false));
stream.addEventListener('overview', ({ data }) => showOverview(JSON.parse(data)));
stream.addEventListener('reports', ({ data }) => addReports(JSON.parse(data)));
$('filter').addEventListener('input', soon);
$('filter').addEventListener('submit', (event) => event.preventDefault());
addEventListener('resize', soon);
