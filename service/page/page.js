// Keeps the page up to date with the service's stream. Whatever a client sent is only ever set as text (dom.js).

import { Chart, drawLogins } from './charts.js';
import { showButtons, showPrepared, startControl } from './control.js';
import { $, make, renew, row, setText, showEmpty } from './dom.js';
import { drawTimeline, tellStory } from './life.js';
import { details, isFailed, loginDurations, matches, roadOf } from './reports.js';
import { duration, endInWords, grouped, plural, preciseClock, rate } from './words.js';

const MOST_REPORTS = 5000;
const MOST_ROWS = 300;

// What starts a client that this service gets to see, and a service like it.
const isUsual = location.port === '8600';
const CHAT = isUsual ? './run chat alice'
  : `./run chat alice --api-server ${location.origin} --collect-url ${location.origin}/pim/v1/collect-logan`;
const TRAFFIC = `node service/tools/traffic.js ${location.origin}`;
const WITH_CONTROL = `./run service ${location.port || 8600} --control`;

const reports = []; // the oldest first
const types = new Set();
let chosen; // { app, userId } of the life that is shown
let life;

const requests = new Chart($('requests-chart'), 'Requests', [
  { name: 'answered', label: 'answered', tone: 'accent' },
  { name: 'refused', label: 'refused', tone: 'bad' },
  { name: 'prepared', label: 'prepared', tone: 'control' },
], { isStacked: true });
const messages = new Chart($('messages-chart'), 'Messages', [
  { name: 'sent', label: 'sent', tone: 'accent' },
  { name: 'delivered', label: 'delivered', tone: 'teal' },
]);

// The overview, once a second

function showOverview(overview) {
  const { now, connected, refused, channels, commands, chart, prepared, processes } = overview;
  const last = (name) => chart[name].at(-1);
  showTile('connected', connected, connected === 1 ? 'user connected' : 'users connected');
  showTile('channel-count', channels.total, channels.total === 1 ? 'channel' : 'channels');
  showTile('request-rate', last('answered') + last('refused') + last('prepared'), 'requests per second');
  showTile('message-rate', last('delivered'), 'messages per second');
  showTile('refused', refused, refused === 1 ? 'request refused' : 'requests refused');
  showTile('report-count', overview.reports, overview.reports === 1 ? 'event report' : 'event reports');
  requests.show(chart);
  messages.show(chart);
  showChannels(channels);
  showCommands(commands);
  showPrepared(prepared);
  showProcesses(processes);
  refreshUsers(now);
}

function showTile(id, value, label) {
  setText($(id).children[0], grouped(value));
  setText($(id).children[1], label);
}

// Of a cluster; a service that is one process has none to show.
function showProcesses(processes = []) {
  $('processes-section').hidden = processes.length === 0;
  renew($('processes').tBodies[0], processes, {
    key: ({ number }) => String(number),
    create: () => row('name', 'state', 'number', 'number', 'number'),
    update: ({ cells }, { number, port, isUp, pid, connected, deaths }) => {
      cells[1].className = `state ${isUp ? 'on' : 'bad'}`;
      const state = isUp ? 'up' : 'dead, another one listens at its port';
      [`${number}, port ${port}`, state, String(pid), grouped(connected), plural(deaths, 'time')].forEach((text, i) => setText(cells[i], text));
    },
  });
}

function showChannels({ total, shown }) {
  renew($('channels').tBodies[0], shown, {
    key: ({ app, channelId }) => JSON.stringify([app, channelId]),
    create: () => row('name', 'app', 'number', 'soft members'),
    update: ({ cells }, { app, channelId, count, members }) => {
      const others = count - members.length;
      [channelId, app, grouped(count), members.join(', ') + (others > 0 ? ` and ${plural(others, 'other')}` : '')].forEach((text, i) => setText(cells[i], text));
    },
  });
  setText($('channels-more'), total > shown.length ? `The ${shown.length} with the most members, of ${grouped(total)}.` : '');
  showEmpty($('channels-empty'), total === 0, 'There are no channels: the first who joins one makes it. In the chat, type', '/join garden');
}

