// A TypeScript source file as a module, for tests in Node.
import { buildSync } from 'esbuild';

/** Bundles `file` (an absolute path) and imports it. */
export async function importSource(file) {
  const { outputFiles } = buildSync({ entryPoints: [file], bundle: true, format: 'esm', write: false });
  return import(`data:text/javascript;base64,${Buffer.from(outputFiles[0].contents).toString('base64')}`);
}
