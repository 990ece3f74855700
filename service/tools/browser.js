// A headless browser for the tests and pictures of the page: Debian's Chromium, kept from calling home.

import { existsSync } from 'node:fs';
import { chromium } from 'playwright-core';

const PATHS = ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'];

export const browserPath = PATHS.find((path) => existsSync(path));

export function launchBrowser() {
  return chromium.launch({
    executablePath: browserPath,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync'],
  });
}
