#!/usr/bin/env node
// Takes a picture of the service's page: node tools/screenshot.js URL FILE.png [dark] [phone] [top] [SECONDS] [user=ID]
// It waits for that user, whose life it then shows, and then these seconds, 3 without them. `top`: without the lower half.

import { browserPath, launchBrowser } from './browser.js';

const [url, file, ...looks] = process.argv.slice(2);
if (!url || !file || !browserPath) {
  process.stderr.write(browserPath ? 'usage: screenshot.js URL FILE.png [dark] [phone] [top] [SECONDS] [user=ID]\n' : 'Chromium is not installed.\n');
  process.exit(2);
}
const seconds = Number(looks.find((look) => /^\d+$/.test(look)) ?? 3);
const user = looks.find((look) => look.startsWith('user='))?.slice('user='.length);
const browser = await launchBrowser();
const page = await browser.newPage({
  viewport: looks.includes('phone') ? { width: 390, height: 844 } : { width: 1240, height: 1175 },
  colorScheme: looks.includes('dark') ? 'dark' : 'light',
});
await page.goto(url);
await page.waitForSelector('#live.on');
if (user) await page.getByRole('button', { name: user, exact: true }).first().click();
await page.mouse.move(0, 0);
await page.waitForTimeout(seconds * 1000);
await page.screenshot({ path: file, fullPage: !looks.includes('top') });
await browser.close();
