import { crc32c } from './crc32c.js';
import type { FrameDescription } from './descriptor.js';

/** The files of a pack, by their suffix. */
export type Store = 'small' | 'heads' | 'rests' | 'raws' | 'objects';
const stores: Store[] = ['small', 'heads', 'rests', 'raws', 'objects'];

/** What a frame may have: in the order of the record, and where it lies. */
export type PackedElement = 'preview' | 'thumbnail' | 'head' | 'rest' | 'raw' | 'thumbnailPixels';
const elements: [PackedElement, Store][] = [
  ['preview', 'small'], ['thumbnail', 'small'], ['head', 'heads'], ['rest', 'rests'], ['raw', 'raws'], ['thumbnailPixels', 'raws'],
];

/** A part of a file. */
export interface Piece {
  store: Store;
  offset: number;
  length: number;
  sum: number;
}

export interface PackedFrame {
  /** In viewing order, from 0. */
  place: number;
  object: number;
  /** What the record says; texts and geometry are empty, they stand in the frame's line. */
  description: FrameDescription;
  pieces: Partial<Record<PackedElement, Piece>>;
  /** Of the line of the descriptor, among the texts of the index. */
  line: { offset: number; length: number };
}

export interface PackHead {
  frames: number;
  objects: number;
  textBytes: number;
  storeBytes: Record<Store, number>;
}

export const headSize = 128;
export const frameSize = 184;
const objectSize = 104;
const mostRecords = 2 ** 32 - 1;

/** Offset of the texts in the index's file. */
export function textsAt({ frames, objects }: PackHead): number {
  return headSize + frames * frameSize + objects * objectSize;
}

function viewOf(bytes: Uint8Array, at: number, size: number, sumAt: number, what: string): DataView {
  if (bytes.length < at + size) throw new RangeError(`the index ends within ${what}`);
  const view = new DataView(bytes.buffer, bytes.byteOffset + at, size);
  if (view.getUint32(sumAt, true) !== crc32c(bytes.subarray(at, at + sumAt))) throw new RangeError(`the checksum of ${what} is wrong`);
  return view;
}

/** NaN for what no file is as long as. */
function size(view: DataView, at: number): number {
  const value = view.getBigUint64(at, true);
  return value <= BigInt(Number.MAX_SAFE_INTEGER) ? Number(value) : NaN;
}

/** Throws RangeError for what is no head of an index. Nothing is said of how long the file is. */
export function readPackHead(bytes: Uint8Array): PackHead {
  if (bytes.length < 8 || new DataView(bytes.buffer, bytes.byteOffset).getUint32(0) !== 0x5650414b) throw new RangeError('this is no index of a pack');
  const version = (bytes[4] as number) + 256 * (bytes[5] as number);
  if (version !== 1) throw new RangeError(`the index is of version ${version}, which is not known`);
  const view = viewOf(bytes, 0, headSize, 124, 'the head');
  const head = { frames: size(view, 8), objects: size(view, 16), textBytes: size(view, 32), storeBytes: {} as Record<Store, number> };
  stores.forEach((store, i) => (head.storeBytes[store] = size(view, 40 + 8 * i)));
  const isKnown = view.getUint16(6, true) === headSize && view.getUint32(24, true) === frameSize && view.getUint32(28, true) === objectSize;
  const areSizes = [head.textBytes, ...Object.values(head.storeBytes)].every((value) => Number.isSafeInteger(value));
  if (!isKnown || !areSizes || !(head.frames <= mostRecords) || !(head.objects <= mostRecords)) throw new RangeError('the head of the index makes no sense');
  return head;
}

function readFrame(bytes: Uint8Array, at: number, place: number, head: PackHead): PackedFrame {
  const view = viewOf(bytes, at, frameSize, 176, `the record of frame ${place + 1}`);
  const [columns, rows, layout, present] = [view.getUint16(8, true), view.getUint16(10, true), view.getUint8(12), view.getUint8(15)];
  const [object, number] = [view.getUint32(0, true), view.getUint32(4, true)];
  const value = (i: number): number => view.getFloat64(16 + 8 * i, true);
  const line = { offset: size(view, 64), length: view.getUint32(72, true) };
  const pieces: PackedFrame['pieces'] = {};
  elements.forEach(([kind, store], i) => {
    if (!(present & (1 << i))) return;
    const from = 80 + 16 * i;
    const piece = { store, offset: size(view, from), length: view.getUint32(from + 8, true), sum: view.getUint32(from + 12, true) };
    if (!(piece.offset + piece.length <= head.storeBytes[store])) throw new RangeError(`the record of frame ${place + 1} points past the end of a file`);
    pieces[kind] = piece;
  });
  if (present >= 1 << elements.length || layout > 1 || columns * rows === 0 || number === 0 || object >= head.objects || !(line.offset + line.length <= head.textBytes))
    throw new RangeError(`the record of frame ${place + 1} makes no sense`);
  const description: FrameDescription = {
    frame: number, columns, rows, layout: layout === 1 ? 'bypixel' : 'mono', bits: view.getUint8(13), bitsUsed: view.getUint8(14),
    rescaleIntercept: value(0), rescaleSlope: value(1), windowWidth: value(2), windowCenter: value(3), spacing: [value(4), value(5)],
    frameOfReferenceUID: '', imagePosition: [], imageOrientation: [], patientOrientation: [],
  };
  return { place, object, description, pieces, line };
}

/** The records of frames from `first` on that `bytes` hold. Throws RangeError for what is damaged or points past an end. */
export function readPackFrames(bytes: Uint8Array, first: number, head: PackHead): PackedFrame[] {
  return Array.from({ length: Math.floor(bytes.length / frameSize) }, (_, i) => readFrame(bytes, i * frameSize, first + i, head));
}
