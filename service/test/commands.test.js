import assert from 'node:assert/strict';
import { test } from 'node:test';
import { COMMAND_NAMES } from '../lib/commands/index.js';
import { Client, startService } from './client.js';

async function people(t, ...names) {
  const service = await startService(t);
  const clients = [];
  for (const name of names) clients.push(await Client.login(t, service, name));
  return [service, ...clients];
}

test('members of a channel hear of joins, messages, counts and leaves; others do not', async (t) => {
  const [, alice, bob, carol] = await people(t, 'alice', 'bob', 'carol');
  await alice.command('join', { channelId: 'r' });
  await bob.command('join', { channelId: 'r' });
  assert.deepEqual(await alice.event('MemberJoined'), [{ channelId: 'r', userId: 'bob' }]);
  assert.deepEqual(await bob.command('getChannelMembers', { channelId: 'r' }), { result: 0, members: ['alice', 'bob'] });
  const content = { text: 'hi', binary: Buffer.from([4, 5]) };
  assert.deepEqual(await bob.command('sendChannelMessage', { channelId: 'r', content, option: {} }), { result: 0 });
  const [message] = await alice.event('ChannelMessageReceived');
  assert.deepEqual([message.from, message.content], [{ channelId: 'r', userId: 'bob' }, content]);
  await bob.command('leave', { channelId: 'r' });
  assert.deepEqual(await alice.event('MemberLeft'), [{ channelId: 'r', userId: 'bob', reason: 'Quit' }]);
  await bob.command('join', { channelId: 'r' });
  bob.socket.disconnect();
  assert.deepEqual(await alice.event('MemberLeft'), [{ channelId: 'r', userId: 'bob', reason: 'Disconnect' }]);
  await carol.settled();
  assert.deepEqual(carol.events, []);
  assert.deepEqual(bob.had('ChannelMessageReceived'), []);
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
  const send = (text, offline) =>
    alice.command('sendMessageToPeer', { targetUserId: 'bob', content: { text, binary: null }, option: { offline } });
  assert.deepEqual(await send('lost', false), { result: 3 });
  assert.deepEqual(await send('one', true), { result: 0 });
  assert.deepEqual(await send('two', true), { result: 0 });
  const bob = await Client.login(t, service, 'bob');
  const [{ msgs }] = await bob.event('MessageToPeerReceived');
  assert.deepEqual(msgs.map((message) => message.content.text), ['one', 'two']);
});

test('channel attributes: written, read, and told to members when asked', async (t) => {
  const [, alice, bob] = await people(t, 'alice', 'bob');
  await bob.command('join', { channelId: 'r' });
  const write = (name, rest, notify) => alice.command(name, { channelId: 'r', ...rest, option: { notify } });
  await write('setChannelAttributes', { attributes: { a: '1', b: '2' } }, false);
  await write('addOrUpdateChannelAttributes', { attributes: { b: '3', c: '4' } }, true);
  assert.deepEqual(await bob.event('ChannelAttributesUpdated'), [{ channelId: 'r', attributes: { a: '1', b: '3', c: '4' } }]);
  await write('deleteChannelAttributesByKeys', { attributeKeys: ['a', 'x'] }, false);
  assert.deepEqual(await bob.command('getChannelAttributesByKeys', { channelId: 'r', attributeKeys: ['a', 'c'] }), {
    result: 0,
    attributes: { c: '4' },
  });
  await write('clearChannelAttributes', {}, false);
  assert.deepEqual(await bob.command('getChannelAttributes', { channelId: 'r' }), { result: 0, attributes: {} });
  assert.deepEqual(bob.had('ChannelAttributesUpdated'), []);
});

