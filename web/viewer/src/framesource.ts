import { check, Decoder, type FrameDescription, joined, type Pack, type PackedFrame, type Picture, type Piece, readElement, type WorkerPool } from '@vintak/decoder';

import { fetchFile } from './carried.js';

/** A picture of a frame and how much of its stream it was made of. */
export interface Shown {
  picture: Picture;
  /** Bytes of the stream's files that have come, and of all of them where that is known. */
  bytes: number;
  totalBytes: number | undefined;
  stage: 'preview' | 'part' | 'exact' | 'damaged';
}

/** How much of a frame's stream has come; of how much, where that is known. */
export interface Received {
  bytes: number;
  totalBytes: number | undefined;
}

/** Why a file of a frame could not be had, for people. */
export class FileError extends Error {}

/** A preview's payload that is shorter was not cut: it is the whole stream. */
const wholePreviewSize = 4096;
/** Pixels up to which an unfinished picture is decoded in full size; a larger one reduced. */
const mostPreviewPixels = 1 << 19;
const mostEarlyPixels = 1 << 16;
/** Milliseconds before the end of a transfer in which no picture of a part is begun: it would hold up the exact one. */
const partPictureTime = 300;
const mostPartPixels = 1 << 22;

export function reduceFor({ columns, rows }: { columns: number; rows: number }, mostPixels: number): number {
  let reduce = 0;
  while (Math.ceil(columns / 2 ** reduce) * Math.ceil(rows / 2 ** reduce) > mostPixels) ++reduce;
  return reduce;
}

/** Where the files of a frame are: the address that their names begin with, or a frame of a pack. */
export type FrameFiles = string | { pack: Pack; frame: PackedFrame };

type StreamPart = 'preview' | 'head' | 'rest';
const suffixes: Record<StreamPart, string> = { preview: '.p.qi4', head: '.t.qi4', rest: '.f.qi4' };

/** A file of a frame, for people. */
function nameOf(files: FrameFiles, part: StreamPart): string {
  return typeof files === 'string' ? fileName(files + suffixes[part]) : `${suffixes[part]} of frame ${files.frame.place + 1}`;
}

/** What a pack says is wrong becomes a FileError. */
async function told<Value>(work: Promise<Value>, signal: AbortSignal): Promise<Value> {
  try {
    return await work;
  } catch (error) {
    if (signal.aborted) throw error;
    throw new FileError(error instanceof RangeError ? error.message : 'the connection was lost');
  }
}

function pieceOf(files: FrameFiles, part: StreamPart): Piece | undefined {
  return typeof files === 'string' ? undefined : files.frame.pieces[part];
}

/** `ahead`: nobody waits for it yet, and of a pack the neighbours' may come with it. */
async function openPart(files: FrameFiles, part: StreamPart, ahead: boolean, signal: AbortSignal): Promise<Response> {
  if (typeof files === 'string') return open(files + suffixes[part], signal);
  const piece = files.frame.pieces[part];
  if (piece === undefined) throw new FileError(`${nameOf(files, part)} is missing`);
  if (!ahead || part === 'rest') return told(files.pack.open(piece, signal), signal);
  const bytes = (await told(files.pack.element(files.frame, part, true, signal), signal)) as Uint8Array<ArrayBuffer>;
  return new Response(bytes, { headers: { 'content-length': String(bytes.length) } });
}

async function fetchPart(files: FrameFiles, part: StreamPart, ahead: boolean, signal: AbortSignal): Promise<Uint8Array> {
  return whole(await read(await openPart(files, part, ahead, signal), signal), files, part);
}

/** The parts of a file in one piece, and those that were meant. */
function whole(parts: Uint8Array[], files: FrameFiles, part: StreamPart): Uint8Array {
  const bytes = joined(parts);
  const piece = pieceOf(files, part);
  try {
    return piece ? check(bytes, piece) : bytes;
  } catch (error) {
    throw new FileError(`${nameOf(files, part)}: ${(error as Error).message}`);
  }
}

async function open(url: string, signal: AbortSignal): Promise<Response> {
  let response: Response;
  try {
    response = await fetchFile(url, signal);
  } catch (error) {
    if (signal.aborted) throw error;
    throw new FileError(`the connection was lost (${fileName(url)})`);
  }
  if (response.ok) return response;
  throw new FileError(response.status === 404 ? `${fileName(url)} is missing` : `${fileName(url)}: the server answers ${response.status}`);
}

function fileName(url: string): string {
  return decodeURIComponent(new URL(url).pathname.split('/').pop() ?? url);
}

/** The bytes of a file; `onPart` hears of them as they come. */
async function read(response: Response, signal: AbortSignal, onPart?: (parts: Uint8Array[], bytes: number) => void): Promise<Uint8Array[]> {
  const reader = response.body?.getReader();
  const parts: Uint8Array[] = [];
  let bytes = 0;
  try {
    for (;;) {
      const { done, value } = (await reader?.read()) ?? { done: true, value: undefined };
      if (done || value === undefined) return parts;
      parts.push(value);
      bytes += value.length;
      onPart?.(parts, bytes);
    }
  } catch (error) {
    if (signal.aborted) throw error;
    throw new FileError(`the connection was lost${response.url ? ` (${fileName(response.url)})` : ''}`);
  }
}

