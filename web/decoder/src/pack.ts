import { crc32c } from './crc32c.js';
import { type FrameDescription, parseDescriptor } from './descriptor.js';
import { frameSize, headSize, type PackedElement, type PackedFrame, type PackHead, type Piece, readPackFrames, readPackHead, type Store, textsAt } from './packindex.js';
import { fetchRange, openRange } from './range.js';

/** Frames whose records are fetched in one request. */
export const framesOfBlock = 64;
/** Neighbours whose small parts, and whose heads, are fetched in one request. */
const together: Partial<Record<Store, number>> = { small: 16, heads: 8 };
const mostBytesTogether = 4 * 2 ** 20;
const blocksKept = 12;

/**
 * A series in a few files, read by ranges: the index in parts, elements one by one or with their neighbours'. What comes is
 * compared with the checksums of the index.
 */
export class Pack {
  readonly #url: string;
  readonly #records = new Map<number, Promise<PackedFrame[]>>();
  /** Neighbours' elements by their block; the last ones used. */
  readonly #blocks = new Map<string, Promise<Uint8Array>>();

  private constructor(
    url: string,
    readonly head: PackHead,
  ) {
    this.#url = url;
  }

  /** `url` is the address of the index; the other files lie beside it. */
  static async open(url: string, signal?: AbortSignal): Promise<Pack> {
    if (!new URL(url).pathname.endsWith('.index')) throw new RangeError(`${url} is not named as the index of a pack is`);
    return new Pack(url, readPackHead(await fetchRange(url, 0, headSize, signal)));
  }

  get frameCount(): number {
    return this.head.frames;
  }

  /** The frames of a block (framesOfBlock), which are then kept. */
  block(index: number): Promise<PackedFrame[]> {
    let records = this.#records.get(index);
    if (records === undefined) {
      const first = index * framesOfBlock;
      const count = Math.min(framesOfBlock, this.head.frames - first);
      if (!(first >= 0 && count > 0)) return Promise.reject(new RangeError(`the pack has no frame ${first + 1}`));
      records = fetchRange(this.#url, headSize + first * frameSize, count * frameSize).then((bytes) => readPackFrames(bytes, first, this.head));
      records.catch(() => this.#records.delete(index));
      this.#records.set(index, records);
    }
    return records;
  }

  /** A frame by its place, from 0. */
  async frame(place: number): Promise<PackedFrame> {
    if (!(place >= 0 && place < this.head.frames)) throw new RangeError(`the pack has no frame ${place + 1}`);
    const frame = (await this.block(Math.floor(place / framesOfBlock)))[place % framesOfBlock];
    if (frame === undefined) throw new RangeError(`the pack has no frame ${place + 1}`);
    return frame;
  }

  /** What the lines of frames that follow one another say, geometry included; `frame` is the place, from 1. */
  async descriptions(frames: PackedFrame[], signal?: AbortSignal): Promise<FrameDescription[]> {
    const [first, last] = [frames[0], frames.at(-1)];
    if (first === undefined || last === undefined) return [];
    const from = first.line.offset;
    const length = last.line.offset + last.line.length - from;
    const bytes = await fetchRange(this.#url, textsAt(this.head) + from, length, signal);
    return frames.map(({ place, line }) => {
      const [description] = parseDescriptor(new TextDecoder().decode(bytes.subarray(line.offset - from, line.offset - from + line.length)));
      if (description === undefined) throw new RangeError(`frame ${place + 1} of the pack has no line`);
      return { ...description, frame: place + 1 };
    });
  }

  /** The response with an element's bytes, as they come: whoever reads them compares sums with `check`. */
  open(piece: Piece, signal: AbortSignal): Promise<Response> {
    return openRange(this.#address(piece.store), piece.offset, piece.length, signal);
  }

  /** An element of a frame; undefined where it has none. `withNeighbours`: theirs come in the same request, and are kept. */
  async element(frame: PackedFrame, kind: PackedElement, withNeighbours: boolean, signal?: AbortSignal): Promise<Uint8Array | undefined> {
    const piece = frame.pieces[kind];
    if (piece === undefined) return undefined;
    const count = together[piece.store];
    const bytes =
      (withNeighbours && count !== undefined ? await this.#fromBlock(frame, piece, count) : undefined) ??
      (await fetchRange(this.#address(piece.store), piece.offset, piece.length, signal));
    signal?.throwIfAborted();
    return check(bytes, piece);
  }

  /** An element of frames that follow one another, all in one request, which nothing is kept of. */
  async elements(frames: PackedFrame[], kind: PackedElement, signal?: AbortSignal): Promise<(Uint8Array | undefined)[]> {
    const pieces = frames.flatMap((frame) => frame.pieces[kind] ?? []);
    const [first, last] = [pieces[0], pieces.at(-1)];
    if (first === undefined || last === undefined) return frames.map(() => undefined);
    const bytes = await fetchRange(this.#address(first.store), first.offset, last.offset + last.length - first.offset, signal);
    return frames.map(({ pieces }) => {
      const piece = pieces[kind];
      return piece && check(bytes.subarray(piece.offset - first.offset, piece.offset - first.offset + piece.length), piece);
    });
  }

  async #fromBlock({ place }: PackedFrame, piece: Piece, count: number): Promise<Uint8Array | undefined> {
    const records = await this.block(Math.floor(place / framesOfBlock));
    const start = Math.floor((place % framesOfBlock) / count) * count;
    const pieces = records.slice(start, start + count).flatMap(({ pieces }) => Object.values(pieces)).filter(({ store }) => store === piece.store);
    const from = Math.min(...pieces.map(({ offset }) => offset));
    const length = Math.max(...pieces.map(({ offset, length }) => offset + length)) - from;
    if (length > mostBytesTogether) return undefined;
    const key = `${piece.store} ${from}`;
    let block = this.#blocks.get(key);
    this.#blocks.delete(key);
    if (block === undefined) {
      // Nobody's signal: several wait for it.
      block = fetchRange(this.#address(piece.store), from, length);
      block.catch(() => this.#blocks.delete(key));
    }
    this.#blocks.set(key, block);
    for (const oldest of [...this.#blocks.keys()].slice(0, -blocksKept)) this.#blocks.delete(oldest);
    return (await block).subarray(piece.offset - from, piece.offset - from + piece.length);
  }

  #address(store: Store): string {
    const url = new URL(this.#url);
    url.pathname = url.pathname.replace(/index$/, store);
    return url.href;
  }
}

/** The bytes, if they are those that the index means; RangeError otherwise. */
export function check(bytes: Uint8Array, piece: Piece): Uint8Array {
  if (bytes.length !== piece.length || crc32c(bytes) !== piece.sum) throw new RangeError(`.${piece.store} of the pack is damaged`);
  return bytes;
}
