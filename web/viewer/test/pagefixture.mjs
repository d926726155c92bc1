// The page in a real browser, on results made of the build's frames: what its tests have in common.
import { dirname, join } from 'node:path';
import { after, afterEach, before, beforeEach } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser, openPage } from '../../testing/browser.mjs';
import { makeFrames, missing as noFrames } from '../../testing/frames.mjs';
import { objectsJson, resultsOf } from '../../testing/results.mjs';
import { serve } from '../../testing/server.mjs';

export const missing = noBrowser || noFrames;

export const dist = join(dirname(fileURLToPath(import.meta.url)), '../dist');

/** A grey frame of zeros: its stream is a header, T = L = 0, one empty chunk record and the end mark. */
export function zeros(width, height) {
  const payload = new Uint8Array(26);
  payload.set([0x4b, 0x54, 0x34, 0x31, 2, 8]);
  new DataView(payload.buffer).setUint16(6, width, true);
  new DataView(payload.buffer).setUint16(8, height, true);
  const end = 16 + 7 + Math.floor(1.5 * width * height).toString(2).length;
  for (const bit of [end, end + 1]) payload[16 + (bit >> 3)] |= 1 << (bit & 7);
  return { width, height, bytesPerPixel: 2, bitsUsed: 8, payload: payload.subarray(0, 16 + Math.ceil((end + 11) / 8)), raw: new Uint8Array(2 * width * height) };
}

/** Slices that their sizes tell apart; every third is the same one with a stream of several files. */
export function stackOf(made, count) {
  const noise = made.find((frame) => frame.name === 'noise');
  return Array.from({ length: count }, (_, i) => (i % 3 === 2 ? noise : zeros(20 + i, 12)));
}

/** A browser for a suite, and for each of its tests a server with results of its own; to be called in the suite. */
export function pageFixture() {
  const fixture = { slow: new Map() };
  const frame = (name) => fixture.made.find((candidate) => candidate.name === name);
  before(async () => {
    fixture.made = makeFrames();
    fixture.browser = await launch();
  });
  after(() => fixture.browser?.close());
  afterEach(() => fixture.server?.close());
  beforeEach(async () => {
    const files = new Map([
      ...resultsOf('r/0/o', [frame('flat'), frame('grey12')], { intercept: -1024, slope: 1, width: 400, center: 40 }),
      ...resultsOf('r/1/o', [frame('rgb')]),
      ...resultsOf('r/2/o', stackOf(fixture.made, 60)),
      ...resultsOf('r/3/o', [frame('grey8')], { intercept: 255, slope: -1, width: -256, center: 128 }),
    ]);
    for (const [prefix, name] of [['r/0/o_2', 'thumb12'], ['r/1/o_1', 'thumbrgb'], ['r/2/o_31', 'thumb8'], ['r/3/o_1', 'thumb8']]) files.set(`${prefix}.128x128t.cw1`, frame(name).payload);
    files.set('r/4/o.pdf', new TextEncoder().encode('%PDF-1.4\n'));
    files.set('objects.json', objectsJson([
      { name: 'ct.dcm', prefix: 'r/0/o', frames: 2 }, { name: 'us.dcm', prefix: 'r/1/o', frames: 1 }, { name: 'stack.dcm', prefix: 'r/2/o', frames: 60 },
      { name: 'mono1.dcm', prefix: 'r/3/o', frames: 1 }, { name: 'report_with_a_name_as_they_come.dcm', prefix: 'r/4/o', frames: 0, document: 'r/4/o.pdf' },
      { name: 'bad.dcm', prefix: 'r/5/o', frames: 0, error: 'it holds neither images nor a document' }]));
    fixture.files = files;
    fixture.slow.clear();
    fixture.server = await serve({ folder: dist, files, intercept: (path, request, response) => fixture.slow.get(path)?.(response) ?? false });
  });

  async function open(options = {}, address = '') {
    const opened = await openPage(fixture.browser, { viewport: { width: 1200, height: 800 }, ...options });
    await opened.page.goto(fixture.server.url + address);
    return { ...opened, state: () => opened.page.evaluate(() => window.vintak.state) };
  }
  // The exact picture may be there before toolbar, list and graphics processor, which wait for an idle moment.
  const when = (page, wanted) => page.waitForFunction((expected) => {
    const state = window.vintak?.state;
    return state && Object.entries(expected).every(([name, value]) => state[name] === value);
  }, wanted.stage === 'exact' ? { ready: true, ...wanted } : wanted);
  const samples = async (page) => new Uint8Array(await page.evaluate(() => Array.from(new Uint8Array(window.vintak.samples.slice().buffer))));

  return Object.assign(fixture, { frame, open, when, samples });
}
