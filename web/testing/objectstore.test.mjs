// A pack in an object store: put there by rclone as docs/web.md says, read by ranges as a page would. s3rver stands for the store.
import assert from 'node:assert/strict';
import { execFile, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import test, { after, before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { makeFrames, missing as noFrames } from './frames.mjs';
import { noPacks, packOf, resultsOf } from './results.mjs';
import { importSource } from './source.mjs';

const here = dirname(fileURLToPath(import.meta.url));
const noRclone = spawnSync('rclone', ['version']).error ? 'there is no rclone' : false;
const noStore = await import('s3rver').then(() => false, () => 'there is no s3rver');

describe('a pack in an object store', { skip: noFrames || noPacks || noRclone || noStore }, () => {
  let folder, store, base, pack;
  before(async () => {
    folder = mkdtempSync(join(tmpdir(), 'vintak-store-'));
    const { default: S3rver } = await import('s3rver');
    store = new S3rver({ address: '127.0.0.1', port: 0, silent: true, directory: join(folder, 'store'), allowMismatchedSignatures: true, configureBuckets: [{ name: 'images', configs: [] }] });
    base = `http://127.0.0.1:${(await store.run()).port}`;
    const made = makeFrames();
    pack = packOf('s', [['o', resultsOf('o', ['noise', 'grey12', 'flat'].map((name) => made.find((frame) => frame.name === name)))]]);
    mkdirSync(join(folder, 'packs'));
    for (const [name, bytes] of pack) writeFileSync(join(folder, 'packs', name), bytes);
    // A certificate bundle of the environment keeps rclone from plain http.
    const { AWS_CA_BUNDLE: _, ...rest } = process.env;
    const env = { ...rest, RCLONE_CONFIG_STORE_TYPE: 's3', RCLONE_CONFIG_STORE_PROVIDER: 'Other', RCLONE_CONFIG_STORE_ENDPOINT: base, RCLONE_CONFIG: '/dev/null',
      RCLONE_CONFIG_STORE_ACCESS_KEY_ID: 'S3RVER', RCLONE_CONFIG_STORE_SECRET_ACCESS_KEY: 'S3RVER', RCLONE_CONFIG_STORE_FORCE_PATH_STYLE: 'true' };
    const copy = (include) => promisify(execFile)('rclone', ['copy', '--include', include, join(folder, 'packs'), 'store:images/series'], { env, timeout: 60_000 });
    await copy('*.{small,heads,rests}');
    await copy('*.index');
  });
  after(async () => {
    await store?.close();
    rmSync(folder, { recursive: true });
  });

  test('is read by single ranges, byte for byte', async () => {
    const { Pack } = await importSource(join(here, '../decoder/src/pack.ts'));
    const opened = await Pack.open(`${base}/images/series/s.index`);
    for (const kind of ['preview', 'head', 'rest']) {
      for (let place = 0; place < 3; ++place) {
        const frame = await opened.frame(place);
        const { store: file, offset, length } = frame.pieces[kind];
        assert.deepEqual(await opened.element(frame, kind, place > 0), pack.get(`s.${file}`).slice(offset, offset + length));
      }
    }
    assert.equal((await fetch(`${base}/images/series/s.objects`)).status, 404);
  });
});
