import { type FrameDescription, framesOfBlock, Pack, type PackedFrame, parseDescriptor } from '@vintak/decoder';

import { ByteCache } from './cache.js';
import { type FrameFiles, type FrameSource, fetchBytes, type Received, type Shown } from './framesource.js';
import type { ViewedObject } from './objectlist.js';
import { Scheduler, type Task } from './scheduler.js';

/** What a stack tells whoever shows it. */
export interface StackEvents {
  /** Another frame is wanted, or there is another picture of it (none yet: undefined). */
  frame(frame: FrameDescription | undefined, shown: Shown | undefined): void;
  /** Something of the frame in view could not be had; null when there is nothing to complain of. */
  problem(text: string | null): void;
  /** More of the frame in view has come. */
  received(received: Received): void;
  /** An object's first picture is on the screen, or none will come: there is time for other things. */
  settled(): void;
}

/** Neighbours on each side whose whole frames are loaded, and whose previews are. */
const mostWholeNeighbours = 4;
const previewNeighbours = 40;
const loadsAtOnce = 4;

/**
 * One object's frames: which is in view, what is loaded for it and around it, in which order. What was decoded is kept in a
 * cache with a bound in bytes; answers for frames that are no longer in view go there and nowhere else.
 */
export class Stack {
  readonly #source: FrameSource;
  readonly #events: StackEvents;
  readonly #cache: ByteCache<Shown>;
  readonly #cacheBytes: number;
  readonly #scheduler = new Scheduler(loadsAtOnce);
  /** By task: what could not be had. */
  readonly #problems = new Map<string, string>();
  #object: ViewedObject | undefined;
  /** Of a pack, with holes where the records have not come yet. */
  #frames: FrameDescription[] = [];
  #pack: { pack: Pack; frames: PackedFrame[]; asked: Set<number> } | undefined;
  #index = 0;
  #direction = 1;
  #opening = new AbortController();
  #descriptorProblem: string | null = null;

  constructor(source: FrameSource, cacheBytes: number, events: StackEvents) {
    this.#source = source;
    this.#events = events;
    this.#cache = new ByteCache(cacheBytes);
    this.#cacheBytes = cacheBytes;
  }

  get object(): ViewedObject | undefined {
    return this.#object;
  }
  get frames(): readonly FrameDescription[] {
    return this.#frames;
  }
  get index(): number {
    return this.#index;
  }
  get cachedBytes(): number {
    return this.#cache.bytes;
  }

