// Builds dist/: the page, its script and style, and the decoder's Worker and module.
import { copyFileSync, mkdirSync, rmSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const dist = join(here, 'dist');
const decoder = join(here, '../decoder/dist');

rmSync(dist, { recursive: true, force: true });
mkdirSync(join(dist, 'assets'), { recursive: true });
await build({
  entryPoints: [join(here, 'src/viewer.ts'), join(here, 'src/viewer.css')], outdir: join(dist, 'assets'), bundle: true,
  format: 'esm', target: 'es2022', minify: true, logLevel: 'warning',
});
copyFileSync(join(here, 'src/index.html'), join(dist, 'index.html'));
copyFileSync(join(here, 'src/icon.svg'), join(dist, 'assets/icon.svg'));
for (const file of ['worker.js', 'decoder.wasm']) copyFileSync(join(decoder, file), join(dist, 'assets', file));
