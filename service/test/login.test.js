import assert from 'node:assert/strict';
import { once } from 'node:events';
import { get } from 'node:http';
import { json } from 'node:stream/consumers';
import { test } from 'node:test';
import { Client, TOKEN, control, startService } from './client.js';

const EXPIRED = 'e'.repeat(32);
const config = { apps: ['app', 'forbidden'], forbiddenApps: ['forbidden'], expiredTokens: [EXPIRED], users: { alice: TOKEN, bob: TOKEN } };

const refusals = [
  ['an unknown app', 'alice', { appId: 'other' }, 'InvalidAppId'],
  ['an app that is shut out', 'alice', { appId: 'forbidden' }, 'AppForbidden'],
  ['another product', 'alice', { app: 'x' }, 'InvalidArgument'],
  ['a user id with a slash', 'a/b', {}, 'InvalidArgument'],
  ['credentials that are no object', 'alice', { credentials: 7 }, 'InvalidArgument'],
  ['a time stamp that is text', 'alice', { credentials: { token: TOKEN, userId: 'alice', timestamp: 'x' } }, 'InvalidArgument'],
  ['a short token', 'alice', { token: TOKEN.slice(1) }, 'InvalidToken'],
  ['a token with a space', 'alice', { token: `${TOKEN.slice(1)} ` }, 'InvalidToken'],
  ['an expired token', 'alice', { token: EXPIRED }, 'ExpiredToken'],
  ["somebody else's token", 'alice', { token: 'x'.repeat(32) }, 'AuthFail'],
  ['a stranger', 'mallory', {}, 'AuthFail'],
];

test('a login is refused with its reason, then disconnected', async (t) => {
  const service = await startService(t, { config });
  for (const [when, userId, options, reason] of refusals) {
    const client = new Client(t, service, userId, options);
    assert.deepEqual(await client.event('disconnectReason'), [`loginFail: ${reason}`], when);
    assert.deepEqual(await client.event('disconnect'), ['io server disconnect'], when);
  }
  await Client.login(t, service, 'alice');
});

test('apps are worlds apart, and names that JavaScript gives objects are plain ids', async (t) => {
  const service = await startService(t);
  const here = await Client.login(t, service, '__proto__', { appId: 'here' });
  const there = await Client.login(t, service, '__proto__', { appId: 'there' });
  for (const client of [here, there]) {
    await client.command('join', { channelId: 'constructor' });
    await client.command('setLocalUserAttributes', { attributes: JSON.parse('{"__proto__":"x"}') });
  }
  assert.deepEqual((await here.command('getChannelMembers', { channelId: 'constructor' })).members, ['__proto__']);
  const { attributes } = await here.command('getUserAttributes', { userId: '__proto__' });
  assert.deepEqual(Object.entries(attributes), [['__proto__', 'x']]);
  assert.deepEqual([...here.had('disconnectReason'), ...here.had('MemberJoined')], []);
});

test('the older session of a user is told and ends; its end does not touch the newer one', async (t) => {
  const service = await startService(t);
  const watcher = await Client.login(t, service, 'watcher');
  await watcher.command('subscribePeersOnlineStatus', { userIds: ['alice'] });
  await watcher.event('PeersOnlineStatusChanged');
  const older = await Client.login(t, service, 'alice');
  assert.deepEqual(await watcher.event('PeersOnlineStatusChanged'), [{ status: { alice: 0 } }]);
  await older.command('join', { channelId: 'room' });
  const newer = await Client.login(t, service, 'alice');
  assert.deepEqual(await older.event('disconnectReason'), ['KickOff']);
  assert.deepEqual(await older.event('disconnect'), ['io server disconnect']);
  assert.deepEqual(await newer.command('join', { channelId: 'room' }), { result: 0 });
  const { apps } = await control(service, 'state');
  assert.deepEqual(apps.app.channels.room.members, ['alice']);
  await watcher.settled();
  assert.deepEqual(watcher.had('PeersOnlineStatusChanged'), [], 'the user was online all the time');
});

test('discovery names this service, as it was asked for, to those who have an app', async (t) => {
  const { baseUrl } = await startService(t);
  const ask = async (query, host) => {
    const options = host ? { headers: { host } } : {};
    const [response] = await once(get(`${baseUrl}/config/api/v1/pim-server${query}`, options), 'response');
    return json(response);
  };
  const rows = [
    ['?appId=any', undefined, baseUrl],
    ['?appId=a&b?c/%zz', undefined, baseUrl],
    ['?appId=any', 'Pim.example:81', 'http://Pim.example:81'],
    ['?appId=any', '[::1]:81', 'http://[::1]:81'],
    ['?appId=any', 'pim.example/x', baseUrl],
    ['?appId=any', 'user@pim.example', baseUrl],
  ];
  for (const [query, host, server] of rows) {
    assert.deepEqual(await ask(query, host), { code: 200, data: { brivelServers: [server] } }, `${query} ${host}`);
  }
  for (const query of ['', '?', '?appId=', '?app=any']) assert.equal((await ask(query)).code, 400, query);
});

test('more commands than the limit are refused with a lone text', async (t) => {
  const service = await startService(t, { rateLimit: 2, now: () => 0 });
  const alice = await Client.login(t, service, 'alice');
  const answers = await Promise.all([1, 2, 3].map((n) => alice.command('join', { channelId: `c${n}` })));
  assert.deepEqual(answers, [{ result: 0 }, { result: 0 }, 'Too Many Requests']);
});
