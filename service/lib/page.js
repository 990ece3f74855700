// The page for people: static files, and a stream of what happens. For browsers on this machine only.

import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const PAGE = fileURLToPath(new URL('../page/', import.meta.url));
const UPLOT = join(dirname(createRequire(import.meta.url).resolve('uplot/package.json')), 'dist');

const FILES = new Map([
  ['/', [PAGE, 'index.html', 'text/html; charset=utf-8']],
  ['/page/page.css', [PAGE, 'page.css', 'text/css; charset=utf-8']],
  ['/page/page.js', [PAGE, 'page.js', 'text/javascript; charset=utf-8']],
  ['/page/reports.js', [PAGE, 'reports.js', 'text/javascript; charset=utf-8']],
  ['/page/uPlot.js', [UPLOT, 'uPlot.esm.js', 'text/javascript; charset=utf-8']],
  ['/page/uPlot.css', [UPLOT, 'uPlot.min.css', 'text/css; charset=utf-8']],
]);
const STREAM = '/page/stream';

const HEADERS = {
  'Content-Security-Policy':
    "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; connect-src 'self'; img-src 'self' data:; " +
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
  'X-Content-Type-Options': 'nosniff',
  'Referrer-Policy': 'no-referrer',
  'Cache-Control': 'no-store',
};

const SNAPSHOT_MS = 1000;
const REPORTS_AT_START = 1000;

const LOOPBACK_PEER = /^(127\.|::1$|::ffff:127\.)/;
const LOOPBACK_HOST = /^(localhost|127\.[0-9.]+|\[::1\])(:\d+)?$/i;

/** A handler that takes the page's requests and says whether one was its own. */
export function createPage({ overview, collector }) {
  return async (request, response, path) => {
    if (request.method !== 'GET' || (!FILES.has(path) && path !== STREAM)) return false;
    // A page elsewhere could lead a browser here under a name of its own.
    if (!LOOPBACK_PEER.test(request.socket.remoteAddress) || !LOOPBACK_HOST.test(request.headers.host ?? '')) {
      response.writeHead(403, HEADERS).end('Only for browsers on this machine.\n');
    } else if (path === STREAM) {
      stream(response, overview, collector);
    } else {
      const [folder, file, type] = FILES.get(path);
      response.writeHead(200, { ...HEADERS, 'Content-Type': type }).end(await readFile(join(folder, file)));
    }
    return true;
  };
}

function stream(response, overview, collector) {
  response.writeHead(200, { ...HEADERS, 'Content-Type': 'text/event-stream' });
  const send = (event, data) => response.write(`event: ${event}\ndata: ${JSON.stringify(data)}\n\n`);
  const sendReport = (report) => send('reports', [report]);
  const sendOverview = () => send('overview', overview.snapshot());
  send('reports', collector.reports.slice(-REPORTS_AT_START));
  sendOverview();
  collector.on('report', sendReport).setMaxListeners(0);
  const timer = setInterval(sendOverview, SNAPSHOT_MS);
  response.once('close', () => {
    clearInterval(timer);
    collector.off('report', sendReport);
  });
}
