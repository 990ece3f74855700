import assert from 'node:assert/strict';
import { test } from 'node:test';
import { control, report, startService, upload } from './client.js';

test('a file of good reports is kept and answered with 204; any bad line refuses it', async (t) => {
  const service = await startService(t);
  const good = report({ type: 'Logout', uid: 'alice' });
  assert.equal((await upload(service, `${good}\n${good}\n`)).status, 204);
  for (const bad of ['x', '[]', report({}), report({ type: 'X' }, { encrypt: true }), report({ type: 'X' }, { content: '{' }),
    report({ type: 'X' }, { deviceId: 'short' })]) {
    const answer = await upload(service, `${good}\n${bad}\n`);
    assert.equal(answer.status, 400, bad);
    assert.match((await answer.json()).error, /^Line 2: /);
  }
  const { reports } = await control(service, 'reports');
  assert.deepEqual(reports.map(({ event }) => event.type), ['Logout', 'Logout']);
  await control(service, 'collect', { status: 500 });
  assert.equal((await upload(service, good)).status, 500);
  assert.equal((await upload(service, good)).status, 204);
});
