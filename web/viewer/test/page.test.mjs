// What a user does with the page, and sees.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import test, { describe } from 'node:test';

import { makeFrames } from '../../testing/frames.mjs';
import { objectsJson, resultsOf } from '../../testing/results.mjs';
import { missing, pageFixture, stackOf } from './pagefixture.mjs';

describe('the page', { skip: missing }, () => {
  const fixture = pageFixture();
  const { frame, open, when, samples } = fixture;

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
    const order = fixture.server.requests.filter((path) => /o_2\.[ptf]\.qi4|cw1/.test(path));
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
    const locked = (key) => page.evaluate((value) => document.dispatchEvent(new KeyboardEvent('keydown', { key: value, modifierCapsLock: true })), key);
    await locked('V');
    assert.equal(await probed(), '');
    await locked('Home');
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
    for (let i = 1; i <= 60; ++i) fixture.slow.set(`r/2/o_${i}.f.qi4`, (response) => {
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
    }, stackOf(fixture.made, 60).map(({ width, height }) => [width, height]));
    assert.deepEqual(wrong, []);
    await when(page, { frame: 57 });
    fixture.slow.clear();
    for (const { response, path, aborted } of held) if (!aborted) response.end(fixture.files.get(path));
    await when(page, { frame: 57, stage: 'exact' });
    assert.deepEqual(await samples(page), frame('noise').raw);
    assert.ok(held.some(({ aborted }) => aborted), 'requests were aborted');
    assert.equal((await state()).problem, null);
    await page.close();
  });

  test('a large frame is shown reduced, in its place, and never taken for the frame', async () => {
    const [large] = makeFrames('mammogram');
    const results = resultsOf('large/o', [large]);
    for (const [path, bytes] of results) fixture.files.set(path, bytes);
    fixture.files.set('large.json', objectsJson([{ name: 'large.dcm', prefix: 'large/o', frames: 1 }]));
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
      fixture.slow.set('large/o_1.t.qi4', (response) => held.push(response));
      const { page, complaints, state } = await open({}, address);
      await when(page, { stage: 'preview', reduce: 3 });
      assert.match(await page.textContent('#sign'), /^preview · reduced 1\/8 · 4\.1 kB$/);
      const before = await edge(page);
      // The line stands still at some place: what came is shown, and said.
      const rest = fixture.files.get('large/o_1.f.qi4');
      const some = Math.floor(0.4 * rest.length);
      let goOn;
      fixture.slow.set('large/o_1.f.qi4', (response) => {
        response.writeHead(200, { 'Content-Length': rest.length });
        response.write(rest.subarray(0, some));
        goOn = () => response.end(rest.subarray(some));
        return true;
      });
      for (const response of held) response.end(fixture.files.get('large/o_1.t.qi4'));
      await page.waitForFunction(() => /^part · reduced 1\/2 · 40 % of 12\.9 MB$/.test(document.querySelector('#sign').textContent));
      await page.waitForFunction((bytes) => window.vintak.state.bytes > bytes / 2, some);
      assert.match(await page.textContent('#sign'), /^part · reduced 1\/2 · 40 % of/);
      fixture.slow.clear();
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
      assert.equal(await link.getAttribute('href'), `${fixture.server.url}r/4/o.pdf`);
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
