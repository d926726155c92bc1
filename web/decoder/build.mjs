// Builds dist/: the WebAssembly module from the native decoders' own sources, the scripts, their types.
import { execFileSync } from 'node:child_process';
import { mkdirSync, rmSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const root = join(here, '../..');
const dist = join(here, 'dist');

const sources = [
  'web/decoder/native/module.cpp',
  'kelt4/decoder.cpp',
  'kelt4/chunkreader.cpp',
  'kelt4/rowbuffers.cpp',
  'keltlegacy/decoder.cpp',
  'keltlegacy/classdecoder.cpp',
  'keltlegacy/wavelet.cpp',
  'keltlegacy/filter4_2.cpp',
];

function compileModule() {
  execFileSync(
    'clang++-14',
    [
      '--target=wasm32-wasi', '-std=c++20', '-O3', '-msimd128', '-mbulk-memory', '-fno-exceptions', '-fno-rtti',
      '-ffp-contract=off', '-ffunction-sections', '-fdata-sections', '-fvisibility=hidden', '-Wall', '-Wextra',
      '-nostartfiles', '-I.', ...sources, '-Wl,-z,stack-size=131072', '-Wl,--no-entry', '-Wl,--gc-sections', '-Wl,--strip-debug',
      '-o', join(dist, 'decoder.wasm'),
    ],
    // Where wasm-opt is installed the compiler would call it by itself and give other bytes.
    { cwd: root, stdio: 'inherit', env: { ...process.env, WASM_OPT: '', PATH: '/usr/bin:/bin' } },
  );
}

async function bundleScripts() {
  const common = { bundle: true, format: 'esm', target: 'es2022', outdir: dist, logLevel: 'warning', external: ['node:*'] };
  await build({ ...common, entryPoints: [join(here, 'src/index.ts')], sourcemap: true });
  await build({ ...common, entryPoints: [join(here, 'src/worker.ts')], minify: true });
}

rmSync(dist, { recursive: true, force: true });
mkdirSync(dist, { recursive: true });
compileModule();
await bundleScripts();
execFileSync(process.execPath, [join(root, 'web/node_modules/typescript/bin/tsc'), '-p', join(here, 'tsconfig.json')], { stdio: 'inherit' });
