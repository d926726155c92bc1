export { joined } from './bytes.js';
export { createDecoder, Decoder } from './decoder.js';
export { type FrameDescription, parseDescriptor } from './descriptor.js';
export { type ElementHeader, readElement } from './element.js';
export { compileModule, type ModuleSource } from './module.js';
export { type Completeness, DecodeError, type DecodeFailure, type DecodeOptions, type Picture } from './picture.js';
export { type PoolDecodeOptions, type PoolOptions, WorkerPool } from './pool.js';
export { PictureStream } from './stream.js';
