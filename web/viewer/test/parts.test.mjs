// The page's parts that need no browser.
import assert from 'node:assert/strict';
import { dirname, join } from 'node:path';
import test, { afterEach } from 'node:test';
import { fileURLToPath } from 'node:url';

import { importSource } from '../../testing/source.mjs';

const source = (file) => importSource(join(dirname(fileURLToPath(import.meta.url)), '../src', file));
const frame = { rescaleSlope: 1, rescaleIntercept: -1024, bitsUsed: 12, windowCenter: 40, windowWidth: 400 };

test('a window becomes the samples that are black and white', async () => {
  const { sampleLimits } = await source('windowing.ts');
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: 1, rescaleIntercept: -100 }), [300, 800]);
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: 2, rescaleIntercept: 0 }), [100, 350]);
  // MONOCHROME1: samples were turned over, 990 is sample 0; the dark end of the window is the large value.
  const turned = { rescaleSlope: -1, rescaleIntercept: 990 };
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { ...turned, windowWidth: -501 }), [290, 790]);
  // A slope that was negative before: large samples are small values, which are dark.
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { ...turned, windowWidth: 501 }), [790, 290]);
  assert.deepEqual(sampleLimits({ center: 450.5, width: 501 }, { rescaleSlope: 1, rescaleIntercept: 0, windowWidth: -501 }), [700, 200]);
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
  const { fitted, nearestSample, pixelAspect, scaleBar, toFrame, zoomed } = await source('viewgeometry.ts');
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
  assert.deepEqual([0, 3, 4, 11, 12, 16].map((place) => nearestSample(place, 3, 2)), [0, 0, 1, 1, 1, 1]);
  assert.deepEqual(scaleBar(0.5, 130), { millimetres: 50, pixels: 100 });
  assert.equal(scaleBar(0, 130), undefined);
});

test('where the screen has less room, averages are drawn, in their place', async () => {
  const { RasterMaker, shrinkLevel, shrunk } = await source('raster.ts');
  assert.deepEqual([2, 1, 0.51, 0.5, 0.3, 0.25].map((scale) => shrinkLevel(1, scale)), [0, 0, 0, 1, 1, 2]);
  assert.equal(shrinkLevel(8, 0.25), 0);
  const raster = { pixels: Uint16Array.from([0, 4, 9, 8, 12, 65535]), width: 3, height: 2, channels: 1, frameWidth: 5, frameHeight: 4, apart: 2, origin: 0 };
  assert.equal(shrunk(raster, 0), raster);
  assert.deepEqual(shrunk(raster, 1), { ...raster, pixels: Uint16Array.from([6, 32772]), width: 2, height: 1, apart: 4, origin: 1 });
  const rgb = { ...raster, pixels: Uint8Array.from([1, 10, 100, 3, 20, 200]), width: 2, height: 1, channels: 3 };
  assert.deepEqual([...shrunk(rgb, 2).pixels], [2, 15, 150]);
  const maker = new RasterMaker();
  const picture = { ...raster, reduce: 0 };
  assert.equal(maker.rasterFor(picture, 0.4), maker.rasterFor(picture, 0.3));
  assert.notEqual(maker.rasterFor(picture, 1), maker.rasterFor(picture, 0.3));
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
  const script = { version: 1, objects: [{ document: 'javascript:alert(1)' }] };
  for (const wrong of [null, {}, { version: 2, objects: [] }, { version: 1, objects: 'x' }, { version: 1, objects: [null] }, { version: 1, objects: [{ prefix: 'http://[' }] }, script]) assert.throws(() => parseObjectList(wrong, 'http://host/'), SyntaxError);
});

test('the sign never takes a part for the frame', async () => {
  const { signOf } = await source('sign.ts');
  const shown = (stage, reduce, bytes, totalBytes) => ({ stage, bytes, totalBytes, picture: { reduce } });
  assert.deepEqual(signOf(shown('exact', 0, 185_000, 185_000)), { text: 'exact · 185 kB', isExact: true });
  assert.deepEqual(signOf(shown('preview', 2, 4096, undefined)), { text: 'preview · reduced 1/4 · 4.1 kB', isExact: false });
  assert.deepEqual(signOf(shown('part', 0, 999_999, 1_000_000)), { text: 'part · 99 % of 1.0 MB', isExact: false });
  assert.equal(signOf(shown('part', 1, 1000, undefined), { bytes: 5000, totalBytes: 10_000 }).text, 'part · reduced 1/2 · 50 % of 10 kB');
  assert.equal(signOf(shown('damaged', 0, 10, 10)).isExact, false);
  assert.equal(signOf(undefined).isExact, false);
});

