import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Client, startService } from './client.js';

async function people(t, ...names) {
  return peopleOf(t, {}, ...names);
}

async function peopleOf(t, options, ...names) {
  const service = await startService(t, options);
  const clients = [];
  for (const name of names) clients.push(await Client.login(t, service, name));
  return [service, ...clients];
}

test('the end of a connection is told to those who care', async (t) => {
  const [, alice, bob] = await people(t, 'alice', 'bob');
  for (const who of [alice, bob]) await who.command('join', { channelId: 'r' });
  await alice.command('setLocalUserAttributes', { attributes: { a: '1' } });
  await bob.command('subscribePeersUserAttributes', { userIds: ['alice'] });
  await bob.command('subscribePeersOnlineStatus', { userIds: ['alice', 'alice'] });
  assert.deepEqual(await bob.event('PeersOnlineStatusChanged'), [{ status: { alice: 0 } }]);
  alice.socket.disconnect();
  assert.deepEqual(await bob.event('MemberLeft'), [{ channelId: 'r', userId: 'alice', reason: 'Disconnect' }]);
  const gone = { attributes: { a: '!!&@#DELETED#@&!!' } };
  assert.deepEqual(await bob.event('PeersUserAttributesChanged'), [{ attributes: { alice: gone } }]);
  assert.deepEqual(await bob.event('PeersOnlineStatusChanged'), [{ status: { alice: 1 } }]);
});

test('a push of counts names all channels of its receiver', async (t) => {
  const [, alice, bob] = await people(t, 'alice', 'bob');
  await alice.command('join', { channelId: 'a' });
  await alice.command('join', { channelId: 'b' });
  await alice.settled();
  alice.events.length = 0;
  await bob.command('join', { channelId: 'b' });
  assert.deepEqual(await alice.event('ChannelMemberCount'), [{ counts: { a: 1, b: 2 } }]);
});

test('messages kept for somebody offline arrive in order, in one batch, after the login', async (t) => {
  const [service, alice] = await people(t, 'alice');
  const send = (content, offline) =>
    alice.command('sendMessageToPeer', { targetUserId: 'bob', content, option: { offline } });
  assert.deepEqual(await send({ text: 'lost', binary: null }, false), { result: 3 });
  assert.deepEqual(await send({ text: 'one', binary: null }, true), { result: 0 });
  assert.deepEqual(await send({ text: null, binary: Buffer.from([0, 255]) }, true), { result: 0 });
  const bob = await Client.login(t, service, 'bob');
  assert.deepEqual(await send({ text: 'x'.repeat(30_000), binary: null }, true), { result: 0 });
  const [{ msgs }] = await bob.event('MessageToPeerReceived');
  assert.deepEqual(msgs.map((message) => message.content), [{ text: 'one' }, { binary: Buffer.from([0, 255]) }]);
  assert.ok(msgs.every((message) => message.fromUserId === 'alice' && message.serverReceivedTs > 0));
  const [next] = await bob.event('MessageToPeerReceived');
  assert.deepEqual(next.msgs.map((message) => message.content.text.length), [30_000]);
  await bob.quit();
  const again = await Client.login(t, service, 'bob');
  await again.settled();
  assert.deepEqual(again.had('MessageToPeerReceived'), [], 'kept messages are delivered once');
});

test('what lasts as long as a connection is not there in the next one', async (t) => {
  const [service, alice, bob] = await people(t, 'alice', 'bob');
  await bob.command('join', { channelId: 'r' });
  await bob.command('setLocalUserAttributes', { attributes: { a: '1' } });
  await bob.command('subscribePeersUserAttributes', { userIds: ['alice'] });
  await bob.command('subscribePeersOnlineStatus', { userIds: ['carol'] });
  await bob.quit();
  const again = await Client.login(t, service, 'bob');
  await alice.command('setLocalUserAttributes', { attributes: { b: '2' } });
  await Client.login(t, service, 'carol');
  assert.deepEqual(await again.settled(), { result: 0, userIds: [] });
  assert.deepEqual(again.events, []);
  assert.deepEqual(await again.command('getUserAttributes', { userId: 'bob' }), { result: 0, attributes: {} });
  assert.deepEqual(await again.command('getChannelMembers', { channelId: 'r' }), { result: 5 });
});

