// The page in a real browser, on results made of the build's frames.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { readFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import test, { after, afterEach, before, beforeEach, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser, openPage } from '../../testing/browser.mjs';
import { bytesOf, makeFrames, missing as noFrames } from '../../testing/frames.mjs';
import { objectsJson, resultsOf } from '../../testing/results.mjs';
import { serve } from '../../testing/server.mjs';

const dist = join(dirname(fileURLToPath(import.meta.url)), '../dist');

/** A grey frame of zeros: its stream is a header, T = L = 0, one empty chunk record and the end mark. */
function zeros(width, height) {
  const payload = new Uint8Array(26);
  payload.set([0x4b, 0x54, 0x34, 0x31, 2, 8]);
  new DataView(payload.buffer).setUint16(6, width, true);
  new DataView(payload.buffer).setUint16(8, height, true);
  const end = 16 + 7 + Math.floor(1.5 * width * height).toString(2).length;
  for (const bit of [end, end + 1]) payload[16 + (bit >> 3)] |= 1 << (bit & 7);
  return { width, height, bytesPerPixel: 2, bitsUsed: 8, payload: payload.subarray(0, 16 + Math.ceil((end + 11) / 8)), raw: new Uint8Array(2 * width * height) };
}

/** Slices that their sizes tell apart; every third is the same one with a stream of several files. */
function stackOf(made, count) {
  const noise = made.find((frame) => frame.name === 'noise');
  return Array.from({ length: count }, (_, i) => (i % 3 === 2 ? noise : zeros(20 + i, 12)));
}

