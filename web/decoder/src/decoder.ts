import { compileModule, DecoderModule, type ModuleSource } from './module.js';
import type { DecodeOptions, Picture } from './picture.js';
import { PictureStream } from './stream.js';

/** Decodes on the thread that calls it. Not to be shared between threads: make one in each. */
export class Decoder {
  readonly #module: DecoderModule;

  constructor(module: WebAssembly.Module) {
    this.#module = new DecoderModule(module);
  }

  /**
   * Decodes a stream's payload or any beginning of one, or a thumbnail file (.cw1). Of a frame's files the payload is
   * what follows the 24-byte header of .t.qi4, and then the bytes of .f.qi4; see readElement().
   * Throws DecodeError when there is no picture.
   */
  decode(bytes: Uint8Array, options?: DecodeOptions): Picture {
    return this.#module.decode(bytes, options);
  }

  /** A stream whose bytes are still arriving. */
  stream(): PictureStream {
    return new PictureStream((bytes, options) => this.decode(bytes, options));
  }
}

/** Compiles the module (by default the decoder.wasm beside this script) and makes a decoder of it. */
export async function createDecoder(wasm?: ModuleSource): Promise<Decoder> {
  return new Decoder(await compileModule(wasm));
}
