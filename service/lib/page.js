// The page for people: static files, a stream of what happens, and what it asks about users. For browsers on this machine only.

import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { COMMAND_NAMES } from './commands/index.js';

const PAGE = fileURLToPath(new URL('../page/', import.meta.url));

const MODULES = ['page', 'charts', 'control', 'dom', 'life', 'reports', 'words'];
const FILES = new Map([
  ['/', ['index.html', 'text/html; charset=utf-8']],
  ['/page/page.css', ['page.css', 'text/css; charset=utf-8']],
  ['/page/icon.svg', ['icon.svg', 'image/svg+xml']],
  ...MODULES.map((name) => [`/page/${name}.js`, [`${name}.js`, 'text/javascript; charset=utf-8']]),
]);
const STREAM = '/page/stream';
const USERS = '/page/users';

const HEADERS = {
  'Content-Security-Policy':
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; " +
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
  'X-Content-Type-Options': 'nosniff',
  'Referrer-Policy': 'no-referrer',
  'Cache-Control': 'no-store',
};

const BEAT_MS = 1000;
const MOST_REPORTS = 1000; // at the start, and in one beat

const LOOPBACK_PEER = /^(127\.|::1$|::ffff:127\.)/;
const LOOPBACK_HOST = /^(localhost|127\.[0-9.]+|\[::1\])(:\d+)?$/i;

/**
 * A handler that takes the page's requests and says whether one was its own.
 * @param hasControl  whether the control endpoints are there, for the page's buttons
 */
export function createPage({ lives, collector, overview }, hasControl) {
  return (request, response, path, query) => {
    if (request.method !== 'GET' || (!FILES.has(path) && path !== STREAM && path !== USERS)) return false;
    // A page elsewhere could lead a browser here under a name of its own.
    if (!LOOPBACK_PEER.test(request.socket.remoteAddress) || !LOOPBACK_HOST.test(request.headers.host ?? '')) {
      response.writeHead(403, HEADERS).end('Only for browsers on this machine.\n');
    } else if (path === STREAM) {
      stream(response, overview, collector, { hasControl, commands: COMMAND_NAMES });
    } else if (path === USERS) {
      response.writeHead(200, { ...HEADERS, 'Content-Type': 'application/json' });
      response.end(JSON.stringify(usersFor(lives, new URLSearchParams(query))));
    } else {
      const [file, type] = FILES.get(path);
      // At once: reading in the background takes turns that a busy service is slow to give.
      response.writeHead(200, { ...HEADERS, 'Content-Type': type }).end(readFileSync(join(PAGE, file)));
    }
    return true;
  };
}

function usersFor(lives, asked) {
  const life = asked.has('user') ? lives.life(asked.get('app') ?? '', asked.get('user')) : undefined;
  return { ...lives.list(asked.get('find') ?? ''), life };
}

// Once a second, whatever happens meanwhile: the page of a busy service costs what that of a quiet one does.
function stream(response, overview, collector, setup) {
  response.writeHead(200, { ...HEADERS, 'Content-Type': 'text/event-stream' });
  const send = (event, data) => response.write(`event: ${event}\ndata: ${JSON.stringify(data)}\n\n`);
  let waiting = collector.reports.slice(-MOST_REPORTS);
  const keep = (report) => {
    waiting.push(report);
    if (waiting.length > 2 * MOST_REPORTS) waiting = waiting.slice(-MOST_REPORTS);
  };
  const beat = () => {
    if (response.writableNeedDrain) return; // the browser is behind: it gets the newest when it has caught up
    if (waiting.length > 0) send('reports', waiting.slice(-MOST_REPORTS));
    waiting = [];
    overview.snapshot((shown) => send('overview', shown));
  };
  send('setup', setup);
  beat();
  collector.on('report', keep).setMaxListeners(0);
  const timer = setInterval(beat, BEAT_MS);
  response.once('close', () => {
    clearInterval(timer);
    collector.off('report', keep);
  });
}
