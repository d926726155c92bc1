// `vintak view` with a real daemon, the built page and a real browser.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { cpSync, existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import test, { after, before, describe } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launch, missing as noBrowser, openPage } from './browser.mjs';

const root = join(dirname(fileURLToPath(import.meta.url)), '../..');
const build = process.env.VINTAKD_BUILD ?? join(root, 'build/release');
const program = (name) => join(build, name);
const [vintakd, vintak, phantom] = ['vintakd/vintakd', 'tools/vintak/vintak', 'tools/phantom/vintak-phantom'].map(program);
const page = join(root, 'web/viewer/dist');
const missing = [vintakd, vintak, phantom, join(page, 'index.html')].find((file) => !existsSync(file));

/** The status and the body of a request that is made exactly as it is written here. */
function ask(address, path, headers = {}, method = 'GET') {
  const { hostname, port } = new URL(address);
  return new Promise((resolve, reject) => {
    request({ hostname, port, path, headers, method }, (response) => {
      const parts = [];
      response.on('data', (part) => parts.push(part)).on('end', () => resolve({ status: response.statusCode, headers: response.headers, body: Buffer.concat(parts) }));
    }).on('error', reject).end();
  });
}

describe('vintak view', { skip: missing ? `there is no ${missing}` : false }, () => {
  let folder, environment, daemon;
  before(async () => {
    folder = mkdtempSync(join(tmpdir(), 'vintak-viewtest-'));
    for (const sub of ['run', 'work', 'objects/deep', 'empty']) mkdirSync(join(folder, sub), { recursive: true });
    environment = { ...process.env, RUN: join(folder, 'run'), TMP: join(folder, 'run'), TMPDIR: join(folder, 'work'),
      VINTAKD_SEGMENT: `vintakd_view_${process.pid}`, VINTAKD_TRACE_SWITCH: '-', VINTAK_PAGE: page };
    assert.equal(spawnSync(phantom, [join(folder, 'objects/deep/chest.dcm')]).status, 0);
    writeFileSync(join(folder, 'objects/notes.txt'), 'no object');
    writeFileSync(join(folder, 'objects/torn'), Buffer.concat([Buffer.alloc(128), Buffer.from('DICM\x02\x00')]));
    symlinkSync('/', join(folder, 'objects/everything'));
    daemon = spawn(vintakd, ['--servers', '2'], { env: environment, stdio: 'ignore' });
    while (spawnSync(vintak, ['ping'], { env: environment }).status !== 0) {
      assert.equal(daemon.exitCode, null, 'the daemon ended');
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
  });
  after(async () => {
    if (daemon?.exitCode === null) await Promise.all([once(daemon, 'exit'), daemon.kill('SIGTERM')]);
    rmSync(folder, { recursive: true });
  });

  /** Starts it; resolves with its address. */
  async function start(...words) {
    const child = spawn(vintak, ['view', '--no-open', ...words], { env: environment, stdio: ['ignore', 'pipe', 'pipe'] });
    let said = '';
    child.stderr.on('data', (text) => (said += text));
    const [line] = await Promise.race([once(child.stdout, 'data'), once(child, 'exit').then(([status]) => [`ended with ${status}: ${said}`])]);
    const address = String(line).trim();
    return { address, path: new URL(address).pathname, said: () => said, stop: async () => {
      const ended = once(child, 'exit');
      child.kill('SIGINT');
      return (await ended)[0];
    } };
  }

  test('serves what it lists to this host alone, and leaves nothing behind', async () => {
    const { address, path, said, stop } = await start(join(folder, 'objects'));
    assert.match(address, /^http:\/\/127\.0\.0\.1:\d+\/[0-9a-f]{32}\/$/);
    assert.match(said(), /torn: /);
    const list = JSON.parse((await ask(address, `${path}objects.json`)).body);
    assert.deepEqual(list.objects.map(({ name }) => name), ['chest.dcm', 'torn']);
    assert.match(list.objects[1].error, /truncated/);
    const { prefix, frames, descriptor } = list.objects[0];
    const first = await ask(address, `${path}${prefix}_1.p.qi4`);
    assert.deepEqual([first.status, first.body.length, first.headers['cache-control']], [200, 4120, 'private, max-age=31536000, immutable']);
    assert.equal(String((await ask(address, path + descriptor)).body).split('\n').length, frames + 1);
    const range = await ask(address, `${path}${prefix}_1.p.qi4`, { Range: 'bytes=4-23' });
    assert.deepEqual([range.status, range.body], [206, first.body.subarray(4, 24)]);
    assert.equal((await ask(address, `${path}${prefix}_1.p.qi4`, { Range: 'bytes=9999-' })).status, 416);

    const refused = ['', 'objects.json', `${path}results/0/o.pdcm`, `${path}results/0/o_0.raw`, `${path}results/0/o_${frames + 1}.raw`, `${path}results/1/o.desc`,
      `${path}results/99999999999/o.desc`, `${path}results/-1/o.desc`, `${path}results/0/../../../etc/passwd`, `${path}..%2f..%2fetc/passwd`, `${path}assets/../../package.json`, `${path}.`];
    for (const wrong of refused) assert.equal((await ask(address, wrong.startsWith('/') ? wrong : `/${wrong}`)).status, 404, wrong);
    for (const host of ['evil.example', `evil.example:${new URL(address).port}`]) assert.equal((await ask(address, path, { Host: host })).status, 421);
    assert.match((await ask(address, path)).headers['content-security-policy'], /script-src 'self' 'wasm-unsafe-eval'/);
    assert.equal(readdirSync(join(folder, 'work')).length, 1);
    assert.equal(await stop(), 0);
    assert.deepEqual(readdirSync(join(folder, 'work')), []);
  });

  test('takes results that are there, without a daemon; says what is missing otherwise', async () => {
    const object = join(folder, 'objects/deep/chest.dcm');
    const run = (words, more = {}) => spawnSync(vintak, ['view', '--no-open', ...words], { env: { ...environment, ...more }, encoding: 'utf8', timeout: 20_000 });
    const noDaemon = { VINTAKD_SEGMENT: `vintakd_nobody_${process.pid}` };
    assert.match(run([object], noDaemon).stderr, /no daemon is running/);
    assert.equal(run([object], noDaemon).status, 3);
    assert.deepEqual([run([join(folder, 'objects/torn')]).status, run([join(folder, 'empty')]).status, run([]).status, run(['/no/such']).status], [4, 4, 2, 4]);
    assert.match(run([object], { VINTAK_PAGE: '/no/such' }).stderr, /VINTAK_PAGE names no page/);

    assert.equal(spawnSync(vintak, ['convert', object, '-o', join(folder, 'objects/deep/')], { env: environment }).status, 0);
    environment.VINTAKD_SEGMENT = noDaemon.VINTAKD_SEGMENT;
    const { address, path, stop } = await start(object);
    const list = JSON.parse((await ask(address, `${path}objects.json`)).body);
    assert.deepEqual((await ask(address, `${path}${list.objects[0].prefix}_1.raw`)).body, readFileSync(join(folder, 'objects/deep/chest_1.raw')));
    await stop();
    assert.equal(run([object, '--export', join(folder, 'site')]).status, 0);
    assert.deepEqual(JSON.parse(readFileSync(join(folder, 'site/objects.json'), 'utf8')), list);
    assert.ok(existsSync(join(folder, `site/${list.objects[0].prefix}_1.f.qi4`)) && existsSync(join(folder, 'site/assets/viewer.js')));
    const carried = Array.from(readFileSync(join(folder, 'site/index.html'), 'utf8').matchAll(/data-file="([^"]*)">([^<]*)</g), ([, named, text]) => [named, Buffer.from(text, 'base64')]);
    assert.deepEqual(carried.map(([named]) => named), ['objects.json', ...['.desc', `_${(list.objects[0].frames >> 1) + 1}.p.qi4`].map((end) => list.objects[0].prefix + end)]);
    for (const [named, bytes] of carried) assert.deepEqual(bytes, readFileSync(join(folder, 'site', named)), named);
    assert.match(run([object, '--export', join(folder, 'site')]).stderr, /is not empty/);

    // A site that cannot be finished: the message names the file, and no half of a site is in the way of the next try.
    const torn = join(folder, 'page');
    cpSync(page, torn, { recursive: true, dereference: true });
    symlinkSync('nowhere', join(torn, 'assets/lost.js'));
    mkdirSync(join(folder, 'kept'));
    for (const site of ['new', 'kept']) {
      const failed = run([object, '--export', join(folder, site)], { VINTAK_PAGE: torn });
      assert.equal(failed.status, 4);
      assert.match(failed.stderr, /lost\.js: No such file or directory/);
    }
    assert.deepEqual([existsSync(join(folder, 'new')), readdirSync(join(folder, 'kept'))], [false, []]);
  });

  test('has what is long fetched beside the page, and carries nothing that is linked to', async () => {
    mkdirSync(join(folder, 'long'));
    writeFileSync(join(folder, 'long/o.desc'), '1 1 1 mono 8 8 0 1 256 128\n'.repeat(1000));
    writeFileSync(join(folder, 'secret'), 'secret');
    symlinkSync(join(folder, 'secret'), join(folder, 'long/o_501.p.qi4'));
    const { address, path, stop } = await start(join(folder, 'long/o.desc'));
    const page = String((await ask(address, path)).body);
    assert.match(page, /<link rel="preload" href="results\/0\/o\.desc" as="fetch" crossorigin>/);
    assert.deepEqual(Array.from(page.matchAll(/data-file="([^"]*)"/g), ([, named]) => named), ['objects.json']);
    await stop();
  });

  test('shows the object in a browser, exactly', { skip: noBrowser }, async () => {
    const { address, stop } = await start(join(folder, 'objects/deep/chest.desc'));
    const browser = await launch();
    try {
      const { page: tab, complaints } = await openPage(browser);
      await tab.goto(address);
      await tab.waitForFunction(() => window.vintak?.state.stage === 'exact');
      const shown = await tab.evaluate(() => [window.vintak.state.frame, Array.from(new Uint8Array(window.vintak.samples.buffer))]);
      assert.deepEqual(Buffer.from(shown[1]), readFileSync(join(folder, `objects/deep/chest_${shown[0]}.raw`)));
      // What the page carries within itself is asked of nobody.
      const fetched = await tab.evaluate(() => performance.getEntriesByType('resource').map(({ name }) => name.split('/').pop()));
      assert.deepEqual(fetched.filter((name) => name === 'objects.json' || name.endsWith(`_${shown[0]}.p.qi4`)), []);
      assert.deepEqual(complaints, []);
    } finally {
      await browser.close();
      await stop();
    }
  });
});
