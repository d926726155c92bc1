// The site in packaging/nginx, under a real nginx with its settings made for this host.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import test, { after, before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
const nginx = spawnSync('nginx', ['-v']).error ? undefined : 'nginx';

function freePort() {
  return new Promise((resolve) => {
    const server = createServer().listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

describe('the nginx site', { skip: nginx ? false : 'there is no nginx' }, () => {
  let folder, base, daemon;
  before(async () => {
    folder = mkdtempSync(join(tmpdir(), 'vintak-nginx-'));
    const port = await freePort();
    base = `http://127.0.0.1:${port}`;
    for (const sub of ['page/assets', 'srv/results/0', 'tmp']) mkdirSync(join(folder, sub), { recursive: true });
    writeFileSync(join(folder, 'page/index.html'), '<!doctype html><title>page</title>');
    writeFileSync(join(folder, 'page/assets/decoder.wasm'), Buffer.alloc(5000, 'abc'));
    writeFileSync(join(folder, 'srv/objects.json'), '{}');
    for (const name of ['o_1.p.qi4', 'o_1.raw', 'o.desc', 'o.pdf', 'o.pdcm', 's.index', 's.small', 's.heads', 's.rests', 's.objects']) writeFileSync(join(folder, 'srv/results/0', name), Buffer.alloc(10_000, name));
    const site = readFileSync(join(root, 'packaging/nginx/vintak.conf'), 'utf8')
      .replace('listen 443 ssl http2', `listen 127.0.0.1:${port} http2`)
      .replace(/ *ssl_certificate.*\n/g, '')
      .replaceAll('/usr/share/vintak/page', join(folder, 'page'))
      .replaceAll('/srv/vintak', join(folder, 'srv'));
    const temporary = ['client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'].map((kind) => `${kind}_temp_path ${folder}/tmp;`).join('\n');
    writeFileSync(join(folder, 'nginx.conf'),
      `daemon off; master_process off; pid ${folder}/pid; error_log stderr;\nevents {}\nhttp { access_log off;\n${temporary}\n${site.replace(' http2', '')}\n}`);
    daemon = spawn(nginx, ['-p', folder, '-c', join(folder, 'nginx.conf'), '-e', 'stderr'], { stdio: ['ignore', 'ignore', 'inherit'] });
    for (;;) {
      if (daemon.exitCode !== null) throw new Error(`nginx ended with ${daemon.exitCode}`);
      if (await fetch(base).then(() => true, () => false)) break;
      await new Promise((resolve) => setTimeout(resolve, 20));
    }
  });
  after(async () => {
    if (daemon?.exitCode === null) await new Promise((resolve) => daemon.on('exit', resolve).kill('SIGTERM'));
    rmSync(folder, { recursive: true });
  });
  const head = async (path, headers = {}, method = 'GET') => {
    const response = await fetch(base + path, { headers, method });
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
