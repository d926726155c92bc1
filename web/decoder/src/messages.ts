import type { DecodeFailure, DecodeOptions, Picture } from './picture.js';

/** What a pool says to its Workers, and they to it. */
export type ToWorker =
  | { kind: 'module'; module: WebAssembly.Module }
  | { kind: 'decode'; id: number; parts: Uint8Array[]; options: DecodeOptions };

export type FromWorker =
  | { kind: 'picture'; id: number; picture: Picture }
  | { kind: 'failure'; id: number; status: DecodeFailure; message: string };
