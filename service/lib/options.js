// The command line.

import { readFileSync } from 'node:fs';
import { parseArgs } from 'node:util';
import { readConfig } from './config.js';

export const USAGE = `Usage: node service/main.js [options]
  --host ADDRESS       the address to listen on (127.0.0.1)
  --port N             the port to listen on; 0 takes any free one (8600)
  --config FILE        who may log in, and limits: a JSON file
  --rate-limit N       commands that one connection may send in a second (any number)
  --control            offer the control endpoints, for tests and demonstrations
  --cluster N          N processes that share what they know in Redis, behind one discovery
  --redis URL          the Redis of a cluster; without it, one of its own is started and ended
  --exit-with-stdin    stop when standard input ends
  --quiet              no log on standard error
  --ping-interval MS   how often each connection is asked whether it is still there (25000)
  --ping-timeout MS    how long it may take to answer (20000)
  --tls-cert FILE      certificate, in PEM, and
  --tls-key FILE       its key: serve https
  --help               show this text
`;

const OPTIONS = {
  host: { type: 'string', default: '127.0.0.1' },
  port: { type: 'string', default: '8600' },
  config: { type: 'string' },
  'rate-limit': { type: 'string' },
  control: { type: 'boolean', default: false },
  cluster: { type: 'string' },
  redis: { type: 'string' },
  'exit-with-stdin': { type: 'boolean', default: false },
  quiet: { type: 'boolean', default: false },
  'ping-interval': { type: 'string', default: '25000' },
  'ping-timeout': { type: 'string', default: '20000' },
  'tls-cert': { type: 'string' },
  'tls-key': { type: 'string' },
  help: { type: 'boolean', default: false },
};

/** Reads the arguments and the files that they name; throws an Error that says what is wrong with them. */
export function readOptions(args) {
  const { values } = parseArgs({ args, options: OPTIONS });
  const { 'rate-limit': rateLimit, cluster, redis } = values;
  if (redis !== undefined && !cluster) throw new Error('--redis goes with --cluster');
  if (redis !== undefined && !/^rediss?:\/\//.test(redis)) throw new Error('--redis wants a URL, redis://HOST:PORT');
  return {
    help: values.help,
    host: values.host,
    port: wholeNumber('--port', values.port, 0, 65535),
    config: values.config === undefined ? {} : contents(values.config, readConfig),
    rateLimit: rateLimit === undefined ? undefined : wholeNumber('--rate-limit', rateLimit, 1, 1_000_000),
    control: values.control,
    cluster: cluster === undefined ? undefined : wholeNumber('--cluster', cluster, 1, 64),
    redis,
    exitWithStdin: values['exit-with-stdin'],
    quiet: values.quiet,
    pingInterval: wholeNumber('--ping-interval', values['ping-interval'], 1, 3_600_000),
    pingTimeout: wholeNumber('--ping-timeout', values['ping-timeout'], 1, 3_600_000),
    tls: readTls(values['tls-cert'], values['tls-key']),
  };
}

function wholeNumber(name, text, least, most) {
  const number = /^\d{1,7}$/.test(text) ? Number(text) : NaN;
  if (!(number >= least && number <= most)) throw new Error(`${name} wants a whole number from ${least} to ${most}`);
  return number;
}

function readTls(cert, key) {
  if (cert === undefined && key === undefined) return undefined;
  if (cert === undefined || key === undefined) throw new Error('--tls-cert and --tls-key go together');
  return { cert: contents(cert, readFileSync), key: contents(key, readFileSync) };
}

function contents(file, read) {
  try {
    return read(file);
  } catch (error) {
    throw new Error(`${file}: ${error.message}`);
  }
}
