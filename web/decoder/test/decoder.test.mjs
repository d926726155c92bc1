import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import test, { before, describe } from 'node:test';
import { gzipSync } from 'node:zlib';

import { createDecoder, DecodeError, parseDescriptor, readElement, WorkerPool } from '../dist/index.js';
import { bytesOf, makeFrames, missing, randomNumbers } from '../../testing/frames.mjs';

const wasm = readFileSync(new URL('../dist/decoder.wasm', import.meta.url));

test('the module imports nothing and is small', async () => {
  assert.deepEqual(WebAssembly.Module.imports(await WebAssembly.compile(wasm)), []);
  assert.ok(gzipSync(wasm, { level: 9 }).length <= 35_000);
});

describe('decoding', { skip: missing }, () => {
  let decoder, frames;
  before(async () => {
    decoder = await createDecoder();
    frames = makeFrames();
  });
  const streams = () => frames.filter((frame) => frame.coding === 'stream');

  test('gives every frame back, sample for sample', () => {
    for (const frame of frames) {
      const picture = decoder.decode(frame.payload);
      assert.equal(picture.completeness, 'exact', frame.name);
      assert.deepEqual(bytesOf(picture.pixels), frame.raw, frame.name);
      assert.equal(picture.pixels.BYTES_PER_ELEMENT, frame.bytesPerPixel === 2 ? 2 : 1);
      const { width, height, frameWidth, frameHeight, bitsUsed, channels, coding, reduce } = picture;
      assert.deepEqual(
        { width, height, frameWidth, frameHeight, bitsUsed, channels, coding, reduce },
        { width: frame.width, height: frame.height, frameWidth: frame.width, frameHeight: frame.height, bitsUsed: frame.bitsUsed,
          channels: frame.bytesPerPixel === 3 ? 3 : 1, coding: frame.coding, reduce: 0 }, frame.name);
    }
  });

  test('gives the same reduced pictures as the native decoder', () => {
    for (const frame of streams()) {
      const picture = decoder.decode(frame.payload, { reduce: frame.reduce });
      assert.deepEqual([picture.width, picture.height, picture.reduce], [frame.halfWidth, frame.halfHeight, frame.reduce]);
      assert.deepEqual(bytesOf(picture.pixels), frame.half, frame.name);
      assert.equal(decoder.decode(frame.payload, { reduce: 99 }).reduce, picture.levels);
    }
  });

  test('makes a picture of every beginning', () => {
    for (const frame of frames) {
      const header = frame.coding === 'stream' ? 16 : 10;
      for (let size = 0; size < frame.payload.length; size += 1 + (size >> 5)) {
        const part = frame.payload.slice(0, size);
        if (size < header) {
          assert.throws(() => decoder.decode(part), { status: 'not-a-payload' });
          continue;
        }
        const picture = decoder.decode(part);
        assert.equal(picture.pixels.byteLength, frame.raw.length);
        assert.ok(picture.completeness === 'part' || size + 2 >= frame.payload.length, `${frame.name} ${size}`);
      }
    }
  });

  test('a stream gets better with its bytes and exact at the end', () => {
    const frame = streams().find(({ name }) => name === 'grey12');
    const exact = new Uint16Array(frame.raw.slice().buffer);
    const errorOf = ({ pixels }) => pixels.reduce((sum, sample, i) => sum + (sample - exact[i]) ** 2, 0);
    const stream = decoder.stream();
    assert.throws(() => stream.picture(), DecodeError);
    let last = Infinity;
    for (let at = 0; at < frame.payload.length; ) {
      const size = at === 0 ? 4096 : at;
      stream.push(frame.payload.subarray(at, at + size));
      at += size;
      const error = errorOf(stream.picture());
      assert.ok(error < last, `${at} bytes`);
      last = error;
    }
    assert.equal(stream.bytesReceived, frame.payload.length);
    assert.equal(last, 0);
    stream.close();
    assert.equal(stream.bytesReceived, 0);
  });

  test('a thousand damaged payloads end in a picture or a DecodeError, and the next one is right', () => {
    const random = randomNumbers(7);
    let pictures = 0;
    for (let i = 0; i < 1000; ++i) {
      const frame = frames[i % frames.length];
      const payload = frame.payload.slice(0, i % 4 ? undefined : 1 + (random() % frame.payload.length));
      for (let hits = 1 + (random() % 8); hits > 0; --hits) payload[random() % Math.min(payload.length, hits > 4 ? 64 : Infinity)] = random();
      try {
        decoder.decode(payload, { maxSamples: 2 ** 20, reduce: random() % 3 });
        ++pictures;
      } catch (error) {
        assert.ok(error instanceof DecodeError, String(error));
        assert.notEqual(error.status, 'crashed', `payload ${i}`);
      }
    }
    assert.ok(pictures > 300 && pictures < 1000, `${pictures} pictures`);
    for (const frame of frames) assert.deepEqual(bytesOf(decoder.decode(frame.payload).pixels), frame.raw);
  });

  test('refuses what is too large or cannot be held, and goes on', () => {
    const large = Uint8Array.of(0x4b, 0x54, 0x34, 0x31, 2, 16, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0, 15, 8);
    assert.throws(() => decoder.decode(large), { status: 'too-large' });
    assert.throws(() => decoder.decode(large, { maxSamples: 2 ** 32 }), { status: 'no-memory' });
    assert.throws(() => decoder.decode(Uint8Array.of(...large.subarray(0, 4), 9, ...large.subarray(5))), { status: 'unsupported' });
    assert.deepEqual(bytesOf(decoder.decode(frames[0].payload).pixels), frames[0].raw);
  });
});

