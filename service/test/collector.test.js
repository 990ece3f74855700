import assert from 'node:assert/strict';
import { test } from 'node:test';
import { browserPath, launchBrowser } from '../tools/browser.js';
import { Client, control, startService } from './client.js';

const DEVICE = 'd'.repeat(32);
const report = (event, envelope = {}) =>
  JSON.stringify({ logType: 1, deviceId: DEVICE, os: 'ios', timestamp: 1, encrypt: false, content: JSON.stringify(event), ...envelope });

const upload = (service, body) => fetch(`${service.baseUrl}/pim/v1/collect-logan`, { method: 'POST', body });

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

test('the page is for browsers on this machine', async (t) => {
  const service = await startService(t);
  const response = await fetch(`${service.baseUrl}/`);
  assert.equal(response.status, 200);
  assert.match(response.headers.get('content-security-policy'), /default-src 'none'/);
  const { request } = await import('node:http');
  const status = await new Promise((resolve) => {
    request(`${service.baseUrl}/`, { headers: { host: 'evil.example' } }, (answer) => {
      answer.resume();
      resolve(answer.statusCode);
    }).end();
  });
  assert.equal(status, 403);
});

test('the page shows what happens as it happens', { skip: browserPath ? false : 'Chromium is not installed' }, async (t) => {
  const service = await startService(t);
  const nasty = '<img src=x onerror=document.title=1>';
  const browser = await launchBrowser();
  t.after(() => browser.close());
  const page = await browser.newPage();
  const problems = [];
  page.on('pageerror', (error) => problems.push(error.message));
  page.on('console', (message) => message.type() === 'error' && problems.push(message.text()));
  await page.goto(service.baseUrl);
  await page.waitForSelector('#live.on');

  await Client.login(t, service, 'zoe');
  await page.waitForFunction(() => document.querySelector('#users').textContent.includes('zoe'));
  const now = Date.now();
  const login = (uid, at, ok) => [
    report({ type: 'StartLogin', uid, timestamp: at, loginParams: { token: 'secret', uid } }),
    report({ type: 'ConnectState', uid, timestamp: at + 5, state: 3, reason: 2 }),
    report({ type: 'LoginResult', uid, timestamp: at + 9, result: ok, errorCode: ok ? 0 : 5, elapsedInfo: { getServers: 4, connectServer: 7 } }),
  ];
  await upload(service, [...login('alice', now, 1), ...login('bob', now + 10, 0), ...login(nasty, now + 20, 1)].join('\n'));
  const rows = () => page.$$eval('#reports tbody tr', (all) => all.map((tr) => tr.textContent));
  await page.waitForFunction(() => document.querySelectorAll('#reports tbody tr').length === 9);
  assert.ok((await rows()).some((text) => text.includes(nasty)), 'shown as text');
  assert.ok(!(await rows()).some((text) => text.includes('secret')), 'no tokens');
  assert.equal(await page.getAttribute('#plot', 'data-points'), '2');

  await page.fill('#filter-user', 'bob');
  await page.waitForFunction(() => document.querySelectorAll('#reports tbody tr').length === 3);
  await page.check('#filter-failed');
  await page.waitForFunction(() => document.querySelectorAll('#reports tbody tr').length === 1);
  await page.click('#reports tbody tr');
  assert.match(await page.textContent('#road'), /StartLogin\+0 ms.*ConnectState 3, reason 2\+5 ms.*failed with 5.*\+9 ms/);
  assert.notEqual(await page.title(), '1');
  assert.deepEqual(problems, []);
});
