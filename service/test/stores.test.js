import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { test } from 'node:test';
import { clear, merge, removeKeys, replace } from '../lib/attributes.js';
import { prepareConfig } from '../lib/config.js';
import { MemoryStore } from '../lib/memory-store.js';

const hasRedis = spawnSync('redis-server', ['--version']).status === 0;
const limits = { channelsPerUser: 2, membersPerChannel: 3, subscriptionsPerUser: 2, attributesPerOwner: 2, attributeBytesPerOwner: 12, offlineMessagesPerUser: 2 };

// Two stores that share their data, as two processes do: those who are connected to one and to the other.
const kinds = {
  memory() {
    const store = new MemoryStore(prepareConfig({ limits }).limits);
    return [store, store];
  },
  async redis(t) {
    const { RedisServer } = await import('../lib/redis-server.js');
    const { RedisStore } = await import('../lib/redis-store.js');
    const server = new RedisServer();
    await server.start();
    const stores = [1, 2].map(() => new RedisStore({ url: server.url, prefix: 'test:', limits: prepareConfig({ limits }).limits }));
    for (const store of stores) await store.start();
    t.after(async () => {
      for (const store of stores) await store.stop();
      await server.stop();
    });
    return stores;
  },
};

const set = (entries, way = merge) => ({ ...way, attributes: new Map(Object.entries(entries)) });
const without = (...attributeKeys) => ({ ...removeKeys, attributeKeys: new Set(attributeKeys) });
const bytes = Buffer.from([0, 255, 128]);
const awkward = '"\\ud800\u0000/é\ud83d\ude00';
const sent = (text, time) => ({ fromUserId: 'ann', serverReceivedTs: time, content: { text } });
const invitation = { inviter: 'ann', invitee: 'bob', requestInfo: awkward, responseInfo: '', state: 2 };
const good = (more) => ({ result: 0, ...more });

// Who asks, what, the answer, and what others are told in that step: "user event" with its items. Ann, cat and eve are with the
// first process, bob and dan with the second; a digit is another session of the same user.
const steps = [
  ['ann', 'open', [], good()],
  ['bob', 'open', [], good()],
  ['ann', 'subscribe', ['status', ['cat', 'bob']], good(), ['ann peersStatus', { cat: false, bob: true }]],
  ['ann', 'subscribe', ['status', ['dan']], { result: 6 }],
  ['cat', 'open', [], good(), ['ann peersStatus', { cat: true }]],
  ['dan', 'open', [], good()],
  ['dan', 'subscribe', ['attributes', ['ann', 'nobody']], good()],
  ['dan', 'subscriptions', ['attributes'], good({ userIds: ['ann', 'nobody'] })],
  ['dan', 'unsubscribe', ['attributes', ['nobody', 'eve']], good()],
  ['dan', 'subscriptions', ['attributes'], good({ userIds: ['ann'] })],

  ['bob', 'join', ['r'], good()],
  ['ann', 'join', ['r'], good(), ['bob memberJoined', 'r', 'ann']],
  ['cat', 'join', ['r'], good(), ['ann memberJoined', 'r', 'cat'], ['bob memberJoined', 'r', 'cat']],
  ['cat', 'join', ['r'], good()],
  ['dan', 'join', ['r'], { result: 6 }],
  ['bob', 'join', ['__proto__'], good()],
  ['bob', 'join', ['third'], { result: 5 }],
  ['bob', 'leave', ['third'], { result: 6 }],
  ['bob', 'members', ['r'], good({ members: ['bob', 'ann', 'cat'] })],
  ['dan', 'members', ['r'], { result: 5 }],
  ['ann', 'memberCounts', [['r', 'none']], good({ counts: { r: 3, none: 0 } })],
  ['ann', 'sendToChannel', ['r', 7, { text: awkward, binary: bytes }], good(),
    ['bob channelMessage', 'r', 'ann', 7, { text: awkward, binary: bytes }], ['cat channelMessage', 'r', 'ann', 7, { text: awkward, binary: bytes }]],
  ['dan', 'sendToChannel', ['r', 7, { text: 'x' }], { result: 5 }],

  ['dan', 'editChannelAttributes', ['r', set({ b: '1' }), false], good()],
  ['dan', 'editChannelAttributes', ['r', set({ a: awkward.slice(0, 3) }), true], good(),
    ...['ann', 'bob', 'cat'].map((user) => [`${user} channelAttributesUpdated`, 'r', { a: '"\\u', b: '1' }])],
  ['dan', 'editChannelAttributes', ['r', set({ c: '1' }), true], { result: 4 }],
  ['dan', 'editChannelAttributes', ['r', set({ c: 'x'.repeat(12) }, replace), true], { result: 4 }],
  ['dan', 'editChannelAttributes', ['r', without('a', 'z'), false], good()],
  ['ann', 'channelAttributes', ['r', undefined], good({ attributes: { b: '1' } })],
  ['ann', 'channelAttributes', ['r', new Set(['a'])], good({ attributes: {} })],
  ['ann', 'editUserAttributes', [set({ ['__proto__']: 'p', a: '1' })], good(), ['dan userAttributesChanged', 'ann', {}, { ['__proto__']: 'p', a: '1' }]],
  ['ann', 'editUserAttributes', [set({ a: '2' }, replace)], good(), ['dan userAttributesChanged', 'ann', { ['__proto__']: 'p', a: '1' }, { a: '2' }]],
  ['cat', 'userAttributes', [['ann', 'eve'], new Set(['a', 'b'])], good({ attributes: { ann: good({ attributes: { a: '2' } }), eve: { result: 6 } } })],
  ['bob', 'editUserAttributes', [set({ a: '2' })], good()],
  ['bob', 'editUserAttributes', [clear], good()],

  ['ann', 'sendToPeer', ['bob', 1, { binary: bytes }, true], good(), ['bob peerMessages', [{ fromUserId: 'ann', serverReceivedTs: 1, content: { binary: bytes } }]]],
  ['ann', 'sendToPeer', ['eve', 2, { text: 'lost' }, false], { result: 3 }],
  ['ann', 'sendToPeer', ['eve', 3, { text: 'one' }, true], good()],
  ['ann', 'sendToPeer', ['eve', 4, { text: awkward }, true], good()],
  ['ann', 'sendToPeer', ['eve', 5, { text: 'three' }, true], { result: 6 }],
  ['eve', 'open', [], good(), ['eve peerMessages', [sent('one', 3), sent(awkward, 4)]]],
  ['eve', 'close', [], undefined],
  ['eve', 'open', [], good()],
  ['cat', 'areOnline', [['eve', 'zoe']], good({ status: { eve: true, zoe: false } })],

  ['ann', 'invite', [invitation, 1000], good(), ['bob invitationNotice', invitation]],
  ['ann', 'invite', [{ ...invitation, invitee: 'zoe' }, 1000], { result: 3 }],
  ['ann', 'invite', [invitation, 2000], good(), ['bob invitationNotice', invitation]],
  ['bob', 'endInvitation', [invitation, true, { state: 4 }, 61_999], good(), ['ann invitationNotice', invitation, { state: 4 }]],
  ['bob', 'endInvitation', [invitation, true, { state: 4 }, 61_999], good()],
  ['ann', 'invite', [invitation, 2000], good(), ['bob invitationNotice', invitation]],
  ['bob', 'endInvitation', [invitation, true, { state: 4 }, 62_000], good()],

  ['ann2', 'open', [], good(), ['bob memberLeft', 'r', 'ann', 'Disconnect'], ['cat memberLeft', 'r', 'ann', 'Disconnect'],
    ['dan userAttributesChanged', 'ann', { a: '2' }, {}], ['ann kickedOff']],
  ['ann', 'close', [], undefined],
  ['ann2', 'subscriptions', ['status'], good({ userIds: [] })],
  ['ann2', 'subscribe', ['status', ['bob']], good(), ['ann2 peersStatus', { bob: true }]],
  ['cat', 'leave', ['r'], good(), ['bob memberLeft', 'r', 'cat', 'Quit']],
  ['bob', 'close', [], undefined, ['ann2 peersStatus', { bob: false }]],
  ['ann2', 'invite', [invitation, 1000], { result: 4 }],
];

