import assert from 'node:assert/strict';
import { test } from 'node:test';
import { duration, endInWords, plural, sinceTimeStamp } from '../page/words.js';
import { browserPath, launchBrowser } from '../tools/browser.js';
import { Client, report, startService, upload } from './client.js';

const needsBrowser = { skip: browserPath ? false : 'Chromium is not installed' };
const NOW = 1_795_663_871_744;

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

test('durations, counts and ends in words', () => {
  const rows = [
    [duration(-3), '0 ms'], [duration(999), '999 ms'], [duration(9999), '9.9 s'], [duration(59_999), '59 s'], [duration(61_000), '1 min 1 s'],
    [duration(3_600_000), '1 h 0 min'], [duration(90_000_000), '1 day 1 h'], [duration(400 * 86_400_000), '1 year 35 days'],
    [plural(1, 'channel'), '1 channel'], [plural(1200, 'channel'), '1,200 channels'], [plural(0, 'channel'), '0 channels'],
    [sinceTimeStamp(15, NOW), '15 ms'], [sinceTimeStamp(-2, NOW), '0 ms'],
    [sinceTimeStamp(NOW - Math.floor(NOW / 1000), NOW), 'unknown (time stamp not in milliseconds)'],
    [sinceTimeStamp(NOW - NOW * 1000, NOW), 'unknown (time stamp not in milliseconds)'],
    [endInWords({ reason: 'transport close' }), 'connection lost: closed without a goodbye'],
    [endInWords({ reason: 'server namespace disconnect', told: 'out' }), 'disconnected: "out"'],
  ];
  for (const [got, want] of rows) assert.equal(got, want);
});

async function openPage(t, service) {
  const browser = await launchBrowser();
  t.after(() => browser.close());
  const page = await browser.newPage();
  const problems = [];
  page.on('pageerror', (error) => problems.push(error.message));
  page.on('console', (message) => message.type() === 'error' && problems.push(message.text()));
  await page.goto(service.baseUrl);
  await page.waitForSelector('#live.on');
  const shows = (selector, text) => page.locator(selector, { hasText: text }).first().waitFor();
  return { page, problems, shows };
}

test('the page shows lives, moves its charts, and does what its buttons say', needsBrowser, async (t) => {
  const service = await startService(t);
  const { page, problems, shows } = await openPage(t, service);
  await shows('#users-empty', `./run chat alice --api-server ${service.baseUrl}`);
  const zoe = await Client.login(t, service, 'zoe');
  await zoe.command('join', { channelId: '<b>den' });
  const { result } = await zoe.command('sendChannelMessage', { channelId: 'elsewhere', content: { text: 'x' } });
  await zoe.command('sendMessageToPeer', { targetUserId: 'zoe', content: { text: 'x' } });
  await shows('#story .bad', `sendChannelMessage: refused with result ${result}`);
  await shows('#channels', '<b>den');
  await shows('#channel-count', /^1channel$/);
  await page.focus('#requests-chart .picture');
  await page.waitForFunction(() => document.querySelector('#requests-chart path.line').getAttribute('d')?.includes('C'));

  await page.fill('#refuse-user', 'zoe');
  await page.selectOption('#refuse-answer', { label: 'result 6' });
  await page.click('#refuse button');
  await shows('#prepared', 'the next sendChannelMessage of zoe: result 6');
  assert.equal((await zoe.command('sendChannelMessage', {})).result, 6);

  await page.click('#freeze');
  await shows('#users', 'frozen');
  await page.click('#freeze:text("Thaw")');
  await shows('#story', 'thawed');
  await page.click('#kick');
  assert.deepEqual(await zoe.event('disconnectReason'), ['KickOff']);
  await shows('#story', 'kicked off');
  await Client.login(t, service, 'zoe');
  await page.click('#cut:enabled');
  await shows('#story', 'connection lost');
  await Client.login(t, service, 'zoe');
  await shows('#story', 'connected again');

  for (let i = 0; i < 1000; i += 1) service.activity.publish('login', { appId: 'app', userId: `u${i}`, connectionId: `c${i}` });
  await shows('#users-more', '100 of 1,001');
  assert.equal(await page.locator('#users tbody tr').count(), 100);
  await page.fill('#find', 'zoe');
  await page.waitForFunction(() => document.querySelectorAll('#users tbody tr').length === 1);
  assert.deepEqual(problems, []);
});

