// The decoder's package as a stranger gets it: packed, installed into an empty project, used from Node and from a page.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdtempSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import test, { after, before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser } from './browser.mjs';
import { makeFrames, missing as noFrames } from './frames.mjs';
import { serve } from './server.mjs';

const decoder = join(dirname(fileURLToPath(import.meta.url)), '../decoder');

describe('the packed decoder', { skip: noFrames }, () => {
  let project, frame;
  before(() => {
    project = mkdtempSync(join(tmpdir(), 'vintak-pack-'));
    frame = makeFrames().find(({ name }) => name === 'grey12');
    execFileSync('npm', ['pack', '--silent', '--pack-destination', project], { cwd: decoder });
    const [archive] = readdirSync(project);
    writeFileSync(join(project, 'package.json'), '{ "private": true, "type": "module" }');
    execFileSync('npm', ['install', '--offline', '--silent', '--no-audit', '--no-fund', `./${archive}`], { cwd: project });
    writeFileSync(join(project, 'frame.stream'), frame.payload);
  });
  after(() => rmSync(project, { recursive: true }));

  test('decodes in Node', () => {
    writeFileSync(join(project, 'use.js'), `
      import { readFileSync } from 'node:fs';
      import { createDecoder } from '@vintak/decoder';
      const picture = (await createDecoder()).decode(readFileSync('frame.stream'));
      process.stdout.write(picture.completeness + ' ' + Buffer.from(picture.pixels.buffer).toString('base64'));`);
    const said = String(execFileSync(process.execPath, ['use.js'], { cwd: project, maxBuffer: 2 ** 24 }));
    assert.equal(said, `exact ${Buffer.from(frame.raw).toString('base64')}`);
  });

  test('decodes in a page', { skip: noBrowser }, async () => {
    writeFileSync(join(project, 'index.html'), '<!doctype html><title>x</title>');
    const server = await serve({ folder: project });
    const browser = await launch();
    try {
      const page = await browser.newPage();
      await page.goto(server.url);
      const result = await page.evaluate(async () => {
        const { createDecoder, WorkerPool } = await import('./node_modules/@vintak/decoder/dist/index.js');
        const bytes = new Uint8Array(await (await fetch('frame.stream')).arrayBuffer());
        const here = (await createDecoder()).decode(bytes);
        const dist = new URL('node_modules/@vintak/decoder/dist/', location.href);
        const pool = new WorkerPool({ workerUrl: new URL('worker.js', dist), wasmUrl: new URL('decoder.wasm', dist), size: 1 });
        const there = await pool.decode(bytes);
        pool.close();
        const digest = async ({ pixels }) => Array.from(new Uint8Array(await crypto.subtle.digest('SHA-256', pixels)));
        return [await digest(here), await digest(there)];
      });
      const expected = Array.from(createHash('sha256').update(frame.raw).digest());
      assert.deepEqual(result, [expected, expected]);
    } finally {
      await browser.close();
      await server.close();
    }
  });
});
