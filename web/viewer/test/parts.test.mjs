// The page's parts that need no browser.
import assert from 'node:assert/strict';
import { dirname, join } from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { importSource } from '../../testing/source.mjs';

const source = (file) => importSource(join(dirname(fileURLToPath(import.meta.url)), '../src', file));
const frame = { rescaleSlope: 1, rescaleIntercept: -1024, bitsUsed: 12, windowCenter: 40, windowWidth: 400 };

test('a window becomes the samples that are black and white', async () => {
  const { sampleLimits } = await source('windowing.ts');
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: 1, rescaleIntercept: -100 }), [300, 800]);
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: 2, rescaleIntercept: 0 }), [100, 350]);
  // MONOCHROME1: samples were turned over, 990 is sample 0; the dark end of the window is the large value.
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: -1, rescaleIntercept: 990 }), [290, 790]);
  const [low, high] = sampleLimits({ center: 5, width: 0 }, { rescaleSlope: 0, rescaleIntercept: 0 });
  assert.ok(high > low && high - low < 0.01);
});

test('presets are the frame’s own, the full range, and those of its scale', async () => {
  const { presetsOf, draggedWindow } = await source('windowing.ts');
  assert.deepEqual(presetsOf(frame).map(({ name }) => name), ['Default', 'Full range', 'Soft tissue', 'Lung', 'Bone', 'Brain']);
  assert.deepEqual(presetsOf({ ...frame, rescaleIntercept: 0, windowWidth: 0 }), [
    { name: 'Default', center: 2048, width: 4096 }, { name: 'Full range', center: 2048, width: 4096 }]);
  assert.deepEqual(presetsOf({ ...frame, rescaleSlope: -1, rescaleIntercept: 4095, windowWidth: -300 })[0], { name: 'Default', center: 40, width: 300 });
  assert.deepEqual(draggedWindow({ center: 40, width: 400 }, 10, -5, 4096), { center: 20, width: 440 });
  assert.equal(draggedWindow({ center: 40, width: 4 }, -100, 0, 4096).width, 1);
});

test('the screen knows where the frame is', async () => {
  const { fitted, pixelAspect, scaleBar, toFrame, zoomed } = await source('viewgeometry.ts');
  const screen = { width: 400, height: 300 };
  const size = { width: 200, height: 50 };
  const aspect = pixelAspect([2, 1]);
  const view = fitted(size, screen, aspect);
  assert.deepEqual(view, { scale: 2, panX: 0, panY: 0 });
  assert.deepEqual(toFrame(view, size, screen, aspect, 0, 50), [0, 0]);
  assert.deepEqual(toFrame(view, size, screen, aspect, 400, 250), [200, 50]);
  const near = zoomed(view, screen, 3, 100, 120);
  assert.deepEqual(toFrame(near, size, screen, aspect, 100, 120), toFrame(view, size, screen, aspect, 100, 120));
  assert.equal(zoomed(view, screen, 1e9, 0, 0).scale, 100);
  assert.equal(pixelAspect([0, 1]), 1);
  assert.deepEqual(scaleBar(0.5, 130), { millimetres: 50, pixels: 100 });
  assert.equal(scaleBar(0, 130), undefined);
});

test('the cache lets go of what was not used for longest', async () => {
  const { ByteCache } = await source('cache.ts');
  const cache = new ByteCache(100);
  for (const key of ['a', 'b', 'c']) cache.put(key, key.toUpperCase(), 40);
  assert.deepEqual([cache.get('a'), cache.get('b'), cache.bytes], [undefined, 'B', 80]);
  cache.put('d', 'D', 40);
  assert.deepEqual([cache.get('b'), cache.get('c')], ['B', undefined]);
  cache.put('large', 'L', 500);
  assert.deepEqual([cache.get('large'), cache.get('b'), cache.bytes], ['L', undefined, 500]);
  cache.put('large', 'l', 10);
  assert.equal(cache.bytes, 10);
});

test('what is wanted first is begun first, and what is not wanted any more is aborted', async () => {
  const { Scheduler } = await source('scheduler.ts');
  const begun = [];
  const open = new Map();
  const task = (key) => ({ key, run: (signal) => new Promise((resolve, reject) => {
    begun.push(key);
    open.set(key, { resolve, reject, signal });
  }) });
  const settle = async (key, how = 'resolve') => {
    open.get(key)[how]();
    await new Promise(setImmediate);
  };
  const scheduler = new Scheduler(2);
  scheduler.want(['a', 'b', 'c'].map(task));
  assert.deepEqual(begun, ['a', 'b']);
  scheduler.want(['d', 'b', 'e'].map(task));
  assert.equal(open.get('a').signal.aborted, true);
  assert.equal(open.get('b').signal.aborted, false);
  assert.deepEqual(begun, ['a', 'b', 'd']);
  scheduler.want(['e', 'b', 'd'].map(task));
  assert.deepEqual(begun, ['a', 'b', 'd', 'e'], 'the first does not wait for a place');
  await settle('e', 'reject');
  await settle('b');
  scheduler.want(['e', 'b', 'd', 'f'].map(task));
  assert.deepEqual(begun.slice(4), ['f'], 'neither what is done nor what has failed is begun again');
  scheduler.forget('e');
  scheduler.want(['e'].map(task));
  assert.equal(begun.at(-1), 'e');
});

test('a list of objects has absolute addresses, or is refused', async () => {
  const { parseObjectList } = await source('objectlist.ts');
  const [object] = parseObjectList({ version: 1, objects: [{ id: 4, name: 'x', frames: 2, prefix: 'results/0/o', descriptor: 'results/0/o.desc', document: null, error: null }] }, 'http://host/t/objects.json');
  assert.deepEqual(object, { id: 4, name: 'x', frames: 2, prefix: 'http://host/t/results/0/o', descriptor: 'http://host/t/results/0/o.desc', document: null, error: null });
  for (const wrong of [null, {}, { version: 2, objects: [] }, { version: 1, objects: 'x' }]) assert.throws(() => parseObjectList(wrong, 'http://host/'), SyntaxError);
});

test('the sign never takes a part for the frame', async () => {
  const { signOf } = await source('sign.ts');
  const shown = (stage, reduce, bytes, totalBytes) => ({ stage, bytes, totalBytes, picture: { reduce } });
  assert.deepEqual(signOf(shown('exact', 0, 185_000, 185_000)), { text: 'exact · 185 kB', isExact: true });
  assert.deepEqual(signOf(shown('preview', 2, 4096, undefined)), { text: 'preview · reduced 1/4 · 4.1 kB', isExact: false });
  assert.deepEqual(signOf(shown('part', 0, 999_999, 1_000_000)), { text: 'part · 99 % of 1.0 MB', isExact: false });
  assert.equal(signOf(shown('damaged', 0, 10, 10)).isExact, false);
  assert.equal(signOf(undefined).isExact, false);
});
