// Packs against separate files, in one run: node bench/pack.mjs [FRAMES [MANY]]. Needs the release build and the built page.
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { closeSync, existsSync, mkdirSync, mkdtempSync, openSync, readdirSync, readFileSync, readSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { loadavg, tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser } from '../web/testing/browser.mjs';
import { importSource } from '../web/testing/source.mjs';

const root = join(dirname(fileURLToPath(import.meta.url)), '..');
const program = (name) => join(process.env.VINTAKD_BUILD ?? join(root, 'build/release'), name);
const [frames, many] = [Number(process.argv[2] ?? 2000), Number(process.argv[3] ?? 400_000)];
const folder = mkdtempSync(join(tmpdir(), 'vintak-packbench-'));
const at = (...names) => join(folder, ...names);
const environment = { ...process.env, RUN: at('run'), TMP: at('run'), VINTAKD_SEGMENT: `vintakd_packbench_${process.pid}`, VINTAKD_TRACE_SWITCH: '-' };
const run = (name, ...words) => {
  const done = spawnSync(program(name), words, { env: environment, encoding: 'utf8', maxBuffer: 2 ** 26 });
  if (done.status !== 0) throw new Error(`${name} ${words[0]}: ${done.stderr}`);
  return done.stdout;
};
const seconds = async (work) => {
  const since = performance.now();
  await work();
  return (performance.now() - since) / 1000;
};
const say = (text) => console.log(`${text}   (load ${loadavg()[0].toFixed(1)})`);

/** A daemon of one servant while `work` runs: its time, and the servant's peak memory and most descriptors. */
async function withDaemon(work) {
  const daemon = spawn(program('vintakd/vintakd'), ['--servers', '1'], { env: environment, stdio: 'ignore' });
  while (spawnSync(program('tools/vintak/vintak'), ['ping'], { env: environment }).status !== 0) await new Promise((resolve) => setTimeout(resolve, 50));
  const servant = readFileSync(`/proc/${daemon.pid}/task/${daemon.pid}/children`, 'utf8').trim().split(' ')[0];
  let descriptors = 0;
  const watch = setInterval(() => (descriptors = Math.max(descriptors, readdirSync(`/proc/${servant}/fd`).length)), 20);
  const time = await seconds(work);
  clearInterval(watch);
  const peak = Number(/VmHWM:\s+(\d+)/.exec(readFileSync(`/proc/${servant}/status`, 'utf8'))[1]);
  const ended = once(daemon, 'exit');
  daemon.kill('SIGTERM');
  await ended;
  return { time, peak, descriptors };
}

async function conversions() {
  run('tools/phantom/vintak-phantom', at('long.dcm'), '--frames', String(frames), '--size', '512');
  run('tools/phantom/vintak-phantom', at('short.dcm'), '--frames', '10', '--size', '512');
  for (const kind of ['separate', 'packed']) {
    mkdirSync(at(kind));
    const convert = (name) => async () => {
      const child = spawn(program('tools/vintak/vintak'), ['convert', at(name), '-o', at(kind, '/'), ...(kind === 'packed' ? ['--packed'] : [])], { env: environment, stdio: 'ignore' });
      await once(child, 'exit');
    };
    const short = await withDaemon(convert('short.dcm'));
    const long = await withDaemon(convert('long.dcm'));
    const files = readdirSync(at(kind)).filter((name) => name.startsWith('long')).length;
    say(`${kind}: ${frames} frames of 512 x 512 in ${long.time.toFixed(2)} s, ${files} files, servant's peak ${long.peak} kB (10 frames: ${short.peak} kB), ${long.descriptors} descriptors`);
  }
}

/** A server of files with a latency before each answer, ranges included. */
async function slowServer(latency) {
  const server = createServer((request, response) => {
    setTimeout(() => {
      const path = at(decodeURIComponent(new URL(request.url, 'http://x').pathname));
      if (!existsSync(path)) return response.writeHead(404).end();
      const { size } = statSync(path);
      const [first, last] = (/bytes=(\d+)-(\d+)/.exec(request.headers.range ?? '') ?? [0, 0, size - 1]).slice(1).map(Number);
      const bytes = Buffer.alloc(last - first + 1);
      const file = openSync(path, 'r');
      readSync(file, bytes, 0, bytes.length, first);
      closeSync(file);
      const ranged = request.headers.range !== undefined;
      response.writeHead(ranged ? 206 : 200, { 'Access-Control-Allow-Origin': '*', ...(ranged && { 'Content-Range': `bytes ${first}-${last}/${size}` }) }).end(bytes);
      return undefined;
    }, latency);
  }).listen(0, '127.0.0.1');
  await once(server, 'listening');
  return { url: `http://127.0.0.1:${server.address().port}/`, close: () => (server.closeAllConnections(), server.close()) };
}

async function heads() {
  const { Pack } = await importSource(join(root, 'web/decoder/src/pack.ts'));
  const server = await slowServer(50);
  const first = Math.max(0, (frames >> 1) - 100);
  const places = Array.from({ length: Math.min(200, frames) }, (_, i) => first + i);
  const oneByOne = await seconds(async () => {
    let next = 0;
    await Promise.all(Array.from({ length: 6 }, async () => {
      while (next < places.length) await (await fetch(`${server.url}separate/long_${places[next++] + 1}.t.qi4`)).arrayBuffer();
    }));
  });
  const opened = await Pack.open(`${server.url}packed/long.index`);
  const packed = await seconds(async () => {
    await opened.elements(await Promise.all(places.map((place) => opened.frame(place))), 'head');
  });
  say(`${places.length} heads with 50 ms of latency: one by one over 6 connections ${oneByOne.toFixed(2)} s, packed ${packed.toFixed(2)} s`);
  server.close();
}

/** Many small frames: written as files, packed, and one of them found in the browser. */
async function series() {
  const objects = Math.ceil(many / 1000);
  const bytes = Buffer.alloc(1024, 'vintak');
  mkdirSync(at('many'));
  const plain = await seconds(() => {
    for (let object = 0; object < objects; ++object)
      for (let frame = 1; frame <= 1000; ++frame) writeFileSync(at('many', `o${object}_${frame}.p.qi4`), bytes);
  });
  for (let object = 0; object < objects; ++object)
    writeFileSync(at('many', `o${object}.desc`), Array.from({ length: 1000 }, (_, i) => `${i + 1} 64 64 mono 8 8 0 1 256 128 1 1 1.2.3 0\\0\\${object * 1000 + i} 1\\0\\0\\0\\1\\0 L\\P\n`).join(''));
  writeFileSync(at('list'), Array.from({ length: objects }, (_, object) => at('many', `o${object}.desc\n`)).join(''));
  const packing = await seconds(() => run('tools/vintak/vintak', 'pack', '-o', at('series'), '--files-from', at('list')));
  const verifying = await seconds(() => run('tools/vintak/vintak', 'verify', at('series.index')));
  say(`${objects * 1000} frames of 1 KiB: written as files ${plain.toFixed(1)} s, packed ${packing.toFixed(1)} s (reading them included), verified ${verifying.toFixed(1)} s; index ${(statSync(at('series.index')).size / 1e6).toFixed(1)} MB`);
  if (noBrowser) return;
  const server = await slowServer(0);
  const browser = await launch();
  const page = await browser.newPage();
  writeFileSync(at('page.html'), '<!doctype html><title>x</title>');
  mkdirSync(at('decoder'));
  for (const name of readdirSync(join(root, 'web/decoder/dist'))) if (name.endsWith('.js')) writeFileSync(at('decoder', name), readFileSync(join(root, 'web/decoder/dist', name)));
  await page.route('**/*.js', (route) => route.fulfill({ contentType: 'text/javascript', body: readFileSync(at('decoder', route.request().url().split('/').pop())) }));
  await page.route('**/page.html', (route) => route.fulfill({ contentType: 'text/html', body: '<!doctype html><title>x</title>' }));
  await page.goto(`${server.url}page.html`);
  const [located, whole] = await page.evaluate(async ([url, count]) => {
    const { Pack, readPackFrames } = await import('./index.js');
    let since = performance.now();
    const pack = await Pack.open(url);
    await pack.frame(count >> 1);
    const first = performance.now() - since;
    since = performance.now();
    const bytes = new Uint8Array(await (await fetch(url)).arrayBuffer());
    readPackFrames(bytes.subarray(128, 128 + 184 * count), 0, pack.head);
    return [first, performance.now() - since];
  }, [`${server.url}series.index`, objects * 1000]);
  say(`in the browser: the middle frame located in ${located.toFixed(0)} ms; all records fetched, checked and read in ${whole.toFixed(0)} ms`);
  await browser.close();
  server.close();
}

try {
  mkdirSync(at('run'));
  await conversions();
  await heads();
  await series();
} finally {
  rmSync(folder, { recursive: true });
}