function showCommands(commands) {
  const most = Math.max(1, ...commands.map(({ average }) => average));
  renew($('commands').tBodies[0], commands, {
    key: ({ command: name }) => name,
    create: () => {
      const tr = row('name', 'number', 'number', 'number', 'refusals');
      tr.cells[2].append(make('meter', { max: 1, ariaHidden: 'true' }), make('span'));
      return tr;
    },
    update: ({ cells }, { command: name, last, average, total, refusals }) => {
      setText(cells[0], name);
      setText(cells[1], grouped(last));
      cells[2].firstChild.value = average / most;
      setText(cells[2].lastChild, rate(average));
      setText(cells[3], grouped(total));
      setText(cells[4], refusals.map(([outcome, count]) => `${typeof outcome === 'number' ? `result ${outcome}` : outcome} × ${grouped(count)}`).join(', '));
    },
  });
  showEmpty($('commands-empty'), commands.length === 0, 'Nothing was asked yet. Twelve clients that talk for a minute:', TRAFFIC);
}

// Users, and the life of one of them

let isAsking = false;
async function refreshUsers(now) {
  if (isAsking || document.hidden) return;
  isAsking = true;
  try {
    const asked = new URLSearchParams({ find: $('find').value });
    if (chosen) for (const [name, value] of [['app', chosen.app], ['user', chosen.userId]]) asked.set(name, value);
    const answer = await (await fetch(`/page/users?${asked}`)).json();
    showUsers(answer, now);
    if (!chosen && answer.users.length > 0) choose(answer.users[0]);
    else showLife(answer.life, now);
  } catch {
    // The stream tells when the service is gone.
  } finally {
    isAsking = false;
  }
}

const keyOf = ({ app, userId }) => JSON.stringify([app, userId]);

function showUsers({ users, matching }, now) {
  renew($('users').tBodies[0], users, {
    key: keyOf,
    create: (user) => {
      const tr = row('name', 'app', 'state', 'number');
      tr.cells[0].append(make('button', { type: 'button', className: 'link', textContent: user.userId }));
      tr.onclick = () => choose(user);
      return tr;
    },
    update: (tr, user) => {
      const isChosen = chosen !== undefined && keyOf(user) === keyOf(chosen);
      tr.classList.toggle('chosen', isChosen);
      tr.cells[0].firstChild.ariaPressed = String(isChosen);
      const [tone, text] = stateOf(user, now);
      setText(tr.cells[1], user.app);
      tr.cells[2].className = `state ${tone}`;
      setText(tr.cells[2], text);
      setText(tr.cells[3], grouped(user.requests));
    },
  });
  setText($('users-more'), matching > users.length ? `${users.length} of ${grouped(matching)}; look for others by name.` : '');
  const isSearch = $('find').value !== '';
  showEmpty($('users-empty'), users.length === 0, isSearch ? 'No user of that name was here lately.' : 'Nobody has connected yet. Start a client:',
    ...(isSearch ? [] : [CHAT]));
}

function stateOf({ frozen, from, to, reason, told }, now) {
  if (from === undefined) return ['bad', 'refused'];
  if (frozen) return ['frozen', 'frozen'];
  if (to === undefined) return ['on', `for ${duration(now - from)}`];
  return ['off', `${endInWords({ reason, told }).split(':')[0]}, ${duration(now - to)} ago`];
}

function choose({ app, userId }) {
  chosen = { app, userId };
  isAsking = false;
  refreshUsers(lastNow);
}

function showLife(shown, now) {
  life = shown;
  showButtons(life);
  $('life').hidden = !life;
  showEmpty($('life-empty'), !life, 'The timeline of a connection: login, requests, reconnections, and why it ended. Choose a user.');
  setText($('life-of'), life ? life.userId : 'A connection');
  if (!life) return;
  setText($('life-state'), `${stateOf(life, now)[1]} · ${plural(life.connections.length, 'connection')} · ${plural(life.requests, 'request')}`);
  drawTimeline($('timeline'), life, now);
  tellStory($('story'), life);
}

// Event reports

let reportNumber = 0;
function addReports(added) {
  for (const report of added) {
    report.number = reportNumber += 1;
    reports.push(report);
    if (types.has(report.event.type)) continue;
    types.add(report.event.type);
    $('filter-type').append(new Option(report.event.type));
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
    showLogins();
  });
}

