import assert from 'node:assert/strict';
import { dirname, join } from 'node:path';
import test, { after, before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser, openPage } from '../../testing/browser.mjs';
import { makeFrames, missing as noFrames } from '../../testing/frames.mjs';
import { noPacks, objectsJson, packOf, resultsOf } from '../../testing/results.mjs';
import { serve } from '../../testing/server.mjs';
import { importSource } from '../../testing/source.mjs';

const here = dirname(fileURLToPath(import.meta.url));

const load = (file) => importSource(join(here, '../src', file));

test('an image id names an address and a frame', async () => {
  const { imageIdOf, parseImageId } = await load('imageid.ts');
  const address = { prefix: 'https://host/a%20b/o#1', frame: 12 };
  assert.deepEqual(parseImageId(imageIdOf(address)), address);
  for (const wrong of ['vintak:https://host/o', 'vintak:https://host/o#0', 'vintak:https://host/o#x', 'wadouri:x#1'])
    assert.throws(() => parseImageId(wrong), RangeError);
});

test('samples become modality values in an array that holds them exactly', async () => {
  const { enlarged, rescaled, sampleType } = await load('samples.ts');
  const frame = (rescaleSlope, rescaleIntercept, bitsUsed, layout = 'mono') => ({ rescaleSlope, rescaleIntercept, bitsUsed, layout });
  const cases = [
    [frame(1, 0, 8), 'Uint8Array'], [frame(1, 0, 12), 'Uint16Array'], [frame(1, -1024, 12), 'Int16Array'], [frame(-1, 4095, 12), 'Uint16Array'],
    [frame(1, -40000, 8), 'Float32Array'], [frame(2, 0, 16), 'Float32Array'], [frame(0.5, 0, 8), 'Float32Array'], [frame(1, 0, 8, 'bypixel'), 'Uint8Array'],
  ];
  for (const [description, type] of cases) assert.equal(sampleType(description), type);
  assert.deepEqual(rescaled(Uint16Array.of(0, 1000, 65535), frame(1, -1024, 12)), Int16Array.of(-1024, -24, 32767));
  assert.deepEqual(rescaled(Uint8Array.of(1, 2, 3), frame(1, 0, 8, 'bypixel')), Uint8Array.of(1, 2, 3));
  const small = { width: 2, height: 2, frameWidth: 3, frameHeight: 3, channels: 1, reduce: 1, pixels: Uint8Array.of(1, 2, 3, 4) };
  assert.deepEqual(enlarged(small), Uint8Array.of(1, 1, 2, 1, 1, 2, 3, 3, 4));
});

test('frames that are asked for at once have their object fetched once, and what was said of it stays', async () => {
  const { addObject, fetchFrame, fetchObject, frameOf } = await load('objects.ts');
  const { fetch } = globalThis;
  const descriptor = Array.from({ length: 50 }, (_, i) => `${i + 1} 4 4 mono 8 8 0 1 256 128 1 1    \n`).join('');
  let asked = 0;
  globalThis.fetch = async () => {
    await new Promise(setImmediate);
    return new Response(++asked === 1 ? null : descriptor, { status: asked === 1 ? 503 : 200 });
  };
  try {
    const all = () => Promise.allSettled(Array.from({ length: 50 }, (_, i) => fetchFrame({ prefix: 'https://h/o', frame: i + 1 })));
    assert.ok((await all()).every(({ reason }) => /HTTP 503/.test(reason)));
    assert.ok((await all()).every(({ status }) => status === 'fulfilled'));
    assert.equal(asked, 2);
    // The application's own request, and one of the loader's that ends later.
    const late = fetchFrame({ prefix: 'https://h/p', frame: 1 });
    addObject('https://h/p', descriptor, { modality: 'CT' });
    await late;
    assert.equal(frameOf({ prefix: 'https://h/p', frame: 1 }).details.modality, 'CT');
    await fetchObject('https://h/p', { modality: 'MR' });
    assert.equal(frameOf({ prefix: 'https://h/p', frame: 1 }).details.modality, 'MR');
  } finally {
    globalThis.fetch = fetch;
  }
});