test('without control endpoints the page says how to have them, and it shows processes if there are several', needsBrowser, async (t) => {
  const service = await startService(t, { control: false });
  const { page, shows } = await openPage(t, service);
  await shows('#no-control', '--control');
  assert.ok(await page.locator('#processes').isHidden());
  service.processes = () => [{ number: 2, port: 81, isUp: false, pid: 7, connected: 1200, deaths: 1 }];
  await shows('#processes', '2, port 81dead, another one listens at its port71,2001 time');
  assert.ok(await page.locator('#cut').isHidden());
});

test('the page shows event reports as they come', needsBrowser, async (t) => {
  const service = await startService(t);
  const nasty = '<img src=x onerror=document.title=1>';
  const { page, problems } = await openPage(t, service);
  const now = Date.now();
  const login = (uid, at, ok) => [
    report({ type: 'StartLogin', uid, timestamp: at, loginParams: { token: 'secret', uid } }),
    report({ type: 'ConnectState', uid, timestamp: at + 5, state: 3, reason: 2 }),
    report({ type: 'LoginResult', uid, timestamp: at + 9, result: ok, errorCode: ok ? 0 : 5, totalElapsed: at - 1700000000, elapsedInfo: { getServers: 4, connectServer: 7 } }),
  ];
  await upload(service, [...login('alice', now, 1), ...login('bob', now + 10, 0), ...login(nasty, now + 20, 1)].join('\n'));
  const rows = () => page.$$eval('#reports tbody tr', (all) => all.map((tr) => tr.textContent));
  await page.waitForFunction(() => document.querySelectorAll('#reports tbody tr').length === 9);
  assert.ok((await rows()).some((text) => text.includes(nasty)), 'shown as text');
  assert.ok(!(await rows()).some((text) => text.includes('secret')), 'no tokens');
  assert.ok((await rows())[0].includes('totalElapsed unknown (time stamp not in milliseconds)'));
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

test('lives and the chart tell what happened, and stay small', async (t) => {
  let at = 1_000_000;
  const service = await startService(t, { now: () => at });
  const publish = (event, details) => service.activity.publish(event, { appId: 'app', userId: 'ann', ...details });
  const ask = (command, outcome, times) => Array.from({ length: times }, () => publish('command', { command, outcome }));
  const get = async (query) => (await fetch(`${service.baseUrl}/page/users?${query}`)).json();
  publish('login', { connectionId: 1 });
  ask('join', 0, 3);
  ask('join', 5, 2);
  at += 1500;
  publish('logout', { connectionId: 1, reason: 'ping timeout', since: 1_000_000 });
  at += 400;
  publish('login', { connectionId: 2 });
  publish('login', { connectionId: 3 }); // elsewhere: the older one ends after that
  publish('logout', { connectionId: 2, reason: 'server namespace disconnect', told: 'KickOff', since: at });
  const { life, users } = await get('app=app&user=ann');
  assert.deepEqual(life.steps.map(({ kind, lostFor, told, lasted }) => [kind, lostFor ?? told ?? lasted]),
    [['login', undefined], ['end', 1500], ['login', 400], ['login', undefined], ['end', 'KickOff']]);
  assert.deepEqual(life.runs.map(({ asked }) => asked.map(({ outcome, count }) => [outcome, count])), [[[0, 3], [5, 2]]]);
  assert.deepEqual(users.map(({ userId, to, requests }) => [userId, to, requests]), [['ann', undefined, 5]]);
  const snapshot = () => new Promise((resolve) => service.overview.snapshot(resolve));
  const { chart, commands } = await snapshot();
  assert.deepEqual([chart.answered.at(-1), chart.refused.at(-1), chart.answered.length], [3, 2, 120]);
  assert.deepEqual(commands, [{ command: 'join', last: 5, average: 0.5, total: 5, refusals: [[5, 2]] }]);

  for (let i = 0; i < 5000; i += 1) {
    at += 6000;
    publish('loginRefused', { userId: `u${i}`, reason: 'no' });
    ask(`made up ${i}`, 1, 1);
  }
  assert.equal((await get('find=u')).matching, 2000);
  assert.deepEqual(await get('find=u17').then(({ users: [first] }) => first), undefined, 'the oldest are forgotten');
  assert.ok((await get('app=app&user=ann')).life.runs.length <= 40);
  assert.ok((await snapshot()).commands.length <= 101);
});