const described = {
  users: { ann: { connected: true, since: 5, socketId: 'ann2', channels: [], attributes: {}, statusSubscriptions: ['bob'], attributeSubscriptions: [], offlineMessages: 0 } },
  channels: { r: { members: [], attributes: { b: '1' } } },
};

for (const [kind, open] of Object.entries(kinds)) {
  test(`each operation answers and tells as it should: ${kind}`, { skip: kind === 'redis' && !hasRedis && 'redis-server is not installed' }, async (t) => {
    const stores = await open(t);
    let told = [];
    const tell = (socketIds, event, ...items) => {
      if (event !== 'memberCounts') told.push(...socketIds.map((id) => [`${id} ${event}`, ...items]));
    };
    const worlds = [...new Set(stores)].map((store) => store.world('an app', tell));
    const worldOf = (name) => (['bob', 'dan', 'ann2', 'second'].includes(name) ? worlds.at(-1) : worlds[0]);
    const sessionOf = (name) => ({ userId: name.replace(/\d/, ''), socketId: name, since: 5 });
    const ask = (name, operation, args) => new Promise((resolve) => worldOf(name)[operation](sessionOf(name), ...args, resolve));
    const idle = ['first', 'second'];
    for (const name of idle) await ask(name, 'open', []);
    for (const [name, operation, args, answer, ...events] of steps) {
      told = [];
      const shown = `${name} ${operation} ${JSON.stringify(args)}`;
      if (operation === 'close') worldOf(name).close(sessionOf(name));
      else assert.deepEqual(await ask(name, operation, args), answer, shown);
      for (const name of idle) await ask(name, 'areOnline', [['nobody']]); // answered after all that was told
      const sorted = (list) => list.sort(([a], [b]) => a.localeCompare(b));
      assert.deepEqual(sorted(told), sorted(events), shown);
    }
    const state = await new Promise((resolve) => stores[0].describe(62_000, resolve));
    assert.deepEqual(state['an app'].users.ann, described.users.ann);
    assert.deepEqual(state['an app'].channels, described.channels);
    assert.deepEqual(await new Promise((resolve) => stores[1].greatestChannels(1, 5, resolve)), { total: 1, shown: [{ app: 'an app', channelId: 'r', count: 0, members: [] }] });
  });
}