  /** What is wrong with the object as a whole, or with so many of its frames; null when nothing is known to be. */
  get trouble(): string | null {
    if (this.#descriptorProblem !== null) return this.#descriptorProblem;
    const texts = [...this.#problems].filter(([key]) => key.startsWith('whole')).map(([, text]) => text);
    return texts.length > 1 ? `${texts.length} frames could not be had` : (texts[0] ?? null);
  }

  /** Opens an object at its middle frame. */
  async open(object: ViewedObject): Promise<void> {
    this.#opening.abort();
    this.#opening = new AbortController();
    const { signal } = this.#opening;
    this.#scheduler.want([]);
    this.#problems.clear();
    this.#object = object;
    this.#frames = [];
    this.#pack = undefined;
    this.#descriptorProblem = null;
    this.#events.frame(undefined, undefined);
    this.#events.problem(object.error);
    if (object.descriptor === null) {
      this.#events.settled();
      return;
    }
    if (new URL(object.descriptor).pathname.endsWith('.index')) {
      await this.#openPack(object.descriptor, signal);
      return;
    }
    // Frames are numbered from 1 unless only one of them was converted.
    if (object.frames > 0) this.#source.fetchAhead(`${object.prefix}_${(object.frames >> 1) + 1}`, signal);
    try {
      const frames = parseDescriptor(new TextDecoder().decode(await fetchBytes(object.descriptor, signal)));
      // Another object may have been opened while this one's descriptor was on its way.
      signal.throwIfAborted();
      if (frames.length === 0) throw new Error('the descriptor names no frame');
      this.#frames = frames;
    } catch (error) {
      if (signal.aborted) return;
      this.#descriptorProblem = messageOf(error);
      this.#events.problem(this.#descriptorProblem);
      this.#events.settled();
      return;
    }
    this.#index = this.#frames.length >> 1;
    this.#show();
  }

  async #openPack(index: string, signal: AbortSignal): Promise<void> {
    try {
      const pack = await Pack.open(index, signal);
      signal.throwIfAborted();
      if (pack.frameCount === 0) throw new Error('the pack has no frame');
      this.#frames = new Array<FrameDescription>(pack.frameCount);
      this.#pack = { pack, frames: [], asked: new Set() };
    } catch (error) {
      if (signal.aborted) return;
      this.#descriptorProblem = error instanceof TypeError ? 'the connection was lost' : messageOf(error);
      this.#events.problem(this.#descriptorProblem);
      this.#events.settled();
      return;
    }
    this.#index = this.#frames.length >> 1;
    this.#show();
  }

  /** Has the records of frames, and of those beside them, fetched from the pack. */
  #fetchRecords(...wanted: number[]): void {
    const known = this.#pack;
    if (known === undefined) return;
    for (const index of wanted) {
      const block = Math.floor(Math.min(Math.max(index, 0), this.#frames.length - 1) / framesOfBlock);
      if (known.asked.has(block)) continue;
      known.asked.add(block);
      known.pack.block(block).then(
        (frames) => {
          if (this.#pack !== known) return;
          for (const frame of frames) {
            known.frames[frame.place] = frame;
            this.#frames[frame.place] = frame.description;
            // What was said of them was that they could not be had.
            this.#problems.delete(this.#wholeKey(frame.place));
          }
          if (frames.some(({ place }) => place === this.#index)) this.#show();
          else if (this.#frames[this.#index] !== undefined) this.#want();
        },
        (error) => {
          if (this.#pack !== known) return;
          known.asked.delete(block);
          if (block !== Math.floor(this.#index / framesOfBlock)) return;
          this.#problems.set(this.#wholeKey(this.#index), error instanceof TypeError ? 'the connection was lost' : messageOf(error));
          this.#events.problem(this.#problems.get(this.#wholeKey(this.#index)) ?? null);
          this.#events.settled();
        },
      );
    }
  }

  /** Brings another frame into view; beyond the ends, the end's. */
  goTo(index: number): void {
    const to = Math.min(Math.max(index, 0), this.#frames.length - 1);
    if (to === this.#index || this.#frames.length === 0) return;
    this.#direction = to > this.#index ? 1 : -1;
    this.#index = to;
    this.#show();
  }

  /** Tries again what could not be had. */
  retry(): void {
    if (this.#object === undefined) return;
    if (this.#frames.length === 0) {
      void this.open(this.#object);
      return;
    }
    for (const key of this.#problems.keys()) this.#scheduler.forget(key);
    this.#problems.clear();
    this.#show();
  }

  #show(): void {
    const frame = this.#frames[this.#index];
    this.#events.frame(frame, this.#cache.get(this.#keyOf(this.#index)));
    this.#events.problem(this.#problems.get(this.#wholeKey(this.#index)) ?? null);
    if (frame === undefined) {
      this.#scheduler.want([]);
      this.#fetchRecords(this.#index);
    } else this.#want();
  }

  /**
   * The frame in view first; the previews around it once it has a picture; whole neighbours, those ahead first, once it has
   * all that it will have.
   */
  #want(): void {
    const current = this.#cache.get(this.#keyOf(this.#index));
    const isSettled = current?.stage === 'exact' || this.#problems.has(this.#wholeKey(this.#index));
    // Those of the neighbours take nothing from the first picture.
    if (isSettled || current !== undefined) this.#fetchRecords(this.#index - previewNeighbours, this.#index + previewNeighbours);
    const previews = this.#around(previewNeighbours)
      .filter((index) => this.#cache.get(this.#keyOf(index)) === undefined)
      .map((index) => this.#previewTask(index));
    const whole = this.#wholeTask(this.#index);
    const tasks = isSettled
      ? [whole, ...previews.slice(0, 6), ...this.#around(this.#wholeNeighbours()).map((index) => this.#wholeTask(index)), ...previews.slice(6)]
      : [whole, ...previews];
    // What was loaded once may have left the cache since; what failed waits for retry().
    for (const { key } of tasks) if (!this.#problems.has(key)) this.#scheduler.forget(key);
    this.#scheduler.want(tasks, isSettled || current !== undefined ? tasks.length : 1);
  }

  /** Frames up to so far away, the nearest first, and of those the one ahead. */
  #around(count: number): number[] {
    return Array.from({ length: count }, (_, i) => [this.#index + (i + 1) * this.#direction, this.#index - (i + 1) * this.#direction])
      .flat()
      .filter((index) => this.#frames[index] !== undefined);
  }

  /** As many on each side as the cache can hold beside the frame in view. */
  #wholeNeighbours(): number {
    const { columns, rows, bits, layout } = this.#frames[this.#index] as FrameDescription;
    const frameBytes = (columns * rows * bits * (layout === 'mono' ? 1 : 3)) / 8;
    return Math.max(0, Math.min(mostWholeNeighbours, Math.floor((this.#cacheBytes / frameBytes - 1) / 2)));
  }

  #wholeTask(index: number): Task {
    const cacheKey = this.#keyOf(index);
    const key = this.#wholeKey(index);
    const isCurrent = (): boolean => cacheKey === this.#keyOf(this.#index);
    return {
      key,
      run: async (signal) => {
        const known = this.#cache.get(cacheKey);
        if (known?.stage === 'exact') return;
        const events = {
          show: (shown: Shown) => this.#take(index, cacheKey, shown),
          received: (received: Received) => isCurrent() && this.#events.received(received),
          onScreen: isCurrent,
        };
        await this.#source
          .whole(this.#filesOf(index), this.#frames[index] as FrameDescription, known !== undefined, signal, events)
          .catch((error) => this.#fail(index, key, error, signal));
      },
    };
  }

  #previewTask(index: number): Task {
    const cacheKey = this.#keyOf(index);
    const key = `preview ${cacheKey}`;
    return {
      key,
      run: async (signal) => {
        if (this.#cache.get(cacheKey) !== undefined) return;
        await this.#source
          .preview(this.#filesOf(index), this.#frames[index] as FrameDescription, 0, signal)
          .then((shown) => this.#take(index, cacheKey, shown))
          .catch((error) => this.#fail(index, key, error, signal));
      },
    };
  }

  #take(index: number, cacheKey: string, shown: Shown): void {
    // An object that was opened since has other keys.
    if (cacheKey !== this.#keyOf(index)) return;
    const known = this.#cache.get(cacheKey);
    // A preview that was asked for earlier may come later.
    if (known !== undefined && known.stage !== 'damaged' && (known.stage === 'exact' || shown.bytes < known.bytes)) return;
    this.#cache.put(cacheKey, shown, shown.picture.pixels.byteLength);
    if (index !== this.#index) return;
    this.#events.frame(this.#frames[index], shown);
    this.#events.settled();
    if (known === undefined || shown.stage === 'exact') this.#want();
  }

  #fail(index: number, key: string, error: unknown, signal: AbortSignal): never {
    if (signal.aborted || !key.endsWith(` ${this.#keyOf(index)}`)) throw error;
    this.#problems.set(key, messageOf(error));
    // A preview alone is missed by nobody: its frame says what it lacks when it is looked at.
    if (key.startsWith('whole')) this.#events.problem(this.#problems.get(this.#wholeKey(this.#index)) ?? null);
    if (key === this.#wholeKey(this.#index)) {
      this.#events.settled();
      this.#want();
    }
    throw error;
  }

  #keyOf(index: number): string {
    return `${this.#object?.id}/${index}`;
  }

  #wholeKey(index: number): string {
    return `whole ${this.#keyOf(index)}`;
  }

  #filesOf(index: number): FrameFiles {
    const frame = this.#pack?.frames[index];
    if (this.#pack && frame) return { pack: this.#pack.pack, frame };
    return `${this.#object?.prefix}_${this.#frames[index]?.frame}`;
  }
}

function messageOf(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
