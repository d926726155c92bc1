import type { Types } from '@cornerstonejs/core';
import { type Picture, readElement, type WorkerPool } from '@vintak/decoder';

import { makeImage, type Stage } from './image.js';
import { parseImageId } from './imageid.js';
import { fetchObject, frameOf } from './objects.js';

/** What Cornerstone hands to a loader, as far as it matters here. */
export interface LoaderOptions {
  /** The stage's, of progressiveStages; the exact picture without one. */
  retrieveType?: string;
  /** Kept by Cornerstone from stage to stage of one frame. */
  streamingData?: { vintakHead?: Uint8Array };
}

/** Pixels of a first picture; a larger frame's preview is decoded reduced and repeated. */
const previewPixels = 1 << 19;

function reduceFor(width: number, height: number): number {
  let reduce = 0;
  while ((width >> reduce) * (height >> reduce) > previewPixels) ++reduce;
  return reduce;
}

async function bytesOf(url: string, signal: AbortSignal): Promise<Uint8Array> {
  const response = await fetch(url, { signal });
  if (!response.ok) throw new Error(`${url}: HTTP ${response.status}`);
  return new Uint8Array(await response.arrayBuffer());
}

/** Makes the pictures of one pool's frames. */
export class FrameLoader {
  readonly #pool: WorkerPool;

  constructor(pool: WorkerPool) {
    this.#pool = pool;
  }

  /** Cornerstone's image loader. */
  readonly load = (imageId: string, options: LoaderOptions = {}): Types.IImageLoadObject => {
    const abort = new AbortController();
    const promise = this.#image(imageId, options, abort.signal);
    return { promise, cancelFn: () => abort.abort() } as unknown as Types.IImageLoadObject;
  };

  async #image(imageId: string, options: LoaderOptions, signal: AbortSignal): Promise<Types.IImage> {
    const since = performance.now();
    const address = parseImageId(imageId);
    if (frameOf(address) === undefined) await fetchObject(address.prefix);
    const description = frameOf(address);
    if (description === undefined) throw new Error(`${address.prefix}.desc has no frame ${address.frame}`);
    const stem = `${address.prefix}_${address.frame}`;
    const stage: Stage = options.retrieveType === 'preview' || options.retrieveType === 'head' ? options.retrieveType : 'exact';
    const picture =
      stage === 'preview'
        ? await this.#preview(stem, reduceFor(description.columns, description.rows), signal)
        : stage === 'head'
          ? await this.#pool.decode(await head(stem, options, signal), { signal, priority: 1 })
          : await this.#exact(stem, options, signal);
    return makeImage(imageId, picture, description, since);
  }

  async #preview(stem: string, reduce: number, signal: AbortSignal): Promise<Picture> {
    const { payload } = readElement(await bytesOf(`${stem}.p.qi4`, signal));
    return this.#pool.decode(payload, { reduce, signal, priority: 2 });
  }

  async #exact(stem: string, options: LoaderOptions, signal: AbortSignal): Promise<Picture> {
    const parts = await Promise.all([head(stem, options, signal), bytesOf(`${stem}.f.qi4`, signal)]);
    const picture = await this.#pool.decode(parts, { signal });
    if (picture.completeness !== 'exact') throw new Error(`${stem}: the stream is ${picture.completeness === 'part' ? 'not whole' : 'damaged'}`);
    return picture;
  }
}

/** The payload of the head, which the last stage needs again. */
async function head(stem: string, { streamingData }: LoaderOptions, signal: AbortSignal): Promise<Uint8Array> {
  const known = streamingData?.vintakHead;
  if (known !== undefined) return known;
  const { payload } = readElement(await bytesOf(`${stem}.t.qi4`, signal));
  if (streamingData !== undefined) streamingData.vintakHead = payload;
  return payload;
}