describe('a stack viewport of Cornerstone3D', { skip: noBrowser || noFrames }, () => {
  let browser, server, page, complaints, frames;
  before(async () => {
    const made = makeFrames();
    frames = ['flat', 'grey12'].map((name) => made.find((frame) => frame.name === name));
    const files = resultsOf('ct/o', frames, { intercept: -1024, slope: 1, width: 400, center: 40 });
    for (const [path, bytes] of resultsOf('us/o', [made.find(({ name }) => name === 'rgb')])) files.set(path, bytes);
    const listed = [{ name: 'ct', prefix: 'ct/o', frames: 2 }, { name: 'us', prefix: 'us/o', frames: 1 }];
    if (!noPacks) {
      for (const [path, bytes] of packOf('pk/s', [['us/o', resultsOf('us/o', [made.find(({ name }) => name === 'rgb')])], ['ct/o', resultsOf('ct/o', frames, { intercept: -1024, slope: 1, width: 400, center: 40 })]]))
        files.set(path, bytes);
      listed.push({ name: 'packed', prefix: 'pk/s', frames: 3, descriptor: 'pk/s.index' });
    }
    files.set('objects.json', objectsJson(listed));
    // The viewer's own toolkit compiles functions from text, so the example's page is not under our policy.
    server = await serve({ folder: join(here, '../dist/example'), files, policy: "default-src 'self' 'unsafe-eval' 'unsafe-inline' data: blob:" });
    browser = await launch();
    ({ page, complaints } = await openPage(browser));
    await page.goto(server.url);
  });
  after(async () => {
    await browser?.close();
    await server?.close();
  });
  const exact = (index) => page.waitForFunction((wanted) => {
    const { viewport, seen } = window.vintakExample ?? {};
    const ids = viewport?.getImageIds();
    return ids?.length > wanted && seen.some(({ event, id, quality }) => event === 'image' && id === ids[wanted] && quality === 8);
  }, index);

  test('shows preview, head and exact picture through the progressive events', async () => {
    await exact(0);
    await page.waitForFunction(() => window.vintakExample.seen.some(({ id }) => id === 'vintakExact'));
    const seen = await page.evaluate(() => window.vintakExample.seen);
    assert.deepEqual(seen.filter(({ event }) => event === 'stage').map(({ id }) => id), ['vintakPreview', 'vintakHead', 'vintakExact']);
    const qualities = seen.filter(({ event }) => event === 'image').map(({ quality }) => quality);
    assert.equal(qualities.at(-1), 8);
    assert.ok(qualities.slice(0, -1).every((quality) => quality < 8), String(qualities));
    const paths = server.requests.filter((path) => path.startsWith('ct/o_1'));
    assert.deepEqual(paths, ['ct/o_1.p.qi4', 'ct/o_1.t.qi4', 'ct/o_1.f.qi4']);
  });

  test('has the exact modality values, spacing and window', async () => {
    const state = await page.evaluate(() => {
      const { viewport } = window.vintakExample;
      const image = viewport.getCornerstoneImage();
      const { lower, upper } = viewport.getProperties().voiRange;
      return { samples: Array.from(image.getPixelData()), lower, upper, spacing: viewport.getImageData().spacing };
    });
    const raw = new Uint16Array(frames[0].raw.slice().buffer);
    assert.deepEqual(state.samples, Array.from(raw, (sample) => sample - 1024));
    assert.ok(Math.abs(state.lower - -160) <= 1 && Math.abs(state.upper - 240) <= 1, `${state.lower} ${state.upper}`);
    assert.deepEqual(state.spacing.slice(0, 2), [0.25, 0.5]);
  });

  test('scrolls, and shows colour', async () => {
    await page.evaluate(() => window.vintakExample.viewport.setImageIdIndex(1));
    await exact(1);
    await page.selectOption('#objects', { label: 'us' });
    await page.waitForFunction(() => window.vintakExample.viewport.getImageIds().length === 1);
    await exact(0);
    assert.equal(await page.evaluate(() => window.vintakExample.viewport.getCornerstoneImage().color), true);
    assert.deepEqual(complaints, []);
  });

  test('shows a pack by ranges', { skip: noPacks }, async () => {
    await page.selectOption('#objects', { label: 'packed' });
    await page.waitForFunction(() => window.vintakExample.viewport.getImageIds().length === 3);
    await exact(0);
    await page.evaluate(() => window.vintakExample.viewport.setImageIdIndex(1));
    await exact(1);
    const state = await page.evaluate(() => {
      const { viewport } = window.vintakExample;
      return { samples: Array.from(viewport.getCornerstoneImage().getPixelData()), id: viewport.getImageIds()[1], spacing: viewport.getImageData().spacing };
    });
    assert.deepEqual(state.samples, Array.from(new Uint16Array(frames[0].raw.slice().buffer), (sample) => sample - 1024));
    assert.match(state.id, /pk\/s\.index#2$/);
    assert.deepEqual(state.spacing.slice(0, 2), [0.25, 0.5]);
    assert.ok(server.ranges.filter((asked) => asked.startsWith('pk/')).every((asked) => / bytes=\d+-\d+$/.test(asked)));
    assert.deepEqual(complaints, []);
  });

  test('tells of a missing file and goes on', async () => {
    server.files.delete('ct/o_2.f.qi4');
    await page.evaluate(() => window.vintakExample.viewport.getImageIds());
    await page.reload();
    await exact(0);
    await page.evaluate(() => window.vintakExample.viewport.setImageIdIndex(1));
    await page.waitForFunction(() => window.vintakExample.seen.filter(({ id }) => id === 'vintakExact').length === 2);
    const qualities = await page.evaluate(() => {
      const { viewport, seen } = window.vintakExample;
      return seen.filter(({ id }) => id === viewport.getImageIds()[1]).map(({ quality }) => quality);
    });
    assert.ok(qualities.length > 0 && !qualities.includes(8), String(qualities));
  });
});
