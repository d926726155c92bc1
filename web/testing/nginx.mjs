// Debian's nginx on a port of this host, for tests and benchmarks.
import { spawn, spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const missing = spawnSync('nginx', ['-v']).error ? 'there is no nginx' : false;

async function freePort() {
  const server = createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

/** Runs nginx with its own files in `folder` and what `site(port)` adds to the settings of http: { url, stop }. */
export async function startNginx(folder, site) {
  const port = await freePort();
  const at = (name) => join(folder, name);
  mkdirSync(at('tmp'), { recursive: true });
  const temporary = ['client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'].map((kind) => `${kind}_temp_path ${at('tmp')};`).join('\n');
  writeFileSync(at('nginx.conf'), `daemon off; master_process off; pid ${at('pid')}; error_log stderr;\nevents {}\nhttp { access_log off;\n${temporary}\n${site(port)}\n}`);
  const nginx = spawn('nginx', ['-p', folder, '-c', at('nginx.conf'), '-e', 'stderr'], { stdio: ['ignore', 'ignore', 'inherit'] });
  const url = `http://127.0.0.1:${port}`;
  while (!(await fetch(url).then(() => true, () => false))) {
    if (nginx.exitCode !== null) throw new Error(`nginx ended with ${nginx.exitCode}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
  return {
    url,
    stop: async () => {
      if (nginx.exitCode === null) await new Promise((resolve) => nginx.on('exit', resolve).kill('SIGTERM'));
    },
  };
}

/** The site of packaging/nginx, without its certificate, for startNginx. */
export const vintakSite = (page, results) => (port) =>
  readFileSync(join(dirname(fileURLToPath(import.meta.url)), '../../packaging/nginx/vintak.conf'), 'utf8')
    .replace('listen 443 ssl http2', `listen 127.0.0.1:${port}`)
    .replace(/ *ssl_certificate.*\n/g, '')
    .replaceAll('/usr/share/vintak/page', page)
    .replaceAll('/srv/vintak', results);
