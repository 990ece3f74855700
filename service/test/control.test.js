import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Client, control, startService } from './client.js';

test('the state shows users, channels and what was asked', async (t) => {
  const service = await startService(t);
  const alice = await Client.login(t, service, 'alice');
  await alice.command('join', { channelId: 'r' });
  await alice.command('join', { channelId: 'left again' });
  await alice.command('leave', { channelId: 'left again' });
  await alice.command('setChannelAttributes', { channelId: 'r', attributes: { topic: 'tea' } });
  await alice.command('setLocalUserAttributes', { attributes: { mood: 'good' } });
  await alice.command('subscribePeersOnlineStatus', { userIds: ['bob'] });
  await alice.command('subscribePeersUserAttributes', { userIds: ['carol'] });
  const bob = await Client.login(t, service, 'bob');
  await alice.command('invitationOp', { type: 'send', invitation: { inviter: 'alice', invitee: 'bob' } });
  await bob.quit();
  await alice.command('sendMessageToPeer', { targetUserId: 'bob', content: { text: 'x' }, option: { offline: true } });
  await alice.command('no such', {});

  const { apps, commands } = await control(service, 'state');
  const nobody = { channels: [], attributes: {}, statusSubscriptions: [], attributeSubscriptions: [], offlineMessages: 0 };
  const { since, ...shown } = apps.app.users.alice;
  assert.ok(Math.abs(Date.now() - since) < 10_000);
  assert.deepEqual(shown, {
    ...nobody,
    connected: true,
    socketId: alice.socket.id,
    channels: ['r'],
    attributes: { mood: 'good' },
    statusSubscriptions: ['bob'],
    attributeSubscriptions: ['carol'],
  });
  assert.deepEqual(apps.app.users.bob, { ...nobody, connected: false, since: null, socketId: null, offlineMessages: 1 });
  assert.deepEqual(apps.app.channels, { r: { members: ['alice'], attributes: { topic: 'tea' } } });
  assert.deepEqual(apps.app.invitations.map(({ inviter, state }) => [inviter, state]), [['alice', 2]]);
  assert.deepEqual([commands.join, commands.unknown, commands.getChannelMembers], [2, 1, undefined]);
});

test('answers can be prepared, bytes included, and logins left without one, for one user', async (t) => {
  const service = await startService(t);
  const alice = await Client.login(t, service, 'alice');
  await control(service, 'login', { userId: 'carol', reason: null });
  await control(service, 'answer', { command: 'join', userId: 'alice', answer: [{ result: 4, bytes: { $base64: 'AQI=' } }] });
  const ignored = new Client(t, service, 'carol');
  await new Promise((resolve) => ignored.socket.once('connect', resolve));
  const bob = await Client.login(t, service, 'bob');
  assert.deepEqual(await bob.command('join', { channelId: 'c' }), { result: 0 });
  assert.deepEqual(await alice.command('join', { channelId: 'c' }), { result: 4, bytes: Buffer.from([1, 2]) });
  assert.deepEqual((await alice.command('getChannelMembers', { channelId: 'c' })).result, 5, 'it was not carried out');
  assert.deepEqual(ignored.events, []);
});

test('a frozen connection is silent in both directions, until it is thawed', async (t) => {
  const service = await startService(t);
  const alice = await Client.login(t, service, 'alice');
  const bob = await Client.login(t, service, 'bob');
  const asked = [];
  service.activity.on('command', ({ userId }) => asked.push(userId));
  await control(service, 'freeze', { userId: 'alice' });
  const held = alice.settled();
  await control(service, 'emit', { userId: 'alice', event: 'note', items: [1] });
  for (let i = 0; i < 20; i += 1) await bob.settled();
  assert.ok(!asked.includes('alice'), 'nothing is read');
  assert.deepEqual(alice.had('note'), [], 'nothing is written');
  await control(service, 'freeze', { userId: 'alice', frozen: false });
  await held;
  assert.deepEqual(alice.had('note'), [[1]]);
});

test('what cannot be done is told, and is not there at all unless asked for', async (t) => {
  const service = await startService(t);
  await Client.login(t, service, 'alice');
  const post = async (path, body, { baseUrl } = service) =>
    (await fetch(`${baseUrl}/control/${path}`, { method: 'POST', body })).status;
  const rows = [
    ['drop', '{"userId":"nobody"}', 404],
    ['drop', '{"userId":"alice","app":"other"}', 404],
    ['drop', '{}', 400],
    ['freeze', '{"userId":"nobody"}', 404],
    ['freeze', '{"userId":"alice","frozen":1}', 400],
    ['drop', '[]', 400],
    ['drop', 'not JSON', 400],
    ['drop', '{"userId":"alice","when":"now"}', 400],
    ['drop', `"${'x'.repeat(16 * 1024 * 1024)}"`, 413],
    ['answer', '{"command":"joyn","answer":null}', 400],
    ['answer', '{"command":"join"}', 400],
    ['answer', '{"command":"join","answer":[],"times":0}', 400],
    ['emit', '{"userId":"alice","event":"disconnect","items":[]}', 400],
    ['toString', '{}', 404],
  ];
  for (const [path, body, status] of rows) assert.equal(await post(path, body), status, `${path} ${body.slice(0, 60)}`);
  const closed = await startService(t, { control: false });
  assert.equal(await post('drop', '{"userId":"alice"}', closed), 404);
});