test('subscribers hear of changed attributes only, and of their end with the connection', async (t) => {
  const [, alice, bob, carol] = await people(t, 'alice', 'bob', 'carol');
  await bob.command('subscribePeersUserAttributes', { userIds: ['alice'] });
  await alice.command('setLocalUserAttributes', { attributes: { a: '1', b: '2' } });
  assert.deepEqual(await bob.event('PeersUserAttributesChanged'), [{ attributes: { alice: { attributes: { a: '1', b: '2' } } } }]);
  await alice.command('addOrUpdateLocalUserAttributes', { attributes: { b: '2', c: '3' } });
  assert.deepEqual(await bob.event('PeersUserAttributesChanged'), [{ attributes: { alice: { attributes: { c: '3' } } } }]);
  await alice.command('deleteLocalUserAttributesByKeys', { attributeKeys: ['a'] });
  const gone = '!!&@#DELETED#@&!!';
  assert.deepEqual(await bob.event('PeersUserAttributesChanged'), [{ attributes: { alice: { attributes: { a: gone } } } }]);
  assert.deepEqual(await carol.command('getPeersUserAttributes', { userIds: ['alice', 'nobody'] }), {
    result: 0,
    attributes: { alice: { result: 0, attributes: { b: '2', c: '3' } }, nobody: { result: 6 } },
  });
  alice.socket.disconnect();
  assert.deepEqual(await bob.event('PeersUserAttributesChanged'), [{ attributes: { alice: { attributes: { b: gone, c: gone } } } }]);
  await carol.settled();
  assert.deepEqual(carol.had('PeersUserAttributesChanged'), []);
});

test('online status: 0 is online in a push, true in an answer', async (t) => {
  const [service, alice] = await people(t, 'alice');
  await alice.command('subscribePeersOnlineStatus', { userIds: ['bob'] });
  assert.deepEqual(await alice.event('PeersOnlineStatusChanged'), [{ status: { bob: 1 } }]);
  const bob = await Client.login(t, service, 'bob');
  assert.deepEqual(await alice.event('PeersOnlineStatusChanged'), [{ status: { bob: 0 } }]);
  assert.deepEqual(await alice.command('queryPeersOnlineStatus', { userIds: ['bob', 'x'] }), { result: 0, status: { bob: true, x: false } });
  assert.deepEqual(await alice.command('queryPeersBySubscriptionOption', { option: 0 }), { result: 0, userIds: ['bob'] });
  await alice.command('unsubscribePeersOnlineStatus', { userIds: ['bob'] });
  bob.socket.disconnect();
  await alice.settled();
  assert.deepEqual(alice.had('PeersOnlineStatusChanged'), []);
});

test('invitations are relayed to the other side, once', async (t) => {
  const [, alice, bob] = await people(t, 'alice', 'bob');
  const invitation = { inviter: 'alice', invitee: 'bob', requestInfo: 'tea?', responseInfo: '', state: 0 };
  const op = (who, type, more) => who.command('invitationOp', { type, invitation: { ...invitation, ...more } });
  for (const [who, type, state, other] of [[bob, 'accept', 4, alice], [bob, 'refuse', 5, alice], [alice, 'cancel', 3, bob]]) {
    await op(alice, 'send');
    const [{ invitation: arrived }] = await bob.event('InvitationNotify');
    assert.deepEqual(arrived, { ...invitation, state: 2 });
    await op(who, type, { responseInfo: 'so be it' });
    const [{ invitation: told }] = await other.event('InvitationNotify');
    assert.deepEqual([told.state, told.responseInfo, told.requestInfo], [state, 'so be it', 'tea?'], type);
    assert.deepEqual(await op(who, type), { result: 0 });
  }
  assert.deepEqual(await op(bob, 'send'), { result: 4 }, 'in the name of another');
  assert.deepEqual(await op(alice, 'send', { invitee: 'nobody' }), { result: 3 });
  bob.socket.disconnect();
  await alice.settled();
  assert.deepEqual([...alice.had('InvitationNotify'), ...bob.had('InvitationNotify')], []);
});

test('whatever a payload is, the command answers and the service stays up', async (t) => {
  const [, alice] = await people(t, 'alice');
  const noDictionaries = [undefined, null, 0, '', 'x', [], [[]], true];
  const odd = [{}, { channelId: 7 }, { channelId: 'a/b' }, { userIds: 'x' }, { userIds: [null] }, { userIds: [] },
    { channelId: 'c', content: [] }, { channelId: 'c', attributes: { a: 1 } }, { attributes: {} }, { attributeKeys: {} },
    { type: 'constructor', invitation: {} }, { option: 'x' }, { channelId: 'c', option: { notify: 1 } }, { userId: {} }];
  for (const name of [...COMMAND_NAMES, 'toString', '', null]) {
    for (const payload of noDictionaries) {
      const { result } = await alice.command(name, payload);
      assert.ok(result > 0, `${name} took ${JSON.stringify(payload)}`);
    }
    for (const payload of odd) assert.equal(typeof (await alice.command(name, payload)).result, 'number');
  }
  assert.deepEqual(await alice.command('join', { channelId: 'still here' }), { result: 0 });
});
