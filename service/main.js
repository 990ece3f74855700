#!/usr/bin/env node
// Runs the service from the command line.

import { USAGE, readOptions } from './lib/options.js';
import { logActivity } from './lib/request-log.js';
import { createService } from './lib/service.js';

const BAD_USAGE = 2;
const LONGEST_STOP_MS = 500;
const LONGEST_CLUSTER_STOP_MS = 5000;

function fail(message, status) {
  process.stderr.write(`kvpim service: ${message}\n`);
  process.exit(status);
}

function explain(error, { host, port }) {
  if (error.code === 'EADDRINUSE') return `port ${port} on ${host} is already in use`;
  if (error.syscall === 'listen') return `cannot listen on ${host}, port ${port}: ${error.message}`;
  return error.message;
}

function readOptionsOrFail() {
  try {
    return readOptions(process.argv.slice(2));
  } catch (error) {
    return fail(`${error.message}\n\n${USAGE}`, BAD_USAGE);
  }
}

const options = readOptionsOrFail();
if (options.help) {
  process.stdout.write(USAGE);
  process.exit(0);
}

// What only a cluster needs is loaded for a cluster only.
const service = options.cluster
  ? (await import('./lib/cluster.js')).createCluster(options, process.argv.slice(2))
  : createService(options);
if (!options.quiet) logActivity(service.activity, (line) => process.stderr.write(line));

async function stop() {
  // A peer that does not answer the closing of its connection is not waited for.
  setTimeout(() => process.exit(0), options.cluster ? LONGEST_CLUSTER_STOP_MS : LONGEST_STOP_MS);
  await service.stop();
  process.exit(0);
}

try {
  const baseUrl = await service.start(options.host, options.port);
  process.stdout.write(`kvpim service ready on ${baseUrl}\n`);
} catch (error) {
  await service.stop().catch(() => {}); // what had been started
  fail(explain(error, options), 1);
}

process.once('SIGINT', stop).once('SIGTERM', stop);
if (options.exitWithStdin) process.stdin.once('end', stop).resume();
