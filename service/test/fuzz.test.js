import assert from 'node:assert/strict';
import { test } from 'node:test';
import { COMMAND_NAMES } from '../lib/commands/index.js';
import { Client, startService } from './client.js';

const SEED = 1;
const ROUNDS = 25;
const FIELDS = ['channelId', 'channelIds', 'userId', 'userIds', 'targetUserId', 'attributes', 'attributeKeys', 'content',
  'text', 'binary', 'option', 'notify', 'offline', 'type', 'invitation', 'inviter', 'invitee', '__proto__', 'length'];
const LEAVES = [null, true, 0, -1, 1e300, 0.5, '', 'a', 'a/b', 'alice', 'send', '__proto__', '\u0000\n', '\ud800', 'x'.repeat(70),
  Buffer.alloc(0), Buffer.from([1, 2, 3])];

// A small generator, so that a failure can be had again.
function randomFrom(seed) {
  let state = seed;
  return (below) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor((state / 2 ** 32) * below);
  };
}

function randomValue(random, depth = 0) {
  const kind = depth > 3 ? 0 : random(4);
  const some = (make) => Array.from({ length: random(5) }, make);
  if (kind === 1) return some(() => randomValue(random, depth + 1));
  if (kind >= 2) return Object.fromEntries(some(() => [FIELDS[random(FIELDS.length)], randomValue(random, depth + 1)]));
  return LEAVES[random(LEAVES.length)];
}

test('whatever a payload is, the command answers and the service stays up', async (t) => {
  const service = await startService(t);
  const alice = await Client.login(t, service, 'alice');
  const names = [...COMMAND_NAMES, 'toString', '__proto__', '', null, 7, { a: 1 }];
  const random = randomFrom(SEED);
  for (let round = 0; round < ROUNDS; round += 1) {
    const requests = names.map((name) => [name, randomValue(random)]);
    const answers = await Promise.all(requests.map(([name, payload]) => alice.command(name, payload)));
    answers.forEach(({ result, ...rest }, index) => {
      const shown = `${JSON.stringify(requests[index])}`;
      assert.ok(Number.isInteger(result), shown);
      if (result !== 0) assert.deepEqual(rest, {}, shown);
    });
  }
  const otherShapes = [[], ['command'], ['command', 'join', {}, {}, 1], ['error', 'x'], ['loginSuccess'], ['command', null]];
  for (const items of otherShapes) alice.socket.emit(...(items.length ? items : ['']));
  assert.deepEqual(await alice.command('join', { channelId: 'still here' }), { result: 0 });
});