test('results other than 0 say what is wrong', async (t) => {
  const limits = {
    channelsPerUser: 2,
    membersPerChannel: 1,
    subscriptionsPerUser: 2,
    attributesPerOwner: 2,
    attributeBytesPerOwner: 20,
    offlineMessagesPerUser: 1,
  };
  const [, alice, bob] = await peopleOf(t, { config: { limits } }, 'alice', 'bob');
  await bob.command('join', { channelId: 'full' });
  const to = (targetUserId, more) => ({ targetUserId, content: { text: 'x' }, option: { offline: true }, ...more });
  const long = (field) => ({ [field]: field === 'text' ? 'x'.repeat(32_769) : Buffer.alloc(32_769) });
  const many = Array.from({ length: 33 }, (_, n) => `c${n}`);
  const rows = [
    ['join', { channelId: 'a' }, 0],
    ['join', { channelId: 'full' }, 6],
    ['join', { channelId: 'b' }, 0],
    ['join', { channelId: 'c' }, 5],
    ['join', { channelId: 'a' }, 0],
    ['leave', { channelId: 'full' }, 6],
    ['getChannelMembers', { channelId: 'full' }, 5],
    ['sendChannelMessage', { channelId: 'full', content: { text: 'x' } }, 5],
    ['sendChannelMessage', { channelId: 'a', content: long('text') }, 4],
    ['sendChannelMessage', { channelId: 'a', content: long('binary') }, 4],
    ['sendChannelMessage', { channelId: 'a', content: { text: null, binary: null } }, 3],
    ['getChannelMemberCount', { channelIds: many.slice(1) }, 0],
    ['getChannelMemberCount', { channelIds: many }, 5],
    ['setChannelAttributes', { channelId: 'a', attributes: { a: '1', b: '2', c: '3' } }, 4],
    ['setChannelAttributes', { channelId: 'a', attributes: { a: 'x'.repeat(20) } }, 4],
    ['setLocalUserAttributes', { attributes: { a: '1', b: '2' } }, 0],
    ['addOrUpdateLocalUserAttributes', { attributes: { c: '3' } }, 4],
    ['addOrUpdateLocalUserAttributes', { attributes: { b: '3' } }, 0],
    ['getUserAttributes', { userId: 'nobody' }, 6],
    ['subscribePeersUserAttributes', { userIds: ['p', 'q'] }, 0],
    ['subscribePeersUserAttributes', { userIds: ['q', 'p'] }, 0],
    ['subscribePeersUserAttributes', { userIds: ['q', 'r'] }, 6],
    ['queryPeersBySubscriptionOption', { option: 1 }, 0],
    ['queryPeersBySubscriptionOption', { option: 2 }, 2],
    ['sendMessageToPeer', to('carol'), 0],
    ['sendMessageToPeer', to('carol'), 6],
    ['sendMessageToPeer', to('carol', { option: {} }), 3],
    ['sendMessageToPeer', to('bob', { content: long('text') }), 7],
    ['sendMessageToPeer', to('bob', { content: { binary: 'text' } }), 4],
    ['sendMessageToPeer', to(''), 4],
    ['noSuchCommand', {}, 1],
  ];
  for (const [name, payload, result] of rows) {
    const answer = await alice.command(name, payload);
    assert.equal(answer.result, result, `${name} ${JSON.stringify(payload).slice(0, 80)}`);
  }
  assert.deepEqual((await alice.command('getUserAttributes', { userId: 'alice' })).attributes, { a: '1', b: '3' });
  assert.deepEqual((await alice.command('queryPeersBySubscriptionOption', { option: 1 })).userIds, ['p', 'q']);
});