describe('the page', { skip: noBrowser || noFrames }, () => {
  let browser, made, server, files, slow;
  const frame = (name) => made.find((candidate) => candidate.name === name);
  before(async () => {
    made = makeFrames();
    browser = await launch();
  });
  after(() => browser?.close());
  afterEach(() => server?.close());
  beforeEach(async () => {
    files = new Map([
      ...resultsOf('r/0/o', [frame('flat'), frame('grey12')], { intercept: -1024, slope: 1, width: 400, center: 40 }),
      ...resultsOf('r/1/o', [frame('rgb')]),
      ...resultsOf('r/2/o', stackOf(made, 60)),
      ...resultsOf('r/3/o', [frame('grey8')], { intercept: 255, slope: -1, width: -256, center: 128 }),
    ]);
    for (const [prefix, name] of [['r/0/o_2', 'thumb12'], ['r/1/o_1', 'thumbrgb'], ['r/2/o_31', 'thumb8'], ['r/3/o_1', 'thumb8']]) files.set(`${prefix}.128x128t.cw1`, frame(name).payload);
    files.set('r/4/o.pdf', new TextEncoder().encode('%PDF-1.4\n'));
    files.set('objects.json', objectsJson([
      { name: 'ct.dcm', prefix: 'r/0/o', frames: 2 }, { name: 'us.dcm', prefix: 'r/1/o', frames: 1 }, { name: 'stack.dcm', prefix: 'r/2/o', frames: 60 },
      { name: 'mono1.dcm', prefix: 'r/3/o', frames: 1 }, { name: 'report_with_a_name_as_they_come.dcm', prefix: 'r/4/o', frames: 0, document: 'r/4/o.pdf' },
      { name: 'bad.dcm', prefix: 'r/5/o', frames: 0, error: 'it holds neither images nor a document' }]));
    slow = new Map();
    server = await serve({ folder: dist, files, intercept: (path, request, response) => slow.get(path)?.(response) ?? false });
  });

  async function open(options = {}, address = '') {
    const opened = await openPage(browser, { viewport: { width: 1200, height: 800 }, ...options });
    await opened.page.goto(server.url + address);
    return { ...opened, state: () => opened.page.evaluate(() => window.vintak.state) };
  }
  const when = (page, wanted) => page.waitForFunction((expected) => {
    const state = window.vintak?.state;
    return state && Object.entries(expected).every(([name, value]) => state[name] === value);
  }, wanted);
  const samples = async (page) => new Uint8Array(await page.evaluate(() => Array.from(new Uint8Array(window.vintak.samples.slice().buffer))));

  test('shows the first object, exact in the end, and says what is on the screen', async () => {
    const { page, complaints, state } = await open();
    await when(page, { stage: 'exact', frame: 2 });
    assert.deepEqual(await samples(page), frame('grey12').raw);
    assert.match(await page.textContent('#sign'), /^exact · \d/);
    assert.match(await page.textContent('#title'), /ct\.dcm\s+frame 2 of 2, 257 × 256/);
    assert.deepEqual((await state()).window, { center: 40, width: 400 });
    assert.equal((await state()).renderer, 'webgl');
    assert.equal(await page.locator('#scalebar').textContent(), '2 cm');
    await page.waitForFunction(() => document.querySelectorAll('#objects canvas[width="128"], #objects canvas[width="100"]').length === 4);
    const order = server.requests.filter((path) => /o_2\.[ptf]\.qi4|cw1/.test(path));
    assert.match(order[0], /r\/0\/o_2\.p\.qi4/, 'the thumbnails come after the picture');
    assert.deepEqual(order.filter((path) => path.startsWith('r/0/o_2.')).map((path) => path.slice(8)), ['p.qi4', 't.qi4', 'f.qi4', '128x128t.cw1']);
    assert.deepEqual(complaints, []);
    await page.close();
  });

  test('the shader and the canvas give the same light, and the probe the value', async () => {
    const lights = [];
    for (const address of ['', '?renderer=canvas']) {
      const { page, complaints, state } = await open({}, address);
      await when(page, { stage: 'exact' });
      assert.equal((await state()).renderer, address ? 'canvas' : 'webgl');
      await page.keyboard.press('1');
      await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))));
      lights.push(await page.evaluate(() => {
        const canvas = document.querySelector('#viewport canvas');
        const copy = document.createElement('canvas');
        [copy.width, copy.height] = [64, 64];
        const context = copy.getContext('2d');
        context.drawImage(canvas, Math.floor(canvas.width / 2) - 32, Math.floor(canvas.height / 2) - 32, 64, 64, 0, 0, 64, 64);
        return Array.from(context.getImageData(0, 0, 64, 64).data);
      }));
      const box = await page.locator('#viewport').boundingBox();
      await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
      const [, x, y, value] = /^(\d+), (\d+): (-?\d+)$/.exec(await page.textContent('#probe'));
      const exact = new Uint16Array(frame('grey12').raw.slice().buffer);
      assert.equal(Number(value), exact[Number(y) * 257 + Number(x)] - 1024);
      assert.deepEqual(complaints, []);
      await page.close();
    }
    const difference = lights[0].map((light, i) => Math.abs(light - lights[1][i])).reduce((a, b) => a + b) / lights[0].length;
    assert.ok(difference < 12, `mean difference ${difference}`);
    assert.ok(Math.max(...lights[0]) > 100);
  });

  test('a preset, a drag, an inversion and a reset change the window', async () => {
    const { page, state } = await open();
    await when(page, { stage: 'exact' });
    await page.selectOption('[aria-label="Window preset"]', 'Lung');
    assert.deepEqual((await state()).window, { center: -600, width: 1500 });
    const box = await page.locator('#viewport').boundingBox();
    await page.mouse.move(box.x + 300, box.y + 300);
    await page.mouse.down();
    await page.mouse.move(box.x + 400, box.y + 350, { steps: 3 });
    await page.mouse.up();
    assert.deepEqual((await state()).window, { center: -400, width: 1900 });
    await page.keyboard.press('i');
    assert.equal((await state()).invert, true);
    await page.keyboard.press('r');
    assert.deepEqual([(await state()).window, (await state()).invert], [{ center: 40, width: 400 }, false]);
    await page.close();
  });

  test('everything can be done by keyboard, and every control has a name', async () => {
    const { page, state } = await open();
    await when(page, { stage: 'exact' });
    await page.keyboard.press('ArrowUp');
    await when(page, { frame: 1, stage: 'exact' });
    assert.deepEqual(await samples(page), frame('flat').raw);
    await page.keyboard.press('.');
    await when(page, { object: 'us.dcm', stage: 'exact' });
    assert.deepEqual(await samples(page), frame('rgb').raw);
    await page.keyboard.press('.');
    await when(page, { object: 'stack.dcm', frame: 31, stage: 'exact' });
    for (const [key, at] of [['Home', 1], ['PageDown', 11], ['End', 60], ['PageUp', 50], ['ArrowRight', 51]]) {
      await page.keyboard.press(key);
      await when(page, { frame: at });
    }
    await page.keyboard.press(' ');
    await when(page, { playing: true });
    await when(page, { frame: 60 });
    await page.keyboard.press(' ');
    assert.equal((await state()).playing, false);
    await page.keyboard.press('.');
    await when(page, { object: 'mono1.dcm', stage: 'exact' });
    const [center, width] = await page.evaluate(() => [window.vintak.state.window.center, window.vintak.state.window.width]);
    for (const key of ['Shift+ArrowRight', 'Shift+ArrowDown']) await page.keyboard.press(key);
    assert.deepEqual((await state()).window, { center: center + 4, width: width + 4 });
    const probed = () => page.$eval('#probe', ({ textContent }) => textContent);
    await page.keyboard.press('v');
    const [x, y] = (await probed()).match(/\d+/g).map(Number);
    await page.keyboard.press('Shift+ArrowLeft');
    assert.equal(await probed(), `${x - 1}, ${y}: ${255 - frame('grey8').raw[y * frame('grey8').width + x - 1]}`);
    await page.keyboard.press('v');
    assert.equal(await probed(), '');
    await page.reload();
    await when(page, { stage: 'exact' });
    await page.keyboard.press('Tab');
    assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Skip to the image');
    await page.keyboard.press('Enter');
    await page.waitForFunction(() => document.activeElement.id === 'viewport');
    await page.waitForFunction(() => document.querySelector('#announcer').textContent === 'ct.dcm, frame 2 of 2: exact');
    const unnamed = await page.evaluate(() => [...document.querySelectorAll('button, select, input, a')]
      .filter((control) => !(control.getAttribute('aria-label') ?? control.closest('label')?.textContent ?? control.textContent).trim()).length);
    assert.equal(unnamed, 0);
    await page.close();
  });

  test('fast scrolling never shows another slice, aborts what is left behind and ends at the right one', async () => {
    const { page, state } = await open();
    await when(page, { stage: 'exact' });
    const held = [];
    for (let i = 1; i <= 60; ++i) slow.set(`r/2/o_${i}.f.qi4`, (response) => {
      const request = { response, path: `r/2/o_${i}.f.qi4`, aborted: false };
      response.on('close', () => (request.aborted = !response.writableEnded));
      held.push(request);
      return true;
    });
    await page.locator('#objects button').nth(2).click();
    await when(page, { object: 'stack.dcm', frame: 31 });
    const wrong = await page.evaluate(async (sizes) => {
      const seen = [];
      const look = () => {
        const { frame, pictureFrameSize } = window.vintak.state;
        if (pictureFrameSize && String(pictureFrameSize) !== String(sizes[frame - 1])) seen.push([frame, pictureFrameSize]);
      };
      for (let i = 0; i < 26; ++i) {
        document.dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowDown' }));
        look();
        for (let wait = 0; wait < 2; ++wait) {
          await new Promise((resolve) => requestAnimationFrame(resolve));
          look();
        }
      }
      return seen;
    }, stackOf(made, 60).map(({ width, height }) => [width, height]));
    assert.deepEqual(wrong, []);
    await when(page, { frame: 57 });
    slow.clear();
    for (const { response, path, aborted } of held) if (!aborted) response.end(files.get(path));
    await when(page, { frame: 57, stage: 'exact' });
    assert.deepEqual(await samples(page), frame('noise').raw);
    assert.ok(held.some(({ aborted }) => aborted), 'requests were aborted');
    assert.equal((await state()).problem, null);
    await page.close();
  });

  test('a missing file, a damaged stream and a lost server are told where they are, and the rest works', async () => {
    files.delete('r/0/o_2.f.qi4');
    const damaged = files.get('r/1/o_1.t.qi4').slice();
    damaged.fill(0x55, 600, 900);
    files.set('r/1/o_1.t.qi4', damaged);
    const { page, state } = await open();
    await page.waitForFunction(() => window.vintak.state.problem);
    assert.equal((await state()).problem, 'o_2.f.qi4 is missing');
    assert.notEqual((await state()).stage, 'exact');
    files.set('r/0/o_2.f.qi4', frame('grey12').payload.subarray(8192));
    await page.getByRole('button', { name: 'Try again' }).click();
    await when(page, { stage: 'exact', problem: null });

    await page.keyboard.press('.');
    await when(page, { object: 'us.dcm', stage: 'damaged', problem: 'the stream of frame 1 is damaged: the picture is not complete' });
    assert.match(await page.textContent('#sign'), /DAMAGED/);
    await page.locator('#objects button', { hasText: 'bad.dcm' }).click();
    await when(page, { object: 'bad.dcm', problem: 'it holds neither images nor a document' });

    await server.close();
    await page.locator('#objects button', { hasText: 'mono1.dcm' }).click();
    await page.waitForFunction(() => /connection was lost/.test(window.vintak.state.problem ?? ''));
    await page.locator('#objects button', { hasText: 'ct.dcm' }).click();
    await page.close();
  });

  test('a decoder that cannot be had is told, not asked for without end, and tried again', async () => {
    for (const part of ['assets/worker.js', 'assets/decoder.wasm']) {
      slow.set(part, (response) => response.writeHead(404).end());
      const { page, complaints } = await open();
      await page.waitForFunction(() => window.vintak.state.problem);
      await page.waitForFunction(() => document.querySelectorAll('#objects canvas.missing').length === 4);
      const asked = server.requests.filter((path) => path === part).length;
      assert.ok(asked < 30, `${part} was asked for ${asked} times`);
      slow.delete(part);
      await page.getByRole('button', { name: 'Try again' }).click();
      await when(page, { stage: 'exact', problem: null });
      await page.waitForFunction(() => document.querySelectorAll('#objects canvas.missing').length === 0);
      assert.deepEqual(complaints, []);
      await page.close();
      server.requests.length = 0;
    }
  });

  test('a thousand damaged streams leave the Worker alive', async () => {
    files.set('assets/decoder.js', readFileSync(join(dist, '../../decoder/dist/index.js')));
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
    const rest = files.get('r/0/o_2.f.qi4');
    let release;
    slow.set('r/0/o_2.f.qi4', (response) => {
      response.writeHead(200, { 'Content-Length': rest.length });
      response.write(rest.subarray(0, rest.length >> 1));
      release = () => response.end(rest.subarray(rest.length >> 1));
      return true;
    });
    for (const suffix of ['.p.qi4', '.t.qi4', '.f.qi4']) files.delete(`r/3/o_1${suffix}`);
    const { page, state } = await open();
    const share = Math.floor((100 * (8192 + (rest.length >> 1))) / (8192 + rest.length));
    await page.waitForFunction((text) => document.querySelector('#sign').textContent.includes(text), ` · ${share} % of 67 kB`);
    assert.notEqual((await state()).stage, 'exact');
    assert.deepEqual(server.requests.filter((path) => /_1\.[tf]\.qi4/.test(path)), []);
    release();
    await when(page, { stage: 'exact' });

    // An object that has nothing to show, opened first.
    files.set('first.json', objectsJson([{ name: 'mono1.dcm', prefix: 'r/3/o', frames: 1 }, { name: 'us.dcm', prefix: 'r/1/o', frames: 1 }]));
    await page.goto(`${server.url}?list=first.json`);
    await when(page, { problem: 'o_1.t.qi4 is missing' });
    await page.waitForSelector('#objects canvas[width="100"]');
    assert.match(await page.textContent('#objects li:first-child'), /mono1\.dcm\s*o_1\.t\.qi4 is missing/);
    assert.equal(await page.locator('#objects li.failed').count(), 1);
    await page.close();
  });

  test('a large frame is shown reduced, in its place, and never taken for the frame', async () => {
    const [large] = makeFrames('mammogram');
    const results = resultsOf('large/o', [large]);
    for (const [path, bytes] of results) files.set(path, bytes);
    files.set('large.json', objectsJson([{ name: 'large.dcm', prefix: 'large/o', frames: 1 }]));
    // Where an edge lies in rows of the screen, in its pixels.
    const edge = (page) => page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve)))).then(() => page.evaluate(() => {
      const canvas = document.querySelector('#viewport canvas');
      const copy = Object.assign(document.createElement('canvas'), { width: canvas.width, height: canvas.height });
      const context = copy.getContext('2d');
      context.drawImage(canvas, 0, 0);
      const places = [];
      for (let y = canvas.height >> 1; y < (canvas.height >> 1) + 100; ++y) {
        const row = context.getImageData(canvas.width >> 1, y, 250, 1).data.filter((_, i) => i % 4 === 0);
        const jumps = Array.from(row, (_, i) => (row[i + 4] ?? 0) - (row[i - 4] ?? Infinity));
        const at = jumps.indexOf(Math.max(...jumps));
        const middle = (row[at - 10] + row[at + 10]) / 2;
        const after = Array.from(row.keys()).find((i) => i > at - 8 && row[i] > middle);
        places.push(after - (row[after] - middle) / (row[after] - row[after - 1]));
      }
      return places;
    }));
    for (const address of ['?list=large.json', '?list=large.json&renderer=canvas']) {
      const held = [];
      slow.set('large/o_1.t.qi4', (response) => held.push(response));
      const { page, complaints, state } = await open({}, address);
      await when(page, { stage: 'preview', reduce: 3 });
      assert.match(await page.textContent('#sign'), /^preview · reduced 1\/8 · 4\.1 kB$/);
      const before = await edge(page);
      // The line stands still at some place: what came is shown, and said.
      const rest = files.get('large/o_1.f.qi4');
      const some = Math.floor(0.4 * rest.length);
      let goOn;
      slow.set('large/o_1.f.qi4', (response) => {
        response.writeHead(200, { 'Content-Length': rest.length });
        response.write(rest.subarray(0, some));
        goOn = () => response.end(rest.subarray(some));
        return true;
      });
      for (const response of held) response.end(files.get('large/o_1.t.qi4'));
      await page.waitForFunction(() => /^part · reduced 1\/2 · 40 % of 12\.9 MB$/.test(document.querySelector('#sign').textContent));
      await page.waitForFunction((bytes) => window.vintak.state.bytes > bytes / 2, some);
      assert.match(await page.textContent('#sign'), /^part · reduced 1\/2 · 40 % of/);
      slow.clear();
      goOn();
      await when(page, { stage: 'exact', reduce: 0 });
      const moved = (await edge(page)).map((place, i) => place - before[i]).sort((a, b) => a - b)[50];
      assert.ok(Math.abs(moved) < 0.2, `the picture moved by ${moved} pixels of the screen`);
      const hash = await page.evaluate(async () => Array.from(new Uint8Array(await crypto.subtle.digest('SHA-256', window.vintak.samples.slice()))));
      assert.deepEqual(Buffer.from(hash), createHash('sha256').update(large.raw).digest());
      assert.equal((await state()).problem, null);
      assert.deepEqual(complaints, []);
      await page.close();
    }
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

  test('documents open in a tab of their own, and the page fits every screen', async () => {
    for (const [width, height] of [[360, 740], [1366, 768], [3840, 2160]]) {
      const { page, complaints } = await open({ viewport: { width, height } });
      await when(page, { stage: 'exact' });
      const [inner, content, viewport] = await page.evaluate(() => [innerWidth, document.documentElement.scrollWidth, document.querySelector('#viewport').getBoundingClientRect().height]);
      assert.ok(content <= inner, `${width}: ${content} wide`);
      const outside = await page.evaluate(() => [...document.querySelectorAll('#objects li > *')].filter((entry) => [...entry.querySelectorAll('.name, small')]
        .some((words) => words.getBoundingClientRect().right > entry.getBoundingClientRect().right)).length);
      assert.equal(outside, 0, `${width}: entries that write over their neighbours`);
      assert.ok(viewport > height / 2, `${width}: the picture has ${viewport} of ${height} pixels`);
      const link = page.getByRole('link', { name: /report_with/ });
      assert.equal(await link.getAttribute('href'), `${server.url}r/4/o.pdf`);
      assert.equal(await link.getAttribute('target'), '_blank');
      assert.deepEqual(complaints, []);
      await page.close();
    }
  });

  test('two fingers magnify, one swipes through the frames', async () => {
    const { page, state } = await open({ viewport: { width: 390, height: 800 }, hasTouch: true, isMobile: true });
    await when(page, { stage: 'exact' });
    assert.equal((await state()).tool, 'scroll');
    const box = await page.locator('#viewport').boundingBox();
    const [x, y] = [box.x + box.width / 2, box.y + box.height / 2];
    const client = await page.context().newCDPSession(page);
    const touch = (type, ...points) => client.send('Input.dispatchTouchEvent', { type, touchPoints: points.map(([px, py], id) => ({ x: px, y: py, id })) });
    await touch('touchStart', [x, y]);
    await touch('touchMove', [x, y - 40]);
    await touch('touchEnd');
    await when(page, { frame: 1 });
    const before = await page.textContent('#scalebar span');
    await touch('touchStart', [x - 20, y], [x + 20, y]);
    await touch('touchMove', [x - 100, y], [x + 100, y]);
    await touch('touchEnd');
    await page.waitForFunction((old) => document.querySelector('#scalebar span').textContent !== old, before);
    assert.equal((await state()).frame, 1);
    await page.close();
  });
});
