// What is missing, damaged, slow or gone, and what the page makes of it.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import test, { describe } from 'node:test';

import { objectsJson } from '../../testing/results.mjs';
import { dist, missing, pageFixture } from './pagefixture.mjs';

describe('the page in trouble', { skip: missing }, () => {
  const fixture = pageFixture();
  const { frame, open, when } = fixture;

  test('a missing file, a damaged stream and a lost server are told where they are, and the rest works', async () => {
    fixture.files.delete('r/0/o_2.f.qi4');
    const damaged = fixture.files.get('r/1/o_1.t.qi4').slice();
    damaged.fill(0x55, 600, 900);
    fixture.files.set('r/1/o_1.t.qi4', damaged);
    const { page, state } = await open();
    await page.waitForFunction(() => window.vintak.state.problem);
    assert.equal((await state()).problem, 'o_2.f.qi4 is missing');
    assert.notEqual((await state()).stage, 'exact');
    fixture.files.set('r/0/o_2.f.qi4', frame('grey12').payload.subarray(8192));
    await page.getByRole('button', { name: 'Try again' }).click();
    await when(page, { stage: 'exact', problem: null });

    await page.keyboard.press('.');
    await when(page, { object: 'us.dcm', stage: 'damaged', problem: 'the stream of frame 1 is damaged: the picture is not complete' });
    assert.match(await page.textContent('#sign'), /DAMAGED/);
    await page.locator('#objects button', { hasText: 'bad.dcm' }).click();
    await when(page, { object: 'bad.dcm', problem: 'it holds neither images nor a document' });

    await fixture.server.close();
    await page.locator('#objects button', { hasText: 'mono1.dcm' }).click();
    await page.waitForFunction(() => /connection was lost/.test(window.vintak.state.problem ?? ''));
    await page.locator('#objects button', { hasText: 'ct.dcm' }).click();
    await page.close();
  });

  test('a decoder that cannot be had is told, not asked for without end, and tried again', async () => {
    for (const part of ['assets/worker.js', 'assets/decoder.wasm']) {
      fixture.slow.set(part, (response) => response.writeHead(404).end());
      const { page, complaints } = await open();
      await page.waitForFunction(() => window.vintak.state.problem);
      await page.waitForFunction(() => document.querySelectorAll('#objects canvas.missing').length === 4);
      const asked = fixture.server.requests.filter((path) => path === part).length;
      assert.ok(asked < 30, `${part} was asked for ${asked} times`);
      fixture.slow.delete(part);
      await page.getByRole('button', { name: 'Try again' }).click();
      await when(page, { stage: 'exact', problem: null });
      await page.waitForFunction(() => document.querySelectorAll('#objects canvas.missing').length === 0);
      assert.deepEqual(complaints, []);
      await page.close();
      fixture.server.requests.length = 0;
    }
  });

  test('a thousand damaged streams leave the Worker alive', async () => {
    fixture.files.set('assets/decoder.js', readFileSync(join(dist, '../../decoder/dist/index.js')));
    const { page, complaints } = await open();
    await when(page, { stage: 'exact' });
    const base = Array.from(frame('grey16').payload);
    const result = await page.evaluate(async ({ bytes, raw }) => {
      const { WorkerPool } = await import('./assets/decoder.js');
      const pool = new WorkerPool({ workerUrl: './assets/worker.js', wasmUrl: './assets/decoder.wasm', size: 1 });
      let state = 1;
      const random = () => (state = (Math.imul(state, 1103515245) + 12345) >>> 0) >>> 8;
      let [pictures, failures] = [0, 0];
      for (let i = 0; i < 1000; ++i) {
        const payload = Uint8Array.from(bytes).slice(0, i % 3 ? undefined : random() % bytes.length);
        for (let hits = 1 + (random() % 8); hits > 0; --hits) payload[random() % payload.length] = random();
        await pool.decode(payload, { maxSamples: 2 ** 20 }).then(() => ++pictures, (error) => error.name === 'DecodeError' && ++failures);
      }
      const last = await pool.decode(Uint8Array.from(bytes));
      pool.close();
      return { sum: pictures + failures, pictures, same: String(new Uint8Array(last.pixels.buffer)) === String(raw) };
    }, { bytes: base, raw: Array.from(frame('grey16').raw) });
    assert.equal(result.sum, 1000);
    assert.ok(result.pictures > 100 && result.same);
    assert.deepEqual(complaints, []);
    await page.close();
  });

  test('the sign says how much has come, neighbours wait, and no picture at all holds nothing up', async () => {
    const rest = fixture.files.get('r/0/o_2.f.qi4');
    let release;
    fixture.slow.set('r/0/o_2.f.qi4', (response) => {
      response.writeHead(200, { 'Content-Length': rest.length });
      response.write(rest.subarray(0, rest.length >> 1));
      release = () => response.end(rest.subarray(rest.length >> 1));
      return true;
    });
    for (const suffix of ['.p.qi4', '.t.qi4', '.f.qi4']) fixture.files.delete(`r/3/o_1${suffix}`);
    const { page, state } = await open();
    const share = Math.floor((100 * (8192 + (rest.length >> 1))) / (8192 + rest.length));
    await page.waitForFunction((text) => document.querySelector('#sign').textContent.includes(text), ` · ${share} % of 67 kB`);
    assert.notEqual((await state()).stage, 'exact');
    assert.deepEqual(fixture.server.requests.filter((path) => /_1\.[tf]\.qi4/.test(path)), []);
    release();
    await when(page, { stage: 'exact' });

    // An object that has nothing to show, opened first.
    fixture.files.set('first.json', objectsJson([{ name: 'mono1.dcm', prefix: 'r/3/o', frames: 1 }, { name: 'us.dcm', prefix: 'r/1/o', frames: 1 }]));
    await page.goto(`${fixture.server.url}?list=first.json`);
    await when(page, { problem: 'o_1.t.qi4 is missing' });
    await page.waitForSelector('#objects canvas[width="100"]');
    assert.match(await page.textContent('#objects li:first-child'), /mono1\.dcm\s*o_1\.t\.qi4 is missing/);
    assert.equal(await page.locator('#objects li.failed').count(), 1);
    await page.close();
  });

  test('a picture stays on the screen when the graphics processor leaves', async () => {
    const { page, complaints } = await open();
    await when(page, { stage: 'exact', renderer: 'webgl' });
    await page.evaluate(() => document.querySelector('#viewport canvas').getContext('webgl2').getExtension('WEBGL_lose_context').loseContext());
    await when(page, { stage: 'exact', renderer: 'canvas' });
    await page.waitForFunction(() => {
      const { width, height } = document.querySelector('#viewport canvas');
      return document.querySelector('#viewport canvas').getContext('2d')?.getImageData(0, 0, width, height).data.some((light, i) => i % 4 !== 3 && light > 0);
    });
    assert.deepEqual(complaints, []);
    await page.close();
  });
});
