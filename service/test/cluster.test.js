import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { test } from 'node:test';
import { setTimeout as pause } from 'node:timers/promises';
import { Client, control, ready, run, until } from './client.js';

const skip = spawnSync('redis-server', ['--version']).status !== 0 && 'redis-server is not installed';

test('processes share users, and one that is killed takes its connections with it and nothing else', { skip }, async (t) => {
  const program = run(t, '--cluster', '2', '--port', '0', '--control', '--quiet', '--exit-with-stdin');
  const cluster = { baseUrl: await ready(program) };
  const discover = async () => ({ baseUrl: (await (await fetch(`${cluster.baseUrl}/config/api/v1/pim-server?appId=a`)).json()).data.brivelServers[0] });
  const [here, there] = [await discover(), await discover()];
  assert.notEqual(here.baseUrl, there.baseUrl);

  const bob = await Client.login(t, there, 'bob');
  const older = await Client.login(t, there, 'alice');
  const alice = await Client.login(t, here, 'alice');
  assert.deepEqual(await older.event('disconnectReason'), ['KickOff']);
  for (const client of [alice, bob]) await client.command('join', { channelId: 'r' });
  await bob.command('subscribePeersOnlineStatus', { userIds: ['alice'] });
  await alice.command('sendMessageToPeer', { targetUserId: 'carol', content: { text: 'kept' }, option: { offline: true } });
  // Who is where is heard of a moment later than by the users.
  const connected = async () => (await control(cluster, 'processes')).processes.map((process) => process.connected);
  while (`${await connected()}` !== '1,1') await pause(10);
  await control(cluster, 'answer', { command: 'join', userId: 'alice', answer: [{ result: 4, bytes: { $base64: 'AQI=' } }] });
  assert.deepEqual(await alice.command('join', { channelId: 'r' }), { result: 4, bytes: Buffer.from([1, 2]) });
  await assert.rejects(control(cluster, 'drop', { userId: 'nobody' }), /not connected/);
  bob.events.length = 0;

  const { processes } = await control(cluster, 'processes');
  const [victim] = processes.filter(({ port }) => here.baseUrl.endsWith(`:${port}`));
  await control(cluster, 'kill', { number: victim.number });
  await alice.event('disconnect');
  // He is there still, as far as anybody knows: what is told to him now waits for him.
  const text = async (content) => bob.command('sendMessageToPeer', { targetUserId: 'alice', content, option: { offline: true } });
  assert.deepEqual(await text({ text: 'first' }), { result: 0 });
  assert.deepEqual(await text({ binary: Buffer.from([0, 255]) }), { result: 0 });
  let again = new Client(t, here, 'alice');
  await until(() => {
    if (!again.socket.active) again = new Client(t, here, 'alice'); // nobody listened there yet
    return again.socket.connected;
  });
  const [{ msgs }] = await again.event('MessageToPeerReceived');
  assert.deepEqual(msgs.map(({ content }) => content), [{ text: 'first' }, { binary: Buffer.from([0, 255]) }]);
  await again.command('join', { channelId: 'r' });
  await bob.settled();
  const told = bob.events.filter(([name]) => name !== 'ChannelMemberCount');
  assert.deepEqual(told.map(([name]) => name), ['MemberLeft', 'MemberJoined'], 'and he was online all the time');

  // Nothing is lost, and nothing done twice, while Redis is away.
  const restarted = control(cluster, 'restartRedis', {});
  const sent = Array.from({ length: 200 }, (_, n) => again.command('sendChannelMessage', { channelId: 'r', content: { text: `${n}` } }));
  assert.deepEqual((await Promise.all(sent)).filter(({ result }) => result !== 0), []);
  await restarted;
  await bob.settled();
  assert.deepEqual(bob.had('ChannelMessageReceived').map(([{ content }]) => Number(content.text)), [...Array(200).keys()]);
  const carol = await Client.login(t, here, 'carol');
  assert.deepEqual((await carol.event('MessageToPeerReceived'))[0].msgs.map(({ content }) => content.text), ['kept']);

  const state = (await control(cluster, 'state')).apps.app;
  assert.deepEqual(state.channels.r.members.sort(), ['alice', 'bob']);
  program.child.stdin.end();
  assert.equal(await program.exit, 0);
  assert.equal(program.err, '');
});
