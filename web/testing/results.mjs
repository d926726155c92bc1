// The viewer's files of an object, made of frames (testing/frames.mjs) as the daemon would write them, in memory.
import { execFileSync } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const vintak = join(process.env.VINTAKD_BUILD ?? join(dirname(fileURLToPath(import.meta.url)), '../../build/release'), 'tools/vintak/vintak');

export const noPacks = existsSync(vintak) ? false : `there is no ${vintak}`;

/** The files of a pack PREFIX of objects (maps of resultsOf by their prefix), as `vintak pack` makes it. */
export function packOf(prefix, objects) {
  const folder = mkdtempSync(join(tmpdir(), 'vintak-pack-'));
  try {
    const descriptors = [...objects].map(([object, files]) => {
      for (const [path, bytes] of files) {
        mkdirSync(dirname(join(folder, path)), { recursive: true });
        writeFileSync(join(folder, path), bytes);
      }
      return join(folder, `${object}.desc`);
    });
    mkdirSync(join(folder, 'packed'));
    execFileSync(vintak, ['pack', '-o', join(folder, 'packed/s'), '--as-given', ...descriptors]);
    return new Map(readdirSync(join(folder, 'packed')).map((name) => [`${prefix}${name.slice(1)}`, new Uint8Array(readFileSync(join(folder, 'packed', name)))]));
  } finally {
    rmSync(folder, { recursive: true });
  }
}

const headSize = 8192;

function element(payload, { intercept = 0, slope = 1, width, center }) {
  const bytes = new Uint8Array(24 + payload.length);
  bytes.set([0x51, 0x58, 0x49, 0x44, 1, 0, 0x18, 0]);
  const view = new DataView(bytes.buffer);
  [intercept, slope, width, center].forEach((value, i) => view.setFloat32(8 + 4 * i, value, true));
  bytes.set(payload, 24);
  return bytes;
}

function descriptorLine(frame, number, { intercept = 0, slope = 1, width, center, spacing = [0.5, 0.25] }) {
  const layout = frame.bytesPerPixel === 3 ? 'bypixel' : 'mono';
  const bits = frame.bytesPerPixel === 2 ? 16 : 8;
  return `${number} ${frame.width} ${frame.height} ${layout} ${bits} ${frame.bitsUsed} ${intercept} ${slope} ${width} ${center} ` +
    `${spacing[0]} ${spacing[1]} 1.2.3 0\\0\\${number} 1\\0\\0\\0\\1\\0 L\\P\n`;
}

/**
 * A map from path to bytes: "PREFIX.desc", "PREFIX_1.p.qi4" ... of an object with these frames. `meaning` gives rescale
 * and window of all of them, where the default is the whole range.
 */
export function resultsOf(prefix, frames, meaning = {}) {
  const files = new Map();
  let descriptor = '';
  frames.forEach((frame, index) => {
    const number = index + 1;
    const range = 2 ** frame.bitsUsed;
    const meant = { width: range, center: range / 2, ...meaning };
    descriptor += descriptorLine(frame, number, meant);
    const stem = `${prefix}_${number}`;
    files.set(`${stem}.p.qi4`, element(frame.payload.subarray(0, 4096), meant));
    files.set(`${stem}.t.qi4`, element(frame.payload.subarray(0, headSize), meant));
    files.set(`${stem}.f.qi4`, frame.payload.subarray(headSize));
    files.set(`${stem}.raw`, frame.raw);
  });
  files.set(`${prefix}.desc`, new TextEncoder().encode(descriptor));
  return files;
}

/** The list of objects that the page and the example read: [{ name, prefix, frames, ... }]. */
export function objectsJson(objects) {
  const listed = objects.map((object, id) => ({
    id, error: null, document: null, descriptor: object.frames > 0 ? `${object.prefix}.desc` : null, ...object,
  }));
  return new TextEncoder().encode(JSON.stringify({ version: 1, objects: listed }));
}
