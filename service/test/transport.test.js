import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { Client, openMuteConnection, startService } from './client.js';

const OFFER = { 'Sec-WebSocket-Extensions': 'permessage-deflate; client_max_window_bits' };
const FINAL_TEXT_FRAME = 0x81;
const CLOSE_FRAME = 0x88; // the text before it is ASCII

test('compression is agreed on, but not spent on small frames', async (t) => {
  const service = await startService(t);
  const { response, socket, start } = await openMuteConnection(t, service.baseUrl, OFFER);
  assert.match(response.headers['sec-websocket-extensions'], /^permessage-deflate.*server_no_context_takeover/);
  const [firstFrame] = start.length > 0 ? [start] : await once(socket, 'data');
  assert.equal(firstFrame[0], FINAL_TEXT_FRAME);
  socket.destroy(); // the service, when it stops, would wait half a minute for its goodbye
});

test('long messages survive their compression, together with their bytes', async (t) => {
  const service = await startService(t);
  const alice = await Client.login(t, service, 'alice');
  const bob = await Client.login(t, service, 'bob');
  const content = { text: '\u20ac'.repeat(10_000), binary: Buffer.alloc(32_768, 'abc') };
  assert.deepEqual(await alice.command('sendMessageToPeer', { targetUserId: 'bob', content }), { result: 0 });
  const [{ msgs }] = await bob.event('MessageToPeerReceived');
  assert.deepEqual(msgs[0].content, content);
});

test('there is no way in but WebSocket', async (t) => {
  const { baseUrl } = await startService(t);
  for (const path of ['/socket.io/?EIO=4&transport=polling', '/socket.io/socket.io.js']) {
    const { status } = await fetch(baseUrl + path);
    assert.ok(status >= 400 && status < 500, `${path}: ${status}`);
  }
});

test('a connection that does not answer a ping in time is ended', async (t) => {
  const service = await startService(t, { pingInterval: 20, pingTimeout: 20 });
  const { socket, start } = await openMuteConnection(t, service.baseUrl);
  let received = start;
  // The peer's own goodbye would be waited for half a minute.
  while (!received.includes(CLOSE_FRAME)) received = Buffer.concat([received, (await once(socket, 'data'))[0]]);
  socket.destroy();
});