/** Runs a task when what was shown is on the screen. */
export function afterPaint(task: () => void): void {
  requestAnimationFrame(() => setTimeout(task));
}

export async function fetchBytes(url: string, signal: AbortSignal): Promise<Uint8Array> {
  const parts = await read(await open(url, signal), signal);
  return joined(parts);
}

/** The bytes of a body, where the server says it and they come as they are. */
function lengthOf(response: Response): number | undefined {
  const length = response.headers.get('content-length');
  return length === null || response.headers.has('content-encoding') ? undefined : Number(length);
}

/** Payload of a stream's element; FileError where it is none. */
function payloadOf(bytes: Uint8Array, name: string): Uint8Array {
  try {
    return readElement(bytes).payload;
  } catch {
    throw new FileError(`${name} is damaged`);
  }
}

/** What whoever loads a whole frame is told, and asked. */
export interface WholeEvents {
  /** There is a better picture. */
  show(shown: Shown): void;
  /** So much of the stream has come. */
  received(received: Received): void;
  /** Whether somebody looks at this frame now: its decoding goes first, and gives pictures in between. */
  onScreen(): boolean;
}

/** Loads frames stage by stage. */
export class FrameSource {
  readonly #pool: WorkerPool;
  #ahead: { stem: string; bytes: Promise<Uint8Array> } | undefined;

  constructor(pool: WorkerPool) {
    this.#pool = pool;
  }

  /** Asks for a preview before its frame's description is there; it is used if it is the right one. */
  fetchAhead(stem: string, signal: AbortSignal): void {
    const bytes = fetchBytes(`${stem}.p.qi4`, signal);
    bytes.catch(() => undefined);
    this.#ahead = { stem, bytes };
  }

  /** The preview alone, small. */
  async preview(files: FrameFiles, frame: FrameDescription, priority: number, signal: AbortSignal): Promise<Shown> {
    return this.#decodePreview(await this.#previewPayload(files, true, signal), frame, priority, signal);
  }

  /** Everything up to the exact picture. `havePreview`: it has been shown already. */
  async whole(files: FrameFiles, frame: FrameDescription, havePreview: boolean, signal: AbortSignal, events: WholeEvents): Promise<void> {
    if (!havePreview && (await this.#showPreview(files, frame, signal, events))) return;
    const headResponse = await openPart(files, 'head', !events.onScreen(), signal);
    const headLength = lengthOf(headResponse);
    // The rest is asked for while the head's second half comes: it takes little from it, and the line is never idle.
    let restOpening: Promise<Response> | undefined;
    const openRest = (): Promise<Response> => {
      restOpening ??= openPart(files, 'rest', false, signal);
      restOpening.catch(() => undefined);
      return restOpening;
    };
    const headParts = await read(headResponse, signal, (_, bytes) => bytes >= (headLength ?? Infinity) / 2 && void openRest());
    const head = payloadOf(whole(headParts, files, 'head'), nameOf(files, 'head'));
    let totalBytes: number | undefined;
    const part = new PartPictures(this.#pool, frame, signal, events);
    const take = (parts: Uint8Array[], bytes: number): void => {
      events.received({ bytes, totalBytes });
      part.offer({ parts, bytes, totalBytes });
    };
    take([head], head.length);
    const restResponse = await openRest();
    const restLength = lengthOf(restResponse);
    if (restLength !== undefined) totalBytes = head.length + restLength;
    const rest = await read(restResponse, signal, (parts, bytes) => take([head, ...parts], head.length + bytes));
    part.end();
    if (pieceOf(files, 'rest')) whole(rest, files, 'rest');
    const bytes = head.length + rest.reduce((sum, piece) => sum + piece.length, 0);
    const picture = await this.#pool.decode([head, ...rest], { priority: events.onScreen() ? 11 : 2, signal });
    events.show({ picture, bytes, totalBytes: bytes, stage: stageOf(picture, 'part') });
    if (picture.completeness === 'damaged') throw new FileError(`the stream of frame ${frame.frame} is damaged: the picture is not complete`);
    if (picture.completeness === 'part') throw new FileError(`the stream of frame ${frame.frame} ends early: the picture is not complete`);
  }

  /** Shows the preview, while others may go on as soon as its bytes are there. True: it was the whole frame. */
  async #showPreview(files: FrameFiles, frame: FrameDescription, signal: AbortSignal, events: WholeEvents): Promise<boolean> {
    // A preview that is missing or damaged is no reason to miss the rest.
    const unlessAborted = (error: unknown): undefined => {
      if (signal.aborted) throw error;
    };
    const payload = await this.#previewPayload(files, !events.onScreen(), signal).catch(unlessAborted);
    if (payload === undefined) return false;
    const decoding = this.#decodePreview(payload, frame, events.onScreen() ? 12 : 3, signal).then((shown) => {
      if (!signal.aborted) events.show(shown);
      if (shown.picture.reduce > reduceFor(frame, mostPreviewPixels)) afterPaint(() => this.#showLarger(payload, frame, signal, events));
      return shown.stage === 'exact';
    });
    if (payload.length < wholePreviewSize) return (await decoding.catch(unlessAborted)) ?? false;
    decoding.catch(() => undefined);
    return false;
  }

  /** The picture that was made small so that it was there early, in the size of others. */
  #showLarger(payload: Uint8Array, frame: FrameDescription, signal: AbortSignal, events: WholeEvents): void {
    if (signal.aborted) return;
    this.#pool.start();
    this.#decodePreview(payload, frame, 12, signal).then(events.show, () => undefined);
  }

