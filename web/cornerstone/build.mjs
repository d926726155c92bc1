// Builds dist/ (the package) and dist/example/ (a page with a stack viewport).
import { execFileSync } from 'node:child_process';
import { copyFileSync, mkdirSync, rmSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const dist = join(here, 'dist');
const example = join(dist, 'example');
const decoder = join(here, '../decoder/dist');

rmSync(dist, { recursive: true, force: true });
mkdirSync(join(example, 'assets'), { recursive: true });
await build({
  entryPoints: [join(here, 'src/index.ts')], outdir: dist, bundle: true, format: 'esm', target: 'es2022', sourcemap: true,
  external: ['@cornerstonejs/core', '@vintak/decoder'], logLevel: 'warning',
});
await build({
  entryPoints: [join(here, 'example/main.ts')], outfile: join(example, 'assets/example.js'), bundle: true, format: 'esm',
  target: 'es2022', minify: true, logLevel: 'error', define: { 'process.env.NODE_ENV': '"production"', global: 'globalThis' },
  alias: Object.fromEntries(['events', 'url'].map((name) => [name, join(here, 'example/nothing.ts')])),
});
copyFileSync(join(here, 'example/index.html'), join(example, 'index.html'));
copyFileSync(join(here, 'example/example.css'), join(example, 'assets/example.css'));
for (const file of ['worker.js', 'decoder.wasm']) copyFileSync(join(decoder, file), join(example, 'assets', file));
execFileSync(process.execPath, [join(here, '../node_modules/typescript/bin/tsc'), '-p', join(here, 'tsconfig.json')], { stdio: 'inherit' });
