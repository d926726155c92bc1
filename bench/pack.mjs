// Packs against separate files, in one run: node bench/pack.mjs [FRAMES [MANY [PIECE...]]]; pieces are conversions, spread,
// heads, series, all of them without a name. Needs the release build, the built page, nginx, and 30 GB of disk.
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { closeSync, existsSync, mkdirSync, mkdtempSync, openSync, readdirSync, readFileSync, readSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { connect, createServer as createTcpServer } from 'node:net';
import { loadavg, tmpdir } from 'node:os';
import { dirname, isAbsolute, join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser } from '../web/testing/browser.mjs';
import { startNginx } from '../web/testing/nginx.mjs';
import { importSource } from '../web/testing/source.mjs';

const root = join(dirname(fileURLToPath(import.meta.url)), '..');
const program = (name) => isAbsolute(name) ? name : join(process.env.VINTAKD_BUILD ?? join(root, 'build/release'), name);
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
const rounds = 3;
const median = (times) => times.toSorted((a, b) => a - b)[times.length >> 1];
const say = (text) => console.log(`${text}   (load ${loadavg()[0].toFixed(1)})`);

/** A daemon while `work` runs: its time, and of the first servant the peak memory and most descriptors. */
async function withDaemon(work, servants = 1) {
  const daemon = spawn(program('vintakd/vintakd'), ['--servers', String(servants)], { env: environment, stdio: 'ignore' });
  while (spawnSync(program('tools/vintak/vintak'), ['ping'], { env: environment }).status !== 0) await new Promise((resolve) => setTimeout(resolve, 50));
  const servant = readFileSync(`/proc/${daemon.pid}/task/${daemon.pid}/children`, 'utf8').trim().split(' ')[0];
  let descriptors = 0;
  const watch = setInterval(() => (descriptors = Math.max(descriptors, readdirSync(`/proc/${servant}/fd`).length)), 20);
  const time = await seconds(work);
  clearInterval(watch);
  const status = readFileSync(`/proc/${servant}/status`, 'utf8');
  const kilobytes = (field) => Number(new RegExp(`${field}:\\s+(\\d+)`).exec(status)[1]);
  const [peak, anonymous] = [kilobytes('VmHWM'), kilobytes('RssAnon')];
  const ended = once(daemon, 'exit');
  daemon.kill('SIGTERM');
  await ended;
  return { time, peak, anonymous, descriptors };
}

/** Reads files until the memory is full of them, as that of a machine that has been at work is. One that is not used may have to come from the host
 *  of a virtual machine, page by page, which takes longer than all that is done with it. */
function fillMemory() {
  const free = 1024 * Number(/MemFree:\s+(\d+)/.exec(readFileSync('/proc/meminfo', 'utf8'))[1]);
  if (!existsSync(at('sparse'))) run('/usr/bin/truncate', '-s', String(free), at('sparse'));
  if (free > 2 ** 31) spawnSync('cat', [at('sparse')], { stdio: 'ignore' });
}

/** Converts an object into a folder of that name, and how: the servant's figures, and the tool's peak memory. */
async function convert(object, folder, servants, ...words) {
  mkdirSync(at(folder));
  fillMemory();
  spawnSync('sync'); // or the kernel's threads write out what came before meanwhile, on the servants' processors
  let tool = 0;
  const figures = await withDaemon(async () => {
    const child = spawn(program('tools/vintak/vintak'), ['convert', at(object), '-o', at(folder, '/'), ...words], { env: environment, stdio: 'ignore' });
    const watch = setInterval(() => {
      try {
        tool = Math.max(tool, Number(/VmHWM:\s+(\d+)/.exec(readFileSync(`/proc/${child.pid}/status`, 'utf8'))?.[1] ?? 0));
      } catch {
        // It has ended.
      }
    }, 5);
    const [code] = await once(child, 'exit');
    clearInterval(watch);
    if (code !== 0) throw new Error(`convert ${words.join(' ')} ended with ${code}`);
  }, servants);
  return { ...figures, tool, files: readdirSync(at(folder)).length };
}

function makePhantoms() {
  if (existsSync(at('long.dcm'))) return;
  run('tools/phantom/vintak-phantom', at('long.dcm'), '--frames', String(frames), '--size', '512');
  run('tools/phantom/vintak-phantom', at('short.dcm'), '--frames', '10', '--size', '512');
}

// For minutes ext4 passes over the inodes that were removed, by whomever, one by one before it makes a file: each
// conversion has a folder of its own, and nothing is removed between them.

/** Both ways in turn; then again where the results of before were removed: the medians of the times, and the most of everything else. */
async function conversions() {
  makePhantoms();
  const kinds = { separate: [], packed: ['--packed'] };
  const ratios = {};
  for (const state of ['nothing removed', 'after a removal']) {
    const found = Object.fromEntries(Object.keys(kinds).map((kind) => [kind, { times: [], short: {}, peak: 0, anonymous: 0, descriptors: 0, tool: 0 }]));
    for (let round = 0; round < rounds; ++round)
      for (const [kind, words] of Object.entries(kinds)) {
        found[kind].short = await convert('short.dcm', `short.${kind}.${round}`, 1, ...words);
        const { time, files, ...most } = await convert('long.dcm', `${kind}.${round}`, 1, ...words);
        found[kind].times.push(time);
        found[kind].files = files;
        for (const name of Object.keys(most)) found[kind][name] = Math.max(most[name], found[kind][name]);
      }
    const seconds = (times) => `${median(times).toFixed(2)} s (${times.map((time) => time.toFixed(2)).join(' ')})`;
    for (const [kind, { short, ...long }] of Object.entries(found))
      say(`${state}, ${kind}: ${frames} frames of 512 x 512 in ${seconds(long.times)}, ${long.files} files, servant's peak ${long.peak} kB (10 frames: ${short.peak} kB), of it anonymous in the end ${long.anonymous} (${short.anonymous}), ${long.descriptors} descriptors, tool's peak ${long.tool} kB (${short.tool})`);
    ratios[state] = (median(found.packed.times) / median(found.separate.times)).toFixed(2);
    for (const name of readdirSync(folder)) if (/(separate|packed)\.\d+$/.test(name)) rmSync(at(name), { recursive: true });
  }
  say(`packed in ${JSON.stringify(ratios)} of the time`);
}

/** One object by one servant and by two; the median, and whether it came out the same. */
async function spread() {
  makePhantoms();
  for (const words of [['--packed'], ['--packed', '--mask', '19'], ['--mask', '19'], []]) {
    const times = [[], []];
    const result = (parts, round) => `parts${words.join('')}.${parts}.${round}`;
    for (let round = 0; round < rounds; ++round)
      for (const parts of [1, 2]) times[parts - 1].push((await convert('long.dcm', result(parts, round), 2, '--parts', String(parts), ...words)).time);
    const same = spawnSync('diff', ['-rq', at(result(1, 0)), at(result(2, rounds - 1))]).status === 0;
    const [one, two] = times.map(median);
    say(`${words.join(' ') || 'separate'}: one servant ${one.toFixed(2)} s, two ${two.toFixed(2)} s, ${(two / one).toFixed(2)} of it; ${same ? 'the same bytes' : 'OTHER BYTES'}`);
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

/** nginx on the folder, and before it a line on which whatever is asked arrives `latency` ms later. */
async function distantNginx(latency) {
  const nginx = await startNginx(folder, (port) => `keepalive_requests 100000;\nserver { listen 127.0.0.1:${port}; root ${folder}; }`);
  const line = createTcpServer((client) => {
    const server = connect(new URL(nginx.url).port, '127.0.0.1');
    client.on('data', (bytes) => setTimeout(() => server.write(bytes), latency));
    server.on('data', (bytes) => client.write(bytes));
    for (const [one, other] of [[client, server], [server, client]]) one.on('close', () => other.destroy()).on('error', () => other.destroy());
  }).listen(0, '127.0.0.1');
  await once(line, 'listening');
  const close = async () => {
    line.close();
    await nginx.stop();
  };
  return { url: `http://127.0.0.1:${line.address().port}/`, close };
}

async function heads() {
  makePhantoms();
  for (const [kind, ...words] of [['separate'], ['packed', '--packed']]) await convert('long.dcm', kind, 2, '--mask', '19', ...words);
  const { Pack } = await importSource(join(root, 'web/decoder/src/pack.ts'));
  const server = await distantNginx(50);
  const first = Math.max(0, (frames >> 1) - 100);
  const places = Array.from({ length: Math.min(200, frames) }, (_, i) => first + i);
  const oneByOne = await seconds(async () => {
    let next = 0;
    await Promise.all(Array.from({ length: 6 }, async () => {
      while (next < places.length) await (await fetch(`${server.url}separate/long_${places[next++] + 1}.t.qi4`)).arrayBuffer();
    }));
  });
  const packed = await seconds(async () => {
    const opened = await Pack.open(`${server.url}packed/long.index`);
    await opened.elements(await Promise.all(places.map((place) => opened.frame(place))), 'head');
  });
  say(`${places.length} heads from nginx with 50 ms of latency: one by one over 6 connections ${oneByOne.toFixed(2)} s, packed ${packed.toFixed(2)} s, index and all; ${(oneByOne / packed).toFixed(1)} times as fast`);
  const { fetch: plain } = globalThis;
  let requests = 0, bytes = 0;
  globalThis.fetch = async (...words) => {
    const response = await plain(...words);
    ++requests;
    bytes += Number(response.headers.get('content-length'));
    return response;
  };
  const opened = await Pack.open(`${server.url}packed/long.index`);
  const picture = await opened.element(await opened.frame(Math.floor(frames * 0.95) - 1), 'head', false);
  globalThis.fetch = plain;
  say(`first picture of frame ${Math.floor(frames * 0.95)}: ${requests} requests, ${bytes - picture.length} bytes beside the ${picture.length} of the picture`);
  await server.close();
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

const pieces = { conversions, spread, heads, series };
const wanted = process.argv.length > 4 ? process.argv.slice(4) : Object.keys(pieces);
try {
  mkdirSync(at('run'));
  for (const piece of wanted) await pieces[piece]();
} finally {
  rmSync(folder, { recursive: true });
}