  async #previewPayload(files: FrameFiles, isAhead: boolean, signal: AbortSignal): Promise<Uint8Array> {
    const ahead = this.#ahead?.stem === files ? this.#ahead.bytes : undefined;
    if (ahead) this.#ahead = undefined;
    const bytes = await ahead?.catch(() => undefined);
    signal.throwIfAborted();
    return payloadOf(bytes ?? (await fetchPart(files, 'preview', isAhead, signal)), nameOf(files, 'preview'));
  }

  async #decodePreview(payload: Uint8Array, frame: FrameDescription, priority: number, signal: AbortSignal): Promise<Shown> {
    const picture = await (this.#pool.isStarted
      ? this.#pool.decode(payload, { reduce: reduceFor(frame, mostPreviewPixels), priority, signal })
      : this.#decodeEarly(payload, frame, signal));
    const stage = stageOf(picture, 'preview');
    return { picture, bytes: payload.length, totalBytes: stage === 'exact' ? payload.length : undefined, stage };
  }

  /** On this thread, before there are Workers: one takes longer to start than a picture of this size to be made. */
  async #decodeEarly(payload: Uint8Array, frame: FrameDescription, signal: AbortSignal): Promise<Picture> {
    const decoder = new Decoder(await this.#pool.module);
    signal.throwIfAborted();
    return decoder.decode(payload, { reduce: reduceFor(frame, mostEarlyPixels) });
  }
}

function stageOf(picture: Picture, unfinished: Shown['stage']): Shown['stage'] {
  if (picture.completeness === 'damaged') return 'damaged';
  return picture.completeness === 'exact' && picture.reduce === 0 ? 'exact' : unfinished;
}

/** What has come of a stream. */
interface Arrived extends Received {
  parts: Uint8Array[];
}

/** Decodes what has come of a stream on the screen whenever it has doubled and the last picture is done. */
class PartPictures {
  #busy = false;
  #ended = false;
  #decoded = 0;
  /** The first bytes that came, and when. */
  #first: { bytes: number; time: number } | undefined;
  /** What came while a picture was being decoded, or when the exact one seemed near. */
  #waiting: Arrived | undefined;
  #timer: ReturnType<typeof setTimeout> | undefined;

  constructor(
    private readonly pool: WorkerPool,
    private readonly frame: FrameDescription,
    private readonly signal: AbortSignal,
    private readonly events: WholeEvents,
  ) {}

  offer(arrived: Arrived): void {
    this.#first ??= { bytes: arrived.bytes, time: performance.now() };
    this.#waiting = arrived;
    if (this.#busy || this.#ended || arrived.bytes < 2 * this.#decoded || !this.events.onScreen()) return;
    if (!this.#isNearlyThere(arrived)) this.#decode();
    // The line may come to stand still after all.
    else this.#timer ??= setTimeout(() => {
      this.#timer = undefined;
      this.#decode();
    }, partPictureTime);
  }

  /** Whether the exact picture is not far, as fast as the bytes have come. */
  #isNearlyThere({ bytes, totalBytes }: Received): boolean {
    if (totalBytes === undefined || this.#first === undefined || bytes === this.#first.bytes) return false;
    const bytesPerMillisecond = (bytes - this.#first.bytes) / (performance.now() - this.#first.time);
    return bytes > 0.7 * totalBytes || totalBytes - bytes < partPictureTime * bytesPerMillisecond;
  }

  #decode(): void {
    const arrived = this.#waiting;
    if (arrived === undefined || this.#busy || this.#ended || this.signal.aborted) return;
    this.#waiting = undefined;
    this.#busy = true;
    this.#decoded = arrived.bytes;
    this.pool
      .decode(arrived.parts, { reduce: reduceFor(this.frame, mostPartPixels), priority: 10, signal: this.signal })
      .then((picture) => {
        if (!this.#ended) this.events.show({ picture, bytes: arrived.bytes, totalBytes: arrived.totalBytes, stage: stageOf(picture, 'part') });
      })
      .catch(() => undefined)
      .finally(() => {
        this.#busy = false;
        if (this.#waiting) this.offer(this.#waiting);
      });
  }

  /** The whole stream is there: no other picture shall come after the exact one. */
  end(): void {
    this.#ended = true;
    clearTimeout(this.#timer);
  }
}