test('a Worker that the browser refuses fails each payload, and holds none up', async () => {
  const [{ Worker }, empty] = [globalThis, Uint8Array.of(0, 0x61, 0x73, 0x6d, 1, 0, 0, 0)];
  globalThis.Worker = class {
    constructor() {
      throw new Error('SecurityError: another origin');
    }
  };
  try {
    const pool = new WorkerPool({ workerUrl: 'https://elsewhere/worker.js', wasmUrl: empty, size: 1, startAtOnce: false });
    for (let i = 0; i < 3; ++i) await assert.rejects(pool.decode(empty), /another origin/);
  } finally {
    globalThis.Worker = Worker;
  }
});

test('an element is its header and a view of the payload', () => {
  const bytes = new Uint8Array(30);
  bytes.set([0x51, 0x58, 0x49, 0x44, 1, 0, 0x18, 0]);
  new DataView(bytes.buffer).setFloat32(8, -1024, true);
  new DataView(bytes.buffer).setFloat32(12, 2, true);
  new DataView(bytes.buffer).setFloat32(16, -400, true);
  new DataView(bytes.buffer).setFloat32(20, 40, true);
  const { header, payload } = readElement(bytes);
  assert.deepEqual(header, { rescaleIntercept: -1024, rescaleSlope: 2, windowWidth: -400, windowCenter: 40 });
  assert.equal(payload.byteOffset, 24);
  assert.equal(payload.length, 6);
  for (const wrong of [bytes.slice(0, 23), bytes.map((byte, i) => (i === 6 ? 7 : byte)), bytes.map((byte, i) => (i === 0 ? 7 : byte))])
    assert.throws(() => readElement(wrong), RangeError);
});

test('a descriptor is read line by line', () => {
  const [first, second] = parseDescriptor(
    '1 512 256 mono 16 12 -1024 1 400 40 0.5 0.25 1.2.3 -1.5\\2\\3e1 1\\0\\0\\0\\1\\0 L\\P\n2 4 5 bypixel 8 8 0 1 255 128 0 0    \n');
  assert.deepEqual(first, {
    frame: 1, columns: 512, rows: 256, layout: 'mono', bits: 16, bitsUsed: 12, rescaleIntercept: -1024, rescaleSlope: 1, windowWidth: 400,
    windowCenter: 40, spacing: [0.5, 0.25], frameOfReferenceUID: '1.2.3', imagePosition: [-1.5, 2, 30],
    imageOrientation: [1, 0, 0, 0, 1, 0], patientOrientation: ['L', 'P'] });
  assert.deepEqual([second.frameOfReferenceUID, second.imagePosition, second.patientOrientation], ['', [], []]);
  assert.deepEqual(parseDescriptor(''), []);
  assert.throws(() => parseDescriptor('1 512 256 mono\n'), /line 1 of the descriptor is damaged/);
  assert.throws(() => parseDescriptor('1 512 x mono 16 12 -1024 1 400 40 0.5 0.25 1.2.3   \n'), SyntaxError);
});
