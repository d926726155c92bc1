import { type FrameDescription, type Picture, readElement, type WorkerPool } from '@vintak/decoder';

/** A picture of a frame and how much of its stream it was made of. */
export interface Shown {
  picture: Picture;
  /** Bytes of the stream's files that have come, and of all of them where that is known. */
  bytes: number;
  totalBytes: number | undefined;
  stage: 'preview' | 'part' | 'exact' | 'damaged';
}

/** Why a file of a frame could not be had, for people. */
export class FileError extends Error {}

/** Pixels up to which an unfinished picture is decoded in full size; a larger one reduced. */
const mostPreviewPixels = 1 << 19;
const mostPartPixels = 1 << 22;

export function reduceFor({ columns, rows }: { columns: number; rows: number }, mostPixels: number): number {
  let reduce = 0;
  while (Math.ceil(columns / 2 ** reduce) * Math.ceil(rows / 2 ** reduce) > mostPixels) ++reduce;
  return reduce;
}

async function open(url: string, signal: AbortSignal): Promise<Response> {
  let response: Response;
  try {
    response = await fetch(url, { signal });
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
    throw new FileError(`the connection was lost (${fileName(response.url)})`);
  }
}

export async function fetchBytes(url: string, signal: AbortSignal): Promise<Uint8Array> {
  const parts = await read(await open(url, signal), signal);
  return joined(parts);
}

function joined(parts: Uint8Array[]): Uint8Array {
  if (parts.length === 1) return parts[0] as Uint8Array;
  const whole = new Uint8Array(parts.reduce((sum, part) => sum + part.length, 0));
  let at = 0;
  for (const part of parts) {
    whole.set(part, at);
    at += part.length;
  }
  return whole;
}

function lengthOf(response: Response): number {
  return Number(response.headers.get('content-length') ?? 0);
}

/** Payload of a stream's element; FileError where it is none. */
function payloadOf(bytes: Uint8Array, url: string): Uint8Array {
  try {
    return readElement(bytes).payload;
  } catch {
    throw new FileError(`${fileName(url)} is damaged`);
  }
}

/** Loads frames stage by stage. `stem` is the address of a frame's files without their suffix. */
export class FrameSource {
  readonly #pool: WorkerPool;

  constructor(pool: WorkerPool) {
    this.#pool = pool;
  }

  /** The preview alone, small. */
  async preview(stem: string, frame: FrameDescription, priority: number, signal: AbortSignal): Promise<Shown> {
    const url = `${stem}.p.qi4`;
    const payload = payloadOf(await fetchBytes(url, signal), url);
    const picture = await this.#pool.decode(payload, { reduce: reduceFor(frame, mostPreviewPixels), priority, signal });
    return { picture, bytes: payload.length, totalBytes: undefined, stage: stageOf(picture, 'preview') };
  }

  /** Everything up to the exact picture; `show` gets each better one. `havePreview`: it has been shown already. */
  async whole(stem: string, frame: FrameDescription, havePreview: boolean, priority: number, signal: AbortSignal, show: (shown: Shown) => void): Promise<void> {
    if (!havePreview) {
      // A preview that is missing is no reason to miss the rest.
      const shown = await this.preview(stem, frame, priority + 2, signal).catch((error) => {
        if (signal.aborted) throw error;
      });
      if (shown) show(shown);
    }
    const [headUrl, restUrl] = [`${stem}.t.qi4`, `${stem}.f.qi4`];
    const [headResponse, restResponse] = await Promise.all([open(headUrl, signal), open(restUrl, signal)]);
    const totalBytes = lengthOf(headResponse) - 24 + lengthOf(restResponse);
    const head = payloadOf(joined(await read(headResponse, signal)), headUrl);
    const part = new PartPictures(this.#pool, frame, priority, totalBytes, signal, show);
    part.offer([head], head.length);
    const rest = await read(restResponse, signal, (parts, bytes) => part.offer([head, ...parts], head.length + bytes));
    part.end();
    const bytes = head.length + rest.reduce((sum, piece) => sum + piece.length, 0);
    const picture = await this.#pool.decode([head, ...rest], { priority: priority + 1, signal });
    show({ picture, bytes, totalBytes: bytes, stage: stageOf(picture, 'part') });
    if (picture.completeness === 'damaged') throw new FileError(`the stream of frame ${frame.frame} is damaged: the picture is not complete`);
    if (picture.completeness === 'part') throw new FileError(`the stream of frame ${frame.frame} ends early: the picture is not complete`);
  }
}

function stageOf(picture: Picture, unfinished: Shown['stage']): Shown['stage'] {
  if (picture.completeness === 'damaged') return 'damaged';
  return picture.completeness === 'exact' && picture.reduce === 0 ? 'exact' : unfinished;
}

/** Decodes what has come of a stream whenever it has doubled and the last picture is done. */
class PartPictures {
  #busy = false;
  #ended = false;
  #decoded = 0;

  constructor(
    private readonly pool: WorkerPool,
    private readonly frame: FrameDescription,
    private readonly priority: number,
    private readonly totalBytes: number,
    private readonly signal: AbortSignal,
    private readonly show: (shown: Shown) => void,
  ) {}

  offer(parts: Uint8Array[], bytes: number): void {
    // Near the end the exact picture is not far.
    if (this.#busy || this.#ended || bytes < 2 * this.#decoded || bytes > 0.7 * this.totalBytes) return;
    this.#busy = true;
    this.#decoded = bytes;
    this.pool
      .decode([...parts], { reduce: reduceFor(this.frame, mostPartPixels), priority: this.priority, signal: this.signal })
      .then((picture) => {
        if (!this.#ended) this.show({ picture, bytes, totalBytes: this.totalBytes, stage: stageOf(picture, 'part') });
      })
      .catch(() => undefined)
      .finally(() => (this.#busy = false));
  }

  /** The whole stream is there: no other picture shall come after the exact one. */
  end(): void {
    this.#ended = true;
  }
}