/** A stack of frames of 8 x 8 whose loads are answered by hand, and what it told of them. */
async function openStack(frames, cacheBytes = 1e6) {
  const { Stack } = await source('stack.ts');
  globalThis.fetch = async () => new Response(Array.from({ length: frames }, (_, i) => `${i + 1} 8 8 mono 8 8 0 1 256 128 0 0 u p o q\n`).join(''));
  const loads = new Map();
  const load = (kind) => (stem, _frame, ...rest) => new Promise((resolve, reject) => {
    const signal = rest.find((value) => value instanceof AbortSignal);
    loads.set(kind + stem, { resolve, reject, signal, events: rest.at(-1) });
    signal.addEventListener('abort', () => reject(signal.reason));
  });
  const told = [];
  const events = { frame: (frame, shown) => told.push([frame?.frame, shown?.stage]), problem: () => {}, received: () => {}, settled: () => told.push('settled') };
  const stack = new Stack({ fetchAhead: () => {}, preview: load('p'), whole: load('w') }, cacheBytes, events);
  await stack.open({ id: 1, name: 'o', frames, prefix: '', descriptor: 'http://h/d', document: null, error: null });
  const picture = (stage, bytes) => ({ stage, bytes, totalBytes: 100, picture: { pixels: new Uint8Array(64) } });
  const running = () => [...loads].filter(([, { signal }]) => !signal.aborted).map(([name]) => name);
  return { stack, loads, told, picture, running, settle: () => new Promise(setImmediate) };
}
const { fetch } = globalThis;
afterEach(() => (globalThis.fetch = fetch));

test('the frame in view goes first, then previews, then whole neighbours; what is left behind is aborted', async () => {
  const { stack, loads, told, picture, running, settle } = await openStack(9);
  assert.deepEqual(running(), ['w_5'], 'nothing beside the frame in view before it has a picture');
  const { events, resolve } = loads.get('w_5');
  events.show(picture('preview', 10));
  assert.deepEqual(running(), ['w_5', 'p_6', 'p_4', 'p_7'], 'no whole neighbour before it is exact');
  assert.equal(events.onScreen(), true);
  events.show(picture('exact', 100));
  resolve();
  loads.get('p_6').resolve(picture('preview', 10));
  await settle();
  for (const name of ['p_4', 'p_7', 'p_3', 'p_8', 'p_2']) {
    loads.get(name)?.resolve(picture('preview', 10));
    await settle();
  }
  assert.ok(running().includes('w_6') && running().includes('w_4'));
  assert.equal(loads.get('w_6').events.onScreen(), false);
  stack.goTo(8);
  assert.deepEqual(['w_4', 'w_6'].map((name) => loads.get(name).signal.aborted), [true, true]);
  loads.get('w_4').events.show(picture('exact', 100));
  assert.deepEqual(told.at(-1), [9, undefined], 'an answer for another frame is not shown');
  stack.goTo(3);
  assert.deepEqual(told.at(-1), [4, 'exact']);
});

test('a late preview takes the place of nothing better, and a failure is told and tried again', async () => {
  const { stack, loads, told, picture, running, settle } = await openStack(3);
  const first = loads.get('w_2');
  first.events.show(picture('part', 50));
  first.events.show(picture('preview', 10));
  assert.deepEqual(told.at(-1), 'settled');
  assert.deepEqual(told.filter(Array.isArray).map(([, stage]) => stage).filter(Boolean), ['part']);
  first.reject(new Error('o_2.f.qi4 is missing'));
  await settle();
  assert.equal(stack.trouble, 'o_2.f.qi4 is missing');
  loads.get('p_1').reject(new Error('gone'));
  await settle();
  assert.equal(stack.trouble, 'o_2.f.qi4 is missing', 'nobody misses a preview');
  loads.delete('w_2');
  stack.retry();
  assert.equal(stack.trouble, null);
  assert.ok(running().includes('w_2'));
});

test('whole neighbours are loaded only as far as the cache can hold them', async () => {
  const { loads, picture, running, settle } = await openStack(9, 200);
  loads.get('w_5').events.show(picture('exact', 100));
  loads.get('w_5').resolve();
  for (let round = 0; round < 12; ++round) {
    for (const name of running().filter((name) => name.startsWith('p'))) loads.get(name).resolve(picture('preview', 10));
    await settle();
  }
  assert.deepEqual(running().filter((name) => name.startsWith('w') && name !== 'w_5').sort(), ['w_4', 'w_6']);
});

test('what is announced is the last of what was said in a hurry', async (context) => {
  const { Announcer } = await source('announcer.ts');
  const place = { textContent: '' };
  const announcer = new Announcer(place, 500);
  const timers = new Map();
  context.mock.method(globalThis, 'setTimeout', (action) => timers.set(timers.size, action) && timers.size - 1);
  context.mock.method(globalThis, 'clearTimeout', (timer) => timers.set(timer, () => {}));
  for (const text of ['frame 1', 'frame 2', 'frame 3']) announcer.say(text);
  for (const action of timers.values()) action();
  assert.equal(place.textContent, 'frame 3');
});
