// Figures of the browser's half, in one run on one machine: node web/bench/bench.mjs [decoding|cold|warm|error|handling]...
// Decoding beside OpenJPH's codec for browsers, the first and the exact picture cold and throttled, the error on the way,
// scrolling and dragging. Prints a table; fails on nothing.
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { basename, dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { createDecoder } from '../decoder/dist/index.js';
import { launch } from '../testing/browser.mjs';
import { makeFrames } from '../testing/frames.mjs';
import { startNginx, vintakSite } from '../testing/nginx.mjs';
import { objectsJson, resultsOf } from '../testing/results.mjs';
import { serve } from '../testing/server.mjs';
import { BareBrowser, programs } from './barebrowser.mjs';

const web = join(dirname(fileURLToPath(import.meta.url)), '..');
const codecPath = createRequire(import.meta.url).resolve('@cornerstonejs/codec-openjph');
const median = (values) => values.toSorted?.((a, b) => a - b)[values.length >> 1] ?? [...values].sort((a, b) => a - b)[values.length >> 1];
const row = (...cells) => console.log(cells.join('\t'));

/** The same frame, lossless, by OpenJPH. */
async function encodeByPeer(frame) {
  const codec = await createRequire(import.meta.url)(codecPath)();
  const encoder = new codec.HTJ2KEncoder();
  const color = frame.bytesPerPixel === 3;
  encoder.getDecodedBuffer({ width: frame.width, height: frame.height, bitsPerSample: frame.bytesPerPixel === 2 ? 16 : 8,
    componentCount: color ? 3 : 1, isSigned: false, isUsingColorTransform: color }).set(frame.raw);
  encoder.setQuality(true, 0);
  encoder.encode();
  return new Uint8Array(encoder.getEncodedBuffer());
}

const peerWorker = `importScripts('peer.js');
const ready = Module({ locateFile: () => 'peer.wasm' }).then((codec) => new codec.HTJ2KDecoder());
onmessage = async ({ data }) => {
  const decoder = await ready;
  decoder.getEncodedBuffer(data.length).set(data);
  decoder.decode();
  const pixels = decoder.getDecodedBuffer().slice();
  postMessage(pixels, [pixels.buffer]);
};`;

async function benchDecoding(browser, frames) {
  console.log('\nDecoding in one warm Worker, message included: median of 9, ms');
  row('frame', 'samples', 'ours', 'OpenJPH', 'ratio');
  const files = new Map([['index.html', new TextEncoder().encode('<!doctype html>')], ['peerworker.js', new TextEncoder().encode(peerWorker)],
    ['peer.js', readFileSync(codecPath)], ['peer.wasm', readFileSync(codecPath.replace(/\.js$/, '.wasm'))]]);
  for (const frame of frames) {
    files.set(`${frame.name}.stream`, frame.payload);
    files.set(`${frame.name}.jph`, await encodeByPeer(frame));
  }
  const server = await serve({ folder: join(web, 'decoder/dist'), files, policy: '' });
  const page = await browser.newPage();
  await page.goto(server.url);
  for (const frame of frames) {
    const [ours, peer, same] = await page.evaluate(async (name) => {
      const bytes = async (file) => new Uint8Array(await (await fetch(file)).arrayBuffer());
      const [stream, jph] = [await bytes(`${name}.stream`), await bytes(`${name}.jph`)];
      const { WorkerPool } = await import('./index.js');
      const pool = new WorkerPool({ workerUrl: 'worker.js', wasmUrl: 'decoder.wasm', size: 1 });
      const worker = new Worker('peerworker.js');
      const byPeer = () => new Promise((resolve) => {
        worker.onmessage = ({ data }) => resolve(data);
        worker.postMessage(jph);
      });
      const timed = async (work) => {
        const start = performance.now();
        const result = await work();
        return [performance.now() - start, result];
      };
      const [mine, theirs] = [[], []];
      let same = true;
      for (let i = 0; i < 10; ++i) {
        const [a, picture] = await timed(() => pool.decode(stream));
        const [b, pixels] = await timed(byPeer);
        if (i === 0) {
          const left = new Uint8Array(picture.pixels.buffer);
          same = left.length === pixels.length && left.every((value, at) => value === pixels[at]);
        } else {
          mine.push(a);
          theirs.push(b);
        }
      }
      pool.close();
      worker.terminate();
      return [mine, theirs, same];
    }, frame.name);
    row(frame.name, frame.width * frame.height, median(ours).toFixed(1), median(peer).toFixed(1), (median(peer) / median(ours)).toFixed(2), same ? '' : 'NOT THE SAME');
  }
  await page.close();
  await server.close();
}

/** nginx, as packaging/nginx has it, on the site that `vintak view --export` makes of one object with this frame and thumbnail. */
async function serveSite(folder, frame, thumbnail) {
  for (const [name, bytes] of [...resultsOf('o', [frame]), ['o_1.128x128t.cw1', thumbnail.payload]]) writeFileSync(join(folder, name), bytes);
  const site = join(folder, 'site');
  execFileSync(join(web, '../build/release/tools/vintak/vintak'), ['view', join(folder, 'o.desc'), '--export', site]);
  return startNginx(folder, vintakSite(site, site));
}

/** Milliseconds from the page's address to its pictures, in a page without a cache; whoever measures looks when all is over. */
async function openCold(browser, url, network, patience) {
  const page = await browser.newPage(network);
  await page.go(url);
  for (let exact; exact === undefined; ) {
    await new Promise((resolve) => setTimeout(resolve, patience));
    exact = await page.evaluate(() => performance.getEntriesByName('vintak:exact')[0]?.startTime);
  }
  const times = await page.evaluate(() => {
    const since = (name) => performance.getEntriesByName(name)[0].startTime;
    const first = Math.min(...performance.getEntriesByType('mark').map(({ startTime }) => startTime));
    return [first, first - performance.getEntriesByType('navigation')[0].responseEnd, since('first-contentful-paint'), since('vintak:exact')];
  });
  await page.close();
  return times;
}

async function benchFirstPicture(frame, thumbnail) {
  const rounds = 11;
  console.log(`\nFrom the page's address to the picture (${frame.name}, ${frame.width} x ${frame.height}, ${frame.payload.length} bytes): median of ${rounds} (best), ms`);
  row('browser', 'network', 'first picture', '... since the document is there', 'first contentful paint', 'exact', 'its transfer alone');
  const folder = mkdtempSync(join(tmpdir(), 'vintak-bench-'));
  const nginx = await serveSite(folder, frame, thumbnail);
  for (const program of programs) {
    const browser = new BareBrowser(program);
    for (const [network, bitsPerSecond, latency] of [['unthrottled', 0, 0], ['18 Mbit/s, 50 ms', 18e6, 50]]) {
      const throughput = bitsPerSecond / 8;
      const throttle = bitsPerSecond ? { offline: false, latency, downloadThroughput: throughput, uploadThroughput: throughput } : undefined;
      const all = [];
      for (let i = 0; i < rounds; ++i) all.push(await openCold(browser, nginx.url, throttle, bitsPerSecond ? 8000 : 1500));
      const told = [0, 1, 2, 3].map((at) => all.map((times) => times[at])).map((times) => `${median(times).toFixed(0)} (${Math.min(...times).toFixed(0)})`);
      row(basename(program), network, ...told, bitsPerSecond ? ((1000 * frame.payload.length) / throughput).toFixed(0) : '');
    }
    await browser.close();
  }
  await nginx.stop();
  rmSync(folder, { recursive: true });
}

/** The page is there and has shown a picture; the next object is opened. */
async function benchWarm(browser, frame) {
  const rounds = 6;
  const objects = Array.from({ length: rounds + 1 }, (_, i) => ({ name: `o${i}`, prefix: `o${i}`, frames: 1 }));
  const files = new Map([...objects.flatMap(({ prefix }) => [...resultsOf(prefix, [frame])]), ['objects.json', objectsJson(objects)]]);
  const server = await serve({ folder: join(web, 'viewer/dist'), files });
  const page = await browser.newPage({ viewport: { width: 1366, height: 768 } });
  await page.goto(server.url);
  await page.waitForFunction(() => window.vintak?.state.stage === 'exact');
  const times = await page.evaluate(async (count) => {
    const stageIs = (wanted) => new Promise((resolve) => {
      const look = () => (wanted(document.body.dataset.stage) ? resolve(performance.now()) : requestAnimationFrame(look));
      look();
    });
    const all = [];
    for (let i = 1; i <= count; ++i) {
      const start = performance.now();
      document.dispatchEvent(new KeyboardEvent('keydown', { key: '.' }));
      const painted = await stageIs((stage) => stage !== 'none');
      const exact = await stageIs((stage) => stage === 'exact');
      const [preview] = performance.getEntriesByType('resource').filter(({ name }) => name.endsWith(`/o${i}_1.p.qi4`));
      all.push([painted - preview.responseEnd, painted - start, exact - start]);
    }
    return all;
  }, rounds);
  console.log('\nThe next object in a page that is there, unthrottled: median of 6, ms');
  row('from the preview\'s bytes to its picture', 'from the key to the picture', 'from the key to the exact one');
  row(...[0, 1, 2].map((at) => median(times.map((each) => each[at])).toFixed(0)));
  await page.close();
  await server.close();
}

async function benchError(frames) {
  console.log('\nError of a picture of the first bytes (full size), PSNR in dB over the frame\'s bits');
  const decoder = await createDecoder();
  row('frame', '4 kB', '1/16', '1/8', '1/4', '1/2');
  for (const frame of frames.filter(({ bytesPerPixel }) => bytesPerPixel < 3)) {
    const exact = decoder.decode(frame.payload).pixels;
    const psnr = (bytes) => {
      const { pixels } = decoder.decode(frame.payload.subarray(0, bytes));
      let sum = 0;
      for (let i = 0; i < exact.length; ++i) sum += (pixels[i] - exact[i]) ** 2;
      return sum === 0 ? 'exact' : (10 * Math.log10((2 ** frame.bitsUsed - 1) ** 2 / (sum / exact.length))).toFixed(1);
    };
    row(frame.name, psnr(4096), ...[16, 8, 4, 2].map((part) => psnr(Math.floor(frame.payload.length / part))));
  }
}

async function benchHandling(browser, frame) {
  const files = new Map([...resultsOf('o', Array(300).fill(frame)), ['objects.json', objectsJson([{ name: 'o', prefix: 'o', frames: 300 }])]]);
  const server = await serve({ folder: join(web, 'viewer/dist'), files });
  const page = await browser.newPage({ viewport: { width: 1366, height: 768 } });
  await page.goto(server.url);
  await page.waitForFunction(() => window.vintak?.state.stage === 'exact');
  const result = await page.evaluate(async () => {
    const longTasks = [];
    new PerformanceObserver((list) => longTasks.push(...list.getEntries().map(({ duration }) => duration))).observe({ entryTypes: ['longtask'] });
    const key = (name) => document.dispatchEvent(new KeyboardEvent('keydown', { key: name }));
    const rest = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
    const shown = async () => {
      const start = performance.now();
      while (window.vintak.state.stage === null) await rest(1);
      return performance.now() - start;
    };
    key('Home');
    await rest(500);
    const waits = [];
    for (let i = 0; i < 299; ++i) {
      key('ArrowDown');
      const wait = await shown();
      waits.push(wait);
      await rest(Math.max(50 - wait, 0));
    }
    const cachedBytes = window.vintak.state.cachedBytes;
    const box = document.querySelector('#viewport').getBoundingClientRect();
    const viewport = document.querySelector('#viewport');
    viewport.setPointerCapture = () => undefined;
    const pointer = (type, x, y) => viewport.dispatchEvent(new PointerEvent(type, { pointerId: 1, button: 0, clientX: x, clientY: y, bubbles: true }));
    const before = longTasks.length;
    pointer('pointerdown', box.x + 100, box.y + 100);
    const start = performance.now();
    let frames = 0;
    while (performance.now() - start < 2000) {
      pointer('pointermove', box.x + 100 + (frames % 200), box.y + 100);
      await new Promise(requestAnimationFrame);
      ++frames;
    }
    pointer('pointerup', box.x + 100, box.y + 100);
    waits.sort((a, b) => a - b);
    return { p50: waits[150], p95: waits[284], worst: waits[298], cachedBytes, rate: frames / 2, longDragging: longTasks.slice(before), longScrolling: longTasks.slice(0, before) };
  });
  console.log(`\n300 slices of ${frame.width} x ${frame.height} at 20 a second: first picture of a slice after ${result.p50.toFixed(0)} ms (median), ${result.p95.toFixed(0)} (95th percentile), ` +
    `${result.worst.toFixed(0)} (worst); ${(result.cachedBytes / 2 ** 20).toFixed(0)} MB of pictures kept`);
  console.log(`Dragging the window: ${result.rate.toFixed(0)} frames a second`);
  console.log(`Tasks over 50 ms on the main thread: scrolling ${result.longScrolling.length}, dragging ${result.longDragging.length}`);
  await page.close();
  await server.close();
}

const [mammogram] = makeFrames('mammogram');
const made = makeFrames();
const small = made.filter(({ name }) => ['flat', 'grey12', 'grey16', 'rgb'].includes(name));
const thumbnail = made.find(({ name }) => name === 'thumb12');
const withBrowser = (work) => async () => {
  const browser = await launch();
  await work(browser);
  await browser.close();
};
const pieces = {
  decoding: withBrowser((browser) => benchDecoding(browser, [mammogram, ...small])),
  cold: () => benchFirstPicture(mammogram, thumbnail),
  warm: withBrowser((browser) => benchWarm(browser, mammogram)),
  error: () => benchError([mammogram, ...small]),
  handling: withBrowser((browser) => benchHandling(browser, small.find(({ name }) => name === 'flat'))),
};
await withBrowser((browser) => console.log(`Chromium ${browser.version()}, Node ${process.version}`))();
for (const name of process.argv.length > 2 ? process.argv.slice(2) : Object.keys(pieces)) await pieces[name]();
