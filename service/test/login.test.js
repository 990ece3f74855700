import assert from 'node:assert/strict';
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

test('the older session of a user is told and ends; its end does not touch the newer one', async (t) => {
  const service = await startService(t);
  const older = await Client.login(t, service, 'alice');
  await older.command('join', { channelId: 'room' });
  const newer = await Client.login(t, service, 'alice');
  assert.deepEqual(await older.event('disconnectReason'), ['KickOff']);
  assert.deepEqual(await older.event('disconnect'), ['io server disconnect']);
  assert.deepEqual(await newer.command('join', { channelId: 'room' }), { result: 0 });
  const { apps } = await control(service, 'state');
  assert.deepEqual(apps.app.channels.room.members, ['alice']);
});

test('discovery names this service, for an app', async (t) => {
  const service = await startService(t);
  const ask = async (query) => (await fetch(`${service.baseUrl}/config/api/v1/pim-server${query}`)).json();
  assert.deepEqual(await ask('?appId=any'), { code: 200, data: { brivelServers: [service.baseUrl] } });
  assert.equal((await ask('')).code, 400);
});

test('more commands than the limit are refused with a lone text', async (t) => {
  const service = await startService(t, { rateLimit: 2, now: () => 0 });
  const alice = await Client.login(t, service, 'alice');
  const answers = await Promise.all([1, 2, 3].map((n) => alice.command('join', { channelId: `c${n}` })));
  assert.deepEqual(answers, [{ result: 0 }, { result: 0 }, 'Too Many Requests']);
});

test('answers, silences and refusals can be prepared', async (t) => {
  const service = await startService(t);
  await control(service, 'login', { userId: 'alice', reason: 'loginFail: AuthFail' });
  const refused = new Client(t, service, 'alice');
  assert.deepEqual(await refused.event('disconnectReason'), ['loginFail: AuthFail']);
  const alice = await Client.login(t, service, 'alice');
  await control(service, 'answer', { command: 'join', times: 1, answer: ['Too Many Requests'] });
  assert.equal(await alice.command('join', { channelId: 'c' }), 'Too Many Requests');
  assert.deepEqual(await alice.command('join', { channelId: 'c' }), { result: 0 });
  await control(service, 'emit', { userId: 'alice', event: 'X', items: [{ b: { $base64: 'AQI=' } }] });
  assert.deepEqual(await alice.event('X'), [{ b: Buffer.from([1, 2]) }]);
  await control(service, 'drop', { userId: 'alice' });
  assert.deepEqual(await alice.event('disconnect'), ['transport close']);
});
