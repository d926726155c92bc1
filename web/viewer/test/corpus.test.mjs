// The page on real objects (those of the folder VINTAKD_CORPUS), converted by the real daemon.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { once } from 'node:events';
import { existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser, openPage } from '../../testing/browser.mjs';
import { serve } from '../../testing/server.mjs';

const viewer = join(dirname(fileURLToPath(import.meta.url)), '..');
const build = process.env.VINTAKD_BUILD ?? join(viewer, '../../build/release');
const [vintakd, vintak] = ['vintakd/vintakd', 'tools/vintak/vintak'].map((program) => join(build, program));
const corpus = process.env.VINTAKD_CORPUS;
const missing = !corpus ? 'VINTAKD_CORPUS names no folder' : ([corpus, vintakd, vintak].find((file) => !existsSync(file)) ?? false);

test('every frame of real objects is exact on the screen', { skip: noBrowser || missing }, async () => {
  const folder = mkdtempSync(join(tmpdir(), 'vintak-corpus-'));
  for (const sub of ['run', 'raw']) mkdirSync(join(folder, sub));
  const environment = { ...process.env, RUN: join(folder, 'run'), TMP: join(folder, 'run'), TMPDIR: folder,
    VINTAKD_SEGMENT: `vintakd_page_${process.pid}`, VINTAKD_TRACE_SWITCH: '-', VINTAK_PAGE: join(viewer, 'dist') };
  const daemon = spawn(vintakd, ['--servers', '2'], { env: environment, stdio: 'ignore' });
  let browser, server;
  try {
    while (spawnSync(vintak, ['ping'], { env: environment }).status !== 0) assert.equal(daemon.exitCode, null, 'the daemon ended');
    const site = join(folder, 'site');
    const exported = spawnSync(vintak, ['view', corpus, '--export', site], { env: environment, encoding: 'utf8' });
    assert.equal(exported.status, 0, exported.stderr);
    // What is served has no .raw; another conversion has.
    const files = readdirSync(corpus).filter((file) => file.endsWith('.dcm')).map((file) => join(corpus, file));
    spawnSync(vintak, ['convert', ...files, '-o', join(folder, 'raw/')], { env: environment });
    const { objects } = JSON.parse(readFileSync(join(site, 'objects.json'), 'utf8'));
    [browser, server] = [await launch(), await serve({ folder: site })];
    const { page, complaints } = await openPage(browser);
    await page.goto(server.url);
    let frames = 0;
    for (const { name, descriptor } of objects.filter((object) => object.descriptor !== null)) {
      await page.locator('#objects button', { hasText: name }).first().click();
      for (const line of readFileSync(join(site, descriptor), 'utf8').trimEnd().split('\n').slice(0, 3)) {
        const frame = Number(line.split(' ')[0]);
        await page.waitForFunction((wanted) => window.vintak.state.object === wanted && window.vintak.state.frame !== null, name);
        await page.evaluate((to) => {
          const slider = document.querySelector('#slider input');
          slider.value = String(to);
          slider.dispatchEvent(new Event('input'));
        }, frame);
        await page.waitForFunction((wanted) => window.vintak.state.frame === wanted && (window.vintak.state.stage === 'exact' || window.vintak.state.problem), frame);
        const hash = await page.evaluate(async () => Array.from(new Uint8Array(await crypto.subtle.digest('SHA-256', window.vintak.samples.slice()))));
        const raw = readFileSync(join(folder, 'raw', `${name.replace(/\.dcm$/, '')}_${frame}.raw`));
        assert.deepEqual(Buffer.from(hash), createHash('sha256').update(raw).digest(), `${name}, frame ${frame}`);
        ++frames;
      }
    }
    assert.ok(frames > 0);
    assert.equal(await page.locator('#objects .missing').count(), 0, 'every thumbnail that came into view was drawn');
    assert.deepEqual(complaints, []);
  } finally {
    await browser?.close();
    await server?.close();
    if (daemon.exitCode === null) await Promise.all([once(daemon, 'exit'), daemon.kill('SIGTERM')]);
    rmSync(folder, { recursive: true });
  }
});
