// The frames that the build's webframes program makes; null where there is no build.
import { execFileSync } from 'node:child_process';
import { existsSync, mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
const program = join(process.env.VINTAKD_BUILD ?? join(root, 'build/release'), 'tests/webframes/webframes');

export const missing = existsSync(program) ? false : `there is no ${program}`;

/** Makes the frames in a temporary folder and reads them; `words` go to the program. */
export function makeFrames(...words) {
  const folder = mkdtempSync(join(tmpdir(), 'vintak-web-'));
  try {
    execFileSync(program, [folder, ...words]);
    const names = readdirSync(folder).filter((name) => name.endsWith('.json'));
    return names.map((file) => {
      const name = file.slice(0, -5);
      const about = JSON.parse(readFileSync(join(folder, file), 'utf8'));
      const read = (suffix) => new Uint8Array(readFileSync(join(folder, name + suffix)));
      const isStream = about.coding === 'stream';
      return { name, ...about, payload: read(isStream ? '.stream' : '.cw1'), raw: read('.raw'), half: isStream ? read('.half') : undefined };
    });
  } finally {
    rmSync(folder, { recursive: true });
  }
}

export const bytesOf = (pixels) => new Uint8Array(pixels.buffer, pixels.byteOffset, pixels.byteLength);

/** A generator of the same numbers for the same seed, from 0 to 2^32 - 1. */
export function randomNumbers(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return (mixed ^ (mixed >>> 14)) >>> 0;
  };
}
