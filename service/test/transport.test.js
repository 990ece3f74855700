import assert from 'node:assert/strict';
import { once } from 'node:events';
import { test } from 'node:test';
import { openMuteConnection, startService } from './client.js';

const OFFER = { 'Sec-WebSocket-Extensions': 'permessage-deflate; client_max_window_bits' };
const FINAL_TEXT_FRAME = 0x81;

test('compression is agreed on, but not spent on small frames', async (t) => {
  const service = await startService(t);
  const { response, socket, start } = await openMuteConnection(t, service.baseUrl, OFFER);
  assert.match(response.headers['sec-websocket-extensions'], /^permessage-deflate.*server_no_context_takeover/);
  const [firstFrame] = start.length > 0 ? [start] : await once(socket, 'data');
  assert.equal(firstFrame[0], FINAL_TEXT_FRAME);
  socket.destroy(); // the service, when it stops, would wait half a minute for its goodbye
});

test('there is no way in but WebSocket', async (t) => {
  const { baseUrl } = await startService(t);
  for (const path of ['/socket.io/?EIO=4&transport=polling', '/socket.io/socket.io.js']) {
    const { status } = await fetch(baseUrl + path);
    assert.ok(status >= 400 && status < 500, `${path}: ${status}`);
  }
});

