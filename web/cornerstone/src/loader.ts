import type { Types } from '@cornerstonejs/core';
import { type Picture, readElement, type WorkerPool } from '@vintak/decoder';

import { makeImage, type Stage } from './image.js';
import { type FrameAddress, isPack, parseImageId } from './imageid.js';
import { fetchFrame, frameOf, packOf } from './objects.js';

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

const suffixes = { preview: '.p.qi4', head: '.t.qi4', rest: '.f.qi4' };
/** Packs of which something was read: the first picture of one shall not wait for its neighbours. */
const begun = new WeakSet<object>();

/** A part of a frame's stream, from a file of its own or out of a pack, there with its neighbours'. */
async function part({ prefix, frame }: FrameAddress, kind: keyof typeof suffixes, signal: AbortSignal): Promise<Uint8Array> {
  if (!isPack(prefix)) return bytesOf(`${prefix}_${frame}${suffixes[kind]}`, signal);
  const pack = await packOf(prefix);
  const withNeighbours = begun.has(pack);
  begun.add(pack);
  const bytes = await pack.element(await pack.frame(frame - 1), kind, withNeighbours, signal);
  if (bytes === undefined) throw new Error(`${prefix}: frame ${frame} has no ${suffixes[kind]}`);
  return bytes;
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
    await fetchFrame(address);
    const description = frameOf(address);
    if (description === undefined) throw new Error(`${address.prefix} has no frame ${address.frame}`);
    const stage: Stage = options.retrieveType === 'preview' || options.retrieveType === 'head' ? options.retrieveType : 'exact';
    const picture =
      stage === 'preview'
        ? await this.#preview(address, reduceFor(description.columns, description.rows), signal)
        : stage === 'head'
          ? await this.#pool.decode(await head(address, options, signal), { signal, priority: 1 })
          : await this.#exact(address, options, signal);
    return makeImage(imageId, picture, description, since);
  }

  async #preview(address: FrameAddress, reduce: number, signal: AbortSignal): Promise<Picture> {
    const { payload } = readElement(await part(address, 'preview', signal));
    return this.#pool.decode(payload, { reduce, signal, priority: 2 });
  }

  async #exact(address: FrameAddress, options: LoaderOptions, signal: AbortSignal): Promise<Picture> {
    const parts = await Promise.all([head(address, options, signal), part(address, 'rest', signal)]);
    const picture = await this.#pool.decode(parts, { signal });
    if (picture.completeness !== 'exact') throw new Error(`${address.prefix}, frame ${address.frame}: the stream is ${picture.completeness === 'part' ? 'not whole' : 'damaged'}`);
    return picture;
  }
}

/** The payload of the head, which the last stage needs again. */
async function head(address: FrameAddress, { streamingData }: LoaderOptions, signal: AbortSignal): Promise<Uint8Array> {
  const known = streamingData?.vintakHead;
  if (known !== undefined) return known;
  const { payload } = readElement(await part(address, 'head', signal));
  if (streamingData !== undefined) streamingData.vintakHead = payload;
  return payload;
}
