// A service of several processes, which share in Redis what they know: hands them out in turn to clients who ask for a server,
// and shows all of them on one page. Of what clients need only discovery and the collector of reports are in this process.

import { once } from 'node:events';
import { createServer } from 'node:http';
import { createServer as createTlsServer } from 'node:https';

import { Activity } from './activity.js';
import { Collector } from './collector.js';
import { actionsOf, endpointsOf } from './control.js';
import { prepareConfig } from './config.js';
import { RequestError, createRequestHandler } from './http.js';
import { Lives } from './lives.js';
import { Members } from './members.js';
import { Overview } from './overview.js';
import { createPage } from './page.js';
import { RedisServer } from './redis-server.js';
import { RedisStore } from './redis-store.js';
import { Scripts } from './scripts.js';
import { schemeOf, urlOf } from './service.js';

/** As createService; `args` are the options as they stand on the command line. */
export function createCluster(options, args) {
  const { tls, host, control, cluster: count } = options;
  const httpServer = tls ? createTlsServer(tls) : createServer();
  const activity = new Activity(Date.now);
  const ownRedis = options.redis ? undefined : new RedisServer();
  const members = new Members(count, activity);
  let answerRequests;
  const isReady = new Promise((resolve) => (answerRequests = resolve));

  const service = {
    now: Date.now,
    activity,
    lives: new Lives(activity),
    collector: new Collector(),
    scripts: new Scripts(), // stays empty: the processes have their own
    store: undefined, // to look at
    processes: () => members.describe(),

    serverFor(asked) {
      const port = members.nextPort();
      return asked ? `${schemeOf(tls)}://${asked.replace(/:\d+$/, '')}:${port}` : urlOf(tls, host, port);
    },

    async start(address, port) {
      httpServer.listen(port, address); // first of all: it may be in use
      await once(httpServer, 'listening');
      await ownRedis?.start();
      const url = options.redis ?? ownRedis.url;
      service.store = new RedisStore({ url, limits: prepareConfig(options.config).limits });
      await service.store.start();
      await members.start([...args, '--redis', url]);
      service.baseUrl = urlOf(tls, address, httpServer.address().port);
      answerRequests();
      return service.baseUrl;
    },

    async stop() {
      httpServer.close();
      httpServer.closeAllConnections();
      await members.stop();
      await service.store?.stop();
      await ownRedis?.stop();
    },
  };

  service.overview = new Overview(service);
  const endpoints = control ? endpointsOf(service, clusterActions(service, members, ownRedis)) : undefined;
  endpoints?.set('GET /control/processes', () => ({ processes: service.processes() }));
  const answer = createRequestHandler(service, createPage(service, control), endpoints);
  httpServer.on('request', async (request, response) => {
    await isReady;
    answer(request, response);
  });
  return service;
}

// What is done to a user is done by the process that he is connected to.
function clusterActions(service, members, ownRedis) {
  const { login, collect, ...ofUsers } = actionsOf(service);
  const passedOn = Object.entries(ofUsers).map(([path, { fields }]) => {
    const run = (body) => members.act(path, body.app, body.userId, JSON.stringify(body, bytesAsJson));
    return [path, { fields, run }];
  });
  return {
    ...Object.fromEntries(passedOn),
    collect,
    login: { fields: login.fields, run: () => refuse('No login can be prepared: any process may get it.') },
    kill: { fields: { number: Number.isInteger }, run: ({ number }) => members.kill(number) },
    restartRedis: { fields: {}, run: () => (ownRedis ? ownRedis.restart() : refuse('This Redis is not its own.')) },
  };
}

function refuse(message) {
  throw new RequestError(400, message);
}

function bytesAsJson(key, value) {
  return value?.type === 'Buffer' ? { $base64: Buffer.from(value.data).toString('base64') } : value;
}
