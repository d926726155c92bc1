import { DecodeError, type DecodeFailure, type DecodeOptions, type Picture } from './picture.js';

interface Exports {
  memory: WebAssembly.Memory;
  allocate(size: number): number;
  release(address: number): void;
  decode(address: number, size: number, reduce: number, maxSamples: number): number;
  forget(): void;
}

/** Where the module may come from. */
export type ModuleSource = string | URL | BufferSource | WebAssembly.Module | Response;

const defaultMaxSamples = 2 ** 27;
/** An instance's memory never shrinks; one that has grown beyond this is not kept. */
const keptMemory = 256 * 2 ** 20;
const failures: readonly DecodeFailure[] = ['not-a-payload', 'unsupported', 'too-large', 'no-memory'];

async function bytesOf(source: string | URL): Promise<WebAssembly.Module> {
  const url = new URL(source, typeof location === 'undefined' ? import.meta.url : location.href);
  if (url.protocol === 'file:') {
    // By a variable, so that bundlers for the browser leave it alone.
    const files = 'node:fs/promises';
    const { readFile } = (await import(files)) as { readFile(from: URL): Promise<Uint8Array<ArrayBuffer>> };
    return WebAssembly.compile(await readFile(url));
  }
  return compileResponse(await fetch(url));
}

async function compileResponse(response: Response): Promise<WebAssembly.Module> {
  if (!response.ok) throw new Error(`${response.url}: HTTP ${response.status}`);
  // Not every server knows the type that streaming compilation asks for.
  if (response.headers.get('content-type')?.startsWith('application/wasm')) return WebAssembly.compileStreaming(response);
  return WebAssembly.compile(await response.arrayBuffer());
}

/** Compiles the decoder's module; by default the decoder.wasm beside this script. */
export async function compileModule(source?: ModuleSource): Promise<WebAssembly.Module> {
  if (source === undefined) return bytesOf(new URL('./decoder.wasm', import.meta.url));
  if (source instanceof WebAssembly.Module) return source;
  if (typeof source === 'string' || source instanceof URL) return bytesOf(source);
  if (typeof Response !== 'undefined' && source instanceof Response) return compileResponse(source);
  return WebAssembly.compile(source as BufferSource);
}

/** One decoder instance at a time, replaced when it came to an end or has grown too large. */
export class DecoderModule {
  readonly #module: WebAssembly.Module;
  #exports: Exports | undefined;

  constructor(module: WebAssembly.Module) {
    this.#module = module;
  }

  /** Throws DecodeError. */
  decode(bytes: Uint8Array, options: DecodeOptions = {}): Picture {
    const exports = (this.#exports ??= new WebAssembly.Instance(this.#module).exports as unknown as Exports);
    try {
      return run(exports, bytes, options);
    } catch (error) {
      if (error instanceof DecodeError) throw error;
      this.#exports = undefined;
      throw new DecodeError('crashed', String(error));
    } finally {
      if (exports.memory.buffer.byteLength > keptMemory) this.#exports = undefined;
    }
  }
}

function run(exports: Exports, bytes: Uint8Array, options: DecodeOptions): Picture {
  const address = exports.allocate(bytes.length);
  if (address === 0 && bytes.length > 0) throw new DecodeError('no-memory');
  try {
    new Uint8Array(exports.memory.buffer, address, bytes.length).set(bytes);
    const result = exports.decode(address, bytes.length, options.reduce ?? 0, Math.min(options.maxSamples ?? defaultMaxSamples, 2 ** 32 - 1));
    return pictureAt(exports.memory.buffer, result);
  } finally {
    exports.release(address);
    exports.forget();
  }
}

/** Reads the Result of native/module.cpp. */
function pictureAt(memory: ArrayBuffer, address: number): Picture {
  const words = new Uint32Array(memory, address, 13);
  const word = (index: number): number => words[index] as number;
  const state = word(0);
  if (state > 2) throw new DecodeError(failures[state - 3] ?? 'crashed');
  const bytesPerPixel = word(8);
  const start = word(11);
  const end = start + word(12);
  if (start === end) throw new DecodeError('damaged');
  return {
    width: word(2),
    height: word(3),
    frameWidth: word(4),
    frameHeight: word(5),
    reduce: word(6),
    levels: word(7),
    bitsUsed: word(9),
    channels: bytesPerPixel === 3 ? 3 : 1,
    pixels: bytesPerPixel === 2 ? new Uint16Array(memory.slice(start, end)) : new Uint8Array(memory.slice(start, end)),
    completeness: state === 0 ? 'exact' : state === 1 ? 'part' : 'damaged',
    bytesUsed: word(10),
    coding: word(1) === 1 ? 'stream' : 'thumbnail',
  };
}
