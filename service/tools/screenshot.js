#!/usr/bin/env node
// Takes a picture of the service's page, once somebody logged out: node tools/screenshot.js URL FILE.png [dark] [phone]

import { browserPath, launchBrowser } from './browser.js';

const [url, file, ...looks] = process.argv.slice(2);
if (!url || !file || !browserPath) {
  process.stderr.write(browserPath ? 'usage: screenshot.js URL FILE.png [dark] [phone]\n' : 'Chromium is not installed.\n');
  process.exit(2);
}
const browser = await launchBrowser();
const page = await browser.newPage({
  viewport: looks.includes('phone') ? { width: 390, height: 844 } : { width: 1200, height: 900 },
  colorScheme: looks.includes('dark') ? 'dark' : 'light',
});
await page.goto(url);
await page.waitForSelector('#live.on');
await page.getByRole('cell', { name: 'Logout', exact: true }).first().waitFor();
await page.waitForTimeout(2500); // the overview comes every second
await page.screenshot({ path: file, fullPage: true });
await browser.close();
