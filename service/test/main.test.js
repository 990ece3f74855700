import assert from 'node:assert/strict';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { test } from 'node:test';
import { readOptions } from '../lib/options.js';
import { Client, openMuteConnection, ready, run, until } from './client.js';

// Far from the half second that it takes on an idle machine, and from the half minute that a mute peer is worth to ws.
const SOON_MS = 8000;

test('it says where it listens, logs one line for each request, and stops when told', async (t) => {
  const stops = [({ child }) => child.stdin.end(), ({ child }) => child.kill('SIGTERM'), ({ child }) => child.kill('SIGINT')];
  await Promise.all(
    stops.map(async (stop) => {
      const program = run(t, '--port', '0', '--exit-with-stdin');
      const baseUrl = await ready(program);
      await openMuteConnection(t, baseUrl); // its closing is not answered
      const alice = await Client.login(t, { baseUrl }, 'alice\n');
      await alice.command('join\n2030-01-01 alice login -> ok \u001b[31m\u2028', {});
      await until(() => program.err.split('\n').length === 3);
      const told = Date.now();
      stop(program);
      assert.equal(await program.exit, 0);
      assert.ok(Date.now() - told < SOON_MS);
      assert.equal(program.out, `kvpim service ready on ${baseUrl}\n`);
      const [login, command, ...others] = program.err.split('\n');
      assert.match(login, /^\S+Z app\/"alice\\n" login -> ok, connection \S+$/);
      assert.match(command, /^\S+Z app\/"alice\\n" "join\\n2030-01-01 alice login -> ok \\u001b\[31m\\u2028" -> 1$/);
      assert.deepEqual(others.filter((line) => !/ logout \(.*\) after \d+ ms$/.test(line)), ['']);
    }),
  );
});

test('arguments and configuration that make no sense are explained', async (t) => {
  const folder = await mkdtemp(join(tmpdir(), 'kvpim-service-'));
  t.after(() => rm(folder, { recursive: true }));
  const config = async (text) => {
    const file = join(folder, `${Math.random()}.json`);
    await writeFile(file, text);
    return ['--config', file];
  };
  const rows = [
    [['--prot', '1'], /--prot/],
    [['surplus'], /surplus/],
    [['--port', '65536'], /--port wants a whole number from 0 to 65535/],
    [['--rate-limit', '0'], /--rate-limit wants/],
    [['--ping-interval', '0'], /--ping-interval wants/],
    [['--ping-timeout', '1s'], /--ping-timeout wants/],
    [['--rate-limit', ''], /--rate-limit wants/],
    [['--tls-cert', 'x'], /go together/],
    [['--redis', 'redis://127.0.0.1'], /--redis goes with --cluster/],
    [['--cluster', '2', '--redis', '127.0.0.1'], /--redis wants a URL/],
    [['--config', join(folder, 'absent.json')], /absent\.json/],
    [await config('{"users":{"a":7}}'), /"users" must be/],
    [await config('{"limits":{"chanels":1}}'), /"limits" has no "chanels"/],
    [await config('{"usrs":{}}'), /"usrs"/],
    [await config('not JSON'), /JSON/],
  ];
  for (const [args, message] of rows) assert.throws(() => readOptions(args), { message });
  const { config: read } = readOptions(await config('{"apps":["a"],"limits":{"channelsPerUser":1}}'));
  assert.deepEqual(read, { apps: ['a'], limits: { channelsPerUser: 1 } });
});

test('it exits with 2 for bad usage and with 1 for an address that cannot be had', async (t) => {
  const first = run(t, '--port', '0', '--quiet');
  const { port } = new URL(await ready(first));
  const rows = [
    [['--prot'], 2, /--prot[^]*Usage:/],
    [['--port', port], 1, new RegExp(`port ${port} on 127\\.0\\.0\\.1 is already in use`)],
  ];
  for (const [args, status, text] of rows) {
    const program = run(t, ...args);
    assert.equal(await program.exit, status);
    assert.match(program.err, text);
    assert.equal(program.out, '');
  }
});
