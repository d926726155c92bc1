import { imageLoader, metaData } from '@cornerstonejs/core';
import { type PoolOptions, WorkerPool } from '@vintak/decoder';

import { FrameLoader } from './loader.js';
import { metadata } from './metadata.js';

export { type FrameAddress, imageIdOf, parseImageId } from './imageid.js';
export { metadata } from './metadata.js';
export { addObject, fetchObject, type ObjectDetails, removeObject } from './objects.js';
export { progressiveStages } from './stages.js';

/**
 * Registers the image loader for "vintak:" and the metadata provider with Cornerstone. Returns the pool that decodes;
 * close() it when no image is to be loaded any more.
 */
export function registerVintak(options: PoolOptions): WorkerPool {
  const pool = new WorkerPool(options);
  imageLoader.registerImageLoader('vintak', new FrameLoader(pool).load as never);
  metaData.addProvider(metadata as never, 10_000);
  return pool;
}
