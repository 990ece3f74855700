// The HTTP side: server discovery, the collector of event reports, the page and, when they are there, the control
// endpoints.

import { COLLECT } from './collector.js';

const DISCOVERY = '/config/api/v1/pim-server';
const HOST = /^([a-z0-9.-]+|\[[0-9a-f:.]+\])(:\d{1,5})?$/i;

const MOST_BODY_BYTES = 16 * 1024 * 1024;

/**
 * `page` takes the requests that are its own and says so; `control` handles paths of its own ("METHOD /path" -> function
 * of the parsed body), and may be absent.
 */
export function createRequestHandler(service, page, control) {
  return async (request, response) => {
    const [path, query] = splitUrl(request.url);
    if (request.method === 'GET' && path === DISCOVERY) {
      const { status, body } = discover(service, request.headers.host ?? '', query);
      return reply(response, status, body);
    }
    if (request.method === 'POST' && path === COLLECT) return collect(service.collector, request, response);
    if (page(request, response, path, query)) return undefined;
    const endpoint = control?.get(`${request.method} ${path}`);
    if (!endpoint) return reply(response, 404, { error: 'There is nothing here.' });
    try {
      return reply(response, 200, await endpoint(await readBody(request)));
    } catch (error) {
      if (!(error instanceof RequestError)) throw error;
      return reply(response, error.status, { error: error.message });
    }
  };
}

/** A request that cannot be done; the message is for the one who sent it. */
export class RequestError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

// Clients do not escape the app id, so it may hold anything that fits a request line.
function splitUrl(url) {
  const end = url.indexOf('?');
  return end < 0 ? [url, ''] : [url.slice(0, end), url.slice(end + 1)];
}

function discover(service, host, query) {
  if (!new URLSearchParams(query).get('appId')) {
    return { status: 400, body: { code: 400, message: 'appId is missing' } };
  }
  const server = service.serverFor(HOST.test(host) ? host : undefined);
  return { status: 200, body: { code: 200, data: { brivelServers: [server] } } };
}

async function collect(collector, request, response) {
  try {
    const outcome = await collector.receive(request);
    if (outcome === null) return; // a prepared silence
    if (outcome.status === 204) response.writeHead(204).end();
    else reply(response, outcome.status, { error: outcome.message });
  } catch {
    response.destroy(); // the upload ended early
  }
}

async function readBody(request) {
  const chunks = [];
  let size = 0;
  try {
    for await (const chunk of request) {
      size += chunk.length;
      if (size > MOST_BODY_BYTES) break;
      chunks.push(chunk);
    }
  } catch {
    throw new RequestError(400, 'The body ended early.');
  }
  if (size > MOST_BODY_BYTES) throw new RequestError(413, `A body has at most ${MOST_BODY_BYTES} bytes.`);
  if (size === 0) return {};
  try {
    return JSON.parse(Buffer.concat(chunks).toString(), reviveBytes);
  } catch {
    throw new RequestError(400, 'The body must be JSON.');
  }
}

// JSON has no bytes: {"$base64": "..."} stands for them.
export function reviveBytes(key, value) {
  const isBytes = typeof value?.$base64 === 'string' && Object.keys(value).length === 1;
  return isBytes ? Buffer.from(value.$base64, 'base64') : value;
}

function reply(response, status, body) {
  response.writeHead(status, { 'Content-Type': 'application/json' });
  response.end(`${JSON.stringify(body)}\n`);
}
