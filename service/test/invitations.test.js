import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Client, startService } from './client.js';

const base = { inviter: 'alice', invitee: 'bob', requestInfo: 'tea?', responseInfo: '', state: 0 };
const op = (who, type, more) => who.command('invitationOp', { type, invitation: { ...base, ...more } });

async function aliceAndBob(t, options) {
  const service = await startService(t, options);
  return [service, await Client.login(t, service, 'alice'), await Client.login(t, service, 'bob')];
}

test('an invitation is refused to, and in the name of, the wrong user', async (t) => {
  const [, alice, bob] = await aliceAndBob(t);
  const rows = [
    [bob, 'send', {}, 3],
    [alice, 'accept', {}, 3],
    [alice, 'send', { invitee: 'stranger' }, 3],
    [alice, 'send', { requestInfo: 'x'.repeat(8193) }, 3],
    [alice, 'send', { requestInfo: 7 }, 3],
    [alice, 'postpone', {}, 3],
    [alice, 'send', { requestInfo: null, responseInfo: undefined }, 0],
  ];
  for (const [who, type, more, result] of rows) {
    assert.deepEqual(await op(who, type, more), { result }, `${who.userId} ${type} ${Object.keys(more)}`);
  }
  await bob.quit();
  assert.deepEqual(await op(alice, 'send'), { result: 4 }, 'the invitee is offline');
});

test('an answer waits for an inviter who is away, but not beyond the minute', async (t) => {
  let time = 1_000_000;
  const [service, alice, bob] = await aliceAndBob(t, { now: () => time });
  await op(alice, 'send');
  await alice.quit();
  assert.deepEqual(await op(bob, 'accept'), { result: 4 });
  const back = await Client.login(t, service, 'alice');
  time += 59_999;
  assert.deepEqual(await op(bob, 'accept', { requestInfo: 'mine now' }), { result: 0 });
  assert.deepEqual(await back.event('InvitationNotify'), [{ invitation: { ...base, state: 4 } }]);

  await op(back, 'send');
  time += 60_000;
  assert.deepEqual(await op(bob, 'accept'), { result: 0 });
  await back.settled();
  assert.deepEqual(back.had('InvitationNotify'), [], 'it was over by then');
});
