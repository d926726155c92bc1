// A server on this host for browser tests: files of folders and of maps, the headers of `vintak view`, one range a request.
import { existsSync, readFileSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { join, normalize } from 'node:path';

export const contentSecurityPolicy =
  "default-src 'none'; script-src 'self' 'wasm-unsafe-eval'; style-src 'self'; img-src 'self' blob:; connect-src 'self'; " +
  "worker-src 'self'; frame-src 'self'; object-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'self'";

const types = { html: 'text/html; charset=utf-8', js: 'text/javascript; charset=utf-8', css: 'text/css; charset=utf-8', wasm: 'application/wasm',
  json: 'application/json', pdf: 'application/pdf', desc: 'text/plain; charset=utf-8', svg: 'image/svg+xml' };

/**
 * Serves `folder` and then the bytes of `files` (a Map from path to Uint8Array), both without a leading slash.
 * `policy` replaces the Content-Security-Policy; `intercept(path, request, response)` may answer itself (true).
 */
export async function serve({ folder, files = new Map(), policy = contentSecurityPolicy, intercept = () => false }) {
  const requests = [];
  const ranges = [];
  const server = createServer((request, response) => {
    const path = decodeURIComponent(new URL(request.url, 'http://localhost').pathname).slice(1) || 'index.html';
    requests.push(path);
    ranges.push(`${path} ${request.headers.range ?? ''}`);
    if (intercept(path, request, response)) return;
    const onDisk = folder && join(folder, normalize(path));
    const bytes = files.get(path) ?? (onDisk?.startsWith(folder) && existsSync(onDisk) && statSync(onDisk).isFile() ? readFileSync(onDisk) : undefined);
    if (bytes === undefined) {
      response.writeHead(404).end();
      return;
    }
    const headers = { 'Content-Type': types[path.split('.').pop()] ?? 'application/octet-stream', 'Content-Security-Policy': policy,
      'X-Content-Type-Options': 'nosniff', 'Accept-Ranges': 'bytes' };
    const range = /^bytes=(\d+)-(\d*)$/.exec(request.headers.range ?? '');
    if (range === null) {
      response.writeHead(200, { ...headers, 'Content-Length': bytes.length }).end(bytes);
      return;
    }
    const first = Number(range[1]);
    const last = Math.min(range[2] === '' ? Infinity : Number(range[2]), bytes.length - 1);
    if (first > last) {
      response.writeHead(416, { 'Content-Range': `bytes */${bytes.length}` }).end();
      return;
    }
    const part = bytes.subarray(first, last + 1);
    response.writeHead(206, { ...headers, 'Content-Length': part.length, 'Content-Range': `bytes ${first}-${last}/${bytes.length}` }).end(part);
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  return {
    url: `http://127.0.0.1:${server.address().port}/`,
    requests,
    ranges,
    files,
    close: () => new Promise((resolve) => {
      server.closeAllConnections();
      server.close(resolve);
    }),
  };
}