function showReports() {
  const filter = { user: $('filter-user').value, type: $('filter-type').value, failedOnly: $('filter-failed').checked };
  const wanted = reports.filter((report) => matches(report, filter));
  setText($('shown'), `${grouped(wanted.length)} of ${grouped(reports.length)}${wanted.length > MOST_ROWS ? `, the newest ${MOST_ROWS} here` : ''}`);
  renew($('reports').tBodies[0], wanted.slice(-MOST_ROWS).reverse(), { key: ({ number }) => String(number), create: reportRow });
  showEmpty($('reports-empty'), wanted.length === 0, reports.length > 0 ? 'No report matches.' : 'No event report has come yet. Clients send them where their collector is this service, as the chat does:',
    ...(reports.length > 0 ? [] : [CHAT]));
}

function reportRow(report) {
  const { event } = report;
  const failed = event.result !== undefined && isFailed(report);
  const tr = row('time', 'name', 'type', failed ? 'bad' : 'good', 'soft details');
  const texts = [preciseClock(event.timestamp), event.uid ?? '', '', event.result === undefined ? '' : failed ? `failed ${event.errorCode}` : 'ok', details(report)];
  texts.forEach((text, i) => setText(tr.cells[i], text));
  tr.cells[2].append(make('button', { type: 'button', className: 'link', textContent: event.type, title: 'The login that this belongs to' }));
  tr.onclick = () => showRoad(report);
  return tr;
}

function showRoad(report) {
  const road = roadOf(reports, report);
  $('road-section').hidden = false;
  const start = road[0]?.event.timestamp;
  const steps = road.map((step) => make('li', {}, `${step.event.type}${roadStep(step)}`, make('time', { textContent: `+${duration(step.event.timestamp - start)}` })));
  $('road').replaceChildren(...(steps.length > 0 ? steps : [make('li', { textContent: 'The beginning of this login was not reported, or is no longer kept.' })]));
  $('road-section').scrollIntoView({ block: 'nearest' });
}

function roadStep(step) {
  const { type, state, reason, errorCode, elapsedInfo } = step.event;
  if (type === 'ConnectState') return ` ${state}, reason ${reason}`;
  if (type !== 'LoginResult') return '';
  if (isFailed(step)) return ` failed with ${errorCode}`;
  return ` succeeded: server found in ${elapsedInfo?.getServers} ms, connected in ${elapsedInfo?.connectServer} ms`;
}

function showLogins() {
  const logins = loginDurations(reports);
  $('plot').hidden = logins.length === 0;
  drawLogins($('plot'), logins);
  const mean = logins.reduce((sum, { server, connect }) => sum + server + connect, 0) / logins.length;
  setText($('plot-note'), logins.length > 0 ? `${plural(logins.length, 'login')}, ${duration(mean)} on average` : '');
  showEmpty($('plot-empty'), logins.length === 0, 'No login was reported yet. The chat reports its own after a few seconds.');
}

// The stream

function live(isOn) {
  $('live').className = isOn ? 'on' : 'off';
  setText($('live'), isOn ? 'live' : 'not connected');
}

function setUp({ hasControl, commands }) {
  for (const element of document.querySelectorAll('.with-control')) element.hidden = !hasControl;
  if (hasControl) startControl(commands, () => life);
  showEmpty($('no-control'), !hasControl, 'To cut, freeze and kick connections and to refuse requests from here, start the service with its control endpoints:', WITH_CONTROL);
}

setText($('address'), location.origin);
let lastNow = Date.now();
const stream = new EventSource('/page/stream');
stream.addEventListener('open', () => {
  reports.length = 0; // the service sends what it has again
  live(true);
  soon();
});
stream.addEventListener('error', () => live(false));
stream.addEventListener('setup', ({ data }) => setUp(JSON.parse(data)));
stream.addEventListener('overview', ({ data }) => {
  const overview = JSON.parse(data);
  lastNow = overview.now;
  showOverview(overview);
});
stream.addEventListener('reports', ({ data }) => addReports(JSON.parse(data)));
$('find').addEventListener('input', () => refreshUsers(lastNow));
for (const form of [$('filter'), $('find-form')]) form.addEventListener('submit', (event) => event.preventDefault());
$('filter').addEventListener('input', soon);
new ResizeObserver(soon).observe($('plot'));
