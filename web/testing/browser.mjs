// Debian's Chromium without a window; null where there is none.
import { existsSync } from 'node:fs';

const executablePath = process.env.CHROMIUM ?? '/usr/bin/chromium';

export const missing = existsSync(executablePath) ? false : `there is no ${executablePath}`;

/** A browser; close() it. */
export async function launch() {
  const { chromium } = await import('playwright-core');
  return chromium.launch({ executablePath, args: ['--no-sandbox', '--enable-unsafe-swiftshader'] });
}

/** A page that collects what it complains of: errors, and violations of its Content-Security-Policy. */
export async function openPage(browser, options = {}) {
  const page = await browser.newPage(options);
  const complaints = [];
  page.on('pageerror', (error) => complaints.push(String(error)));
  page.on('console', (message) => {
    if (message.type() === 'error' && !/Failed to load resource/.test(message.text())) complaints.push(message.text());
  });
  return { page, complaints };
}
