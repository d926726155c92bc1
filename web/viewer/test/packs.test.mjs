// Packs in the page, by ranges; and what becomes of those that are damaged.
import assert from 'node:assert/strict';
import { dirname, join } from 'node:path';
import test, { before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

import { randomNumbers } from '../../testing/frames.mjs';
import { noPacks, objectsJson, packOf, resultsOf } from '../../testing/results.mjs';
import { serve } from '../../testing/server.mjs';
import { importSource } from '../../testing/source.mjs';
import { missing, pageFixture, stackOf, zeros } from './pagefixture.mjs';

const here = dirname(fileURLToPath(import.meta.url));

describe('a pack', { skip: missing || noPacks }, () => {
  const fixture = pageFixture();
  const { open, when, samples } = fixture;
  let slices, pack;
  before(() => {
    slices = stackOf(fixture.made, 400);
    pack = packOf('k/s', [['a/o', resultsOf('a/o', slices.slice(0, 150))], ['b/o', resultsOf('b/o', slices.slice(150))]]);
  });
  /** The page on the pack alone. */
  async function openPack(intercept) {
    for (const [path, bytes] of pack) fixture.files.set(path, bytes);
    fixture.files.set('objects.json', objectsJson([{ name: 'series', prefix: 'k/s', frames: 400, descriptor: 'k/s.index' }]));
    if (intercept) for (const path of pack.keys()) fixture.slow.set(path, (response) => intercept(path, response));
    return open();
  }

  test('is shown exactly after three requests for the first picture, and few for its neighbours', async () => {
    const { page, complaints } = await openPack();
    await when(page, { stage: 'exact', frames: 400 });
    assert.deepEqual(await samples(page), slices[200].raw);
    const asked = fixture.server.ranges.filter((range) => range.startsWith('k/'));
    assert.deepEqual(asked.slice(0, 3).map((range) => range.split(' ')[0]), ['k/s.index', 'k/s.index', 'k/s.small']);
    const bytes = (range) => ((match) => match[2] - match[1] + 1)(/bytes=(\d+)-(\d+)$/.exec(range));
    assert.ok(bytes(asked[0]) + bytes(asked[1]) < 16_384);
    for (const index of [201, 202, 399, 0, 149, 150]) {
      await page.evaluate((value) => {
        const slider = document.querySelector('#slider input');
        slider.value = value + 1;
        slider.dispatchEvent(new Event('input'));
      }, index);
      await page.waitForFunction((title) => document.querySelector('#title').textContent.includes(title) && window.vintak.state.stage === 'exact', `frame ${index + 1} of 400`);
      assert.deepEqual(await samples(page), slices[index].raw, `frame ${index + 1}`);
    }
    await page.waitForFunction(() => document.querySelector('#objects canvas') !== null);
    // Forty neighbours on each side of six places and a half.
    const small = fixture.server.ranges.filter((range) => range.startsWith('k/s.small'));
    assert.ok(small.length < 60, `${small.length} requests`);
    assert.deepEqual(complaints, []);
    await page.close();
  });

  test('is shown where the server knows no ranges', async () => {
    const { page, complaints } = await openPack((path, response) => response.writeHead(200).end(pack.get(path)) && true);
    await when(page, { stage: 'exact' });
    assert.deepEqual(await samples(page), slices[200].raw);
    assert.deepEqual(complaints, []);
    await page.close();
  });

  test('that is damaged or cut is told of, not shown', async () => {
    const cases = [
      ['k/s.index', (bytes) => bytes.subarray(0, 100), /another range/],
      ['k/s.index', (bytes) => bytes.fill(7, 0, 4), /no index of a pack/],
      ['k/s.index', (bytes) => bytes.fill(7, 128 + 184 * 200, 128 + 184 * 200 + 9), /checksum of the record of frame 201/],
      ['k/s.heads', (bytes) => bytes.map((byte) => byte ^ 1), /heads of the pack is damaged/],
      ['k/s.heads', () => undefined, /s\.heads is missing/],
      ['k/s.rests', (bytes) => bytes.subarray(0, 9), /shorter than its index says|fewer/],
    ];
    // 201 is the noise, whose stream has all three parts.
    for (const [path, damage, expected] of cases) {
      const whole = pack.get(path);
      const damaged = damage(whole.slice());
      if (damaged) pack.set(path, damaged);
      else pack.delete(path);
      const { page } = await openPack();
      pack.set(path, whole);
      await page.waitForFunction(() => window.vintak?.state.problem);
      assert.match(await page.evaluate(() => window.vintak.state.problem), expected);
      await page.close();
      fixture.files.delete(path);
    }
  });

  test('whose records come late, or only at a second time, loses neither its view nor the right words', async () => {
    const even = packOf('k/s', [['a/o', resultsOf('a/o', Array.from({ length: 400 }, () => zeros(40, 12)))]]);
    for (const [path, bytes] of even) fixture.files.set(path, bytes);
    fixture.files.set('objects.json', objectsJson([{ name: 'series', prefix: 'k/s', frames: 400, descriptor: 'k/s.index' }]));
    const held = new Map();
    let holds = false;
    fixture.slow.set('k/s.index', (response) => {
      if (!holds) return false;
      const first = Number(/\d+/.exec(response.req.headers.range)[0]);
      held.set(Math.floor((first - 128) / 184 / 64), response);
      return true;
    });
    const { page, state } = await open();
    await when(page, { stage: 'exact', frames: 400 });
    const bar = () => page.$eval('#scalebar', ({ style, textContent }) => `${textContent} ${style.width}`);
    const fitted = await bar();
    for (const key of ['+', '+', '+']) await page.keyboard.press(key);
    await page.waitForFunction((before) => document.querySelector('#scalebar').style.width !== before, fitted.split(' ').pop());
    const zoomed = await bar();

    holds = true;
    const wait = async (block) => { while (!held.has(block)) await page.waitForTimeout(10); };
    await page.keyboard.press('Home');
    await wait(0);
    await page.keyboard.press('End');
    await wait(6);
    held.get(0).writeHead(500).end();
    await page.waitForTimeout(100);
    assert.equal((await state()).problem, null, 'said of a frame that is still on its way');
    held.get(6).writeHead(500).end();
    await page.waitForFunction(() => /answers 500/.test(window.vintak.state.problem ?? ''));
    holds = false;
    await page.keyboard.press('Home');
    await when(page, { frame: 1, stage: 'exact', problem: null });
    await page.keyboard.press('End');
    await when(page, { frame: 400, stage: 'exact', problem: null });
    assert.equal(await bar(), zoomed);
    await page.close();
  });

  test('never leads a reader out of its files, whatever was done to it', async () => {
    const { readPackHead, readPackFrames } = await importSource(join(here, '../../decoder/src/packindex.ts'));
    const { crc32c } = await importSource(join(here, '../../decoder/src/crc32c.ts'));
    const random = randomNumbers(5);
    const whole = pack.get('k/s.index');
    let read = 0;
    for (let i = 0; i < 1000; ++i) {
      const index = whole.slice(0, 128 + 184 * 64);
      for (let n = random() % 4; n >= 0; --n) index[random() % (i % 3 ? 128 : index.length)] = random();
      const seal = (from, at) => new DataView(index.buffer).setUint32(from + at, crc32c(index.subarray(from, from + at)), true);
      if (i % 4) {
        seal(0, 124);
        for (let frame = 0; frame < 64; ++frame) seal(128 + 184 * frame, 176);
      }
      try {
        const head = readPackHead(index);
        for (const { pieces } of readPackFrames(index.subarray(128), 0, head))
          for (const { offset, length, store } of Object.values(pieces)) assert.ok(offset >= 0 && offset + length <= head.storeBytes[store]);
        ++read;
      } catch (error) {
        assert.ok(error instanceof RangeError, String(error));
      }
    }
    assert.ok(read > 0 && read < 1000, `${read} of 1000 were read`);
  });

  test('is located in a long series without its whole index', async () => {
    const { Pack } = await importSource(join(here, '../../decoder/src/pack.ts'));
    const server = await serve({ files: pack });
    try {
      const opened = await Pack.open(`${server.url}k/s.index`);
      const frame = await opened.frame(317);
      assert.equal(frame.description.frame, 168);
      const block = [frame, ...(await opened.block(4)).slice(62)].sort((a, b) => a.place - b.place);
      const heads = await Promise.all(block.map((one) => opened.element(one, 'head', true)));
      assert.ok(heads.every((head) => head.length > 24));
      assert.deepEqual(await opened.elements(block, 'head'), heads);
      const [, description] = await opened.descriptions(await opened.block(4));
      assert.deepEqual([description.frame, description.imagePosition], [258, [0, 0, 108]]);
      await assert.rejects(opened.frame(400), /no frame 401/);
      assert.deepEqual(server.requests, ['k/s.index', 'k/s.index', 'k/s.heads', 'k/s.heads', 'k/s.index']);
    } finally {
      await server.close();
    }
  });
});
