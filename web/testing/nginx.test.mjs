// The site in packaging/nginx, under a real nginx with its settings made for this host.
import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import test, { after, before, describe } from 'node:test';

import { missing, startNginx, vintakSite } from './nginx.mjs';

describe('the nginx site', { skip: missing }, () => {
  let folder, nginx;
  before(async () => {
    folder = mkdtempSync(join(tmpdir(), 'vintak-nginx-'));
    for (const sub of ['page/assets', 'srv/results/0']) mkdirSync(join(folder, sub), { recursive: true });
    writeFileSync(join(folder, 'page/index.html'), '<!doctype html><title>page</title>');
    writeFileSync(join(folder, 'page/assets/decoder.wasm'), Buffer.alloc(5000, 'abc'));
    writeFileSync(join(folder, 'srv/objects.json'), '{}');
    for (const name of ['o_1.p.qi4', 'o_1.raw', 'o.desc', 'o.pdf', 'o.pdcm', 's.index', 's.small', 's.heads', 's.rests', 's.objects']) writeFileSync(join(folder, 'srv/results/0', name), Buffer.alloc(10_000, name));
    nginx = await startNginx(folder, vintakSite(join(folder, 'page'), join(folder, 'srv')));
  });
  after(async () => {
    await nginx?.stop();
    rmSync(folder, { recursive: true });
  });
  const head = async (path, headers = {}, method = 'GET') => {
    const response = await fetch(nginx.url + path, { headers, method });
    return { status: response.status, length: (await response.arrayBuffer()).byteLength, header: (name) => response.headers.get(name) };
  };

  test('serves the page under its policy, and its module as one', async () => {
    const page = await head('/');
    assert.equal(page.status, 200);
    assert.match(page.header('content-security-policy'), /script-src 'self' 'wasm-unsafe-eval'/);
    assert.equal(page.header('cache-control'), 'no-cache');
    const wasm = await head('/assets/decoder.wasm');
    assert.match(wasm.header('content-type'), /^application\/wasm/);
    assert.equal(wasm.header('content-encoding'), 'gzip');
    assert.equal((await head('/', {}, 'POST')).status, 403);
  });

  test('serves results for ever, by ranges, and nothing beside them', async () => {
    const stream = await head('/results/0/o_1.p.qi4');
    assert.equal(stream.status, 200);
    assert.equal(stream.header('content-type'), 'application/octet-stream');
    assert.match(stream.header('cache-control'), /immutable/);
    const range = await head('/results/0/o_1.raw', { Range: 'bytes=100-299' });
    assert.deepEqual([range.status, range.length, range.header('content-range')], [206, 200, 'bytes 100-299/10000']);
    const heads = await head('/results/0/s.heads', { Range: 'bytes=9990-9999' });
    assert.deepEqual([heads.status, heads.length, heads.header('content-range')], [206, 10, 'bytes 9990-9999/10000']);
    assert.equal((await head('/results/0/s.index', { Range: 'bytes=10000-' })).status, 416);
    assert.match((await head('/results/0/o.desc')).header('content-type'), /^text\/plain/);
    assert.equal((await head('/results/0/o.pdf')).header('content-type'), 'application/pdf');
    for (const path of ['/results/0/o.pdcm', '/results/0/s.objects', '/results/0/', '/results/0/o_2.raw', '/results/../objects.json.bak'])
      assert.equal((await head(path)).status, 404, path);
    assert.equal((await head('/objects.json')).header('cache-control'), 'no-cache');
  });

  test('lets one other site read, and no more', async () => {
    const allowed = await head('/results/0/o_1.raw', { Origin: 'https://viewer.example.org', Range: 'bytes=0-9' });
    assert.equal(allowed.header('access-control-allow-origin'), 'https://viewer.example.org');
    assert.match(allowed.header('access-control-expose-headers'), /Content-Range/);
    const other = await head('/results/0/o_1.raw', { Origin: 'https://evil.example' });
    assert.equal(other.header('access-control-allow-origin'), null);
    assert.equal(other.header('vary'), 'Origin');
    assert.equal((await head('/results/0/o_1.raw', { Origin: 'https://viewer.example.org' }, 'OPTIONS')).status, 204);
  });
});
