import { type FrameDescription, parseDescriptor } from '@vintak/decoder';

import { ByteCache } from './cache.js';
import { FileError, type FrameSource, fetchBytes, type Shown } from './framesource.js';
import type { ViewedObject } from './objectlist.js';
import { Scheduler, type Task } from './scheduler.js';

/** What a stack tells whoever shows it. */
export interface StackEvents {
  /** Another frame is wanted, or there is another picture of it (none yet: undefined). */
  frame(frame: FrameDescription | undefined, shown: Shown | undefined): void;
  /** Something of the frame in view could not be had; null when there is nothing to complain of. */
  problem(text: string | null): void;
  /** The first picture of an object is on the screen. */
  firstPicture(): void;
}

/** Neighbours on each side whose whole frames are loaded, and whose previews are. */
const wholeNeighbours = 4;
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
  readonly #scheduler = new Scheduler(loadsAtOnce);
  readonly #problems = new Map<string, string>();
  #object: ViewedObject | undefined;
  #frames: FrameDescription[] = [];
  #index = 0;
  #direction = 1;
  #opening = new AbortController();
  #hadPicture = false;

  constructor(source: FrameSource, cacheBytes: number, events: StackEvents) {
    this.#source = source;
    this.#events = events;
    this.#cache = new ByteCache(cacheBytes);
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

  /** Opens an object at its middle frame. */
  async open(object: ViewedObject): Promise<void> {
    this.#opening.abort();
    this.#opening = new AbortController();
    const { signal } = this.#opening;
    this.#scheduler.want([]);
    this.#problems.clear();
    this.#object = object;
    this.#frames = [];
    this.#hadPicture = false;
    this.#events.frame(undefined, undefined);
    this.#events.problem(object.error);
    if (object.descriptor === null) return;
    try {
      const text = new TextDecoder().decode(await fetchBytes(object.descriptor, signal));
      this.#frames = parseDescriptor(text);
    } catch (error) {
      if (!signal.aborted) this.#events.problem(error instanceof Error ? error.message : String(error));
      return;
    }
    this.#index = this.#frames.length >> 1;
    this.#show();
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
    this.#events.problem(this.#problems.get(`whole ${this.#keyOf(this.#index)}`) ?? null);
    this.#scheduler.want(this.#wanted());
  }

  /** The frame in view, then its neighbours, those ahead first; after them the previews further out. */
  #wanted(): Task[] {
    const order = (count: number): number[] =>
      Array.from({ length: count }, (_, i) => [this.#index + (i + 1) * this.#direction, this.#index - (i + 1) * this.#direction])
        .flat()
        .filter((index) => index >= 0 && index < this.#frames.length);
    const previews = order(previewNeighbours).filter((index) => this.#cache.get(this.#keyOf(index)) === undefined);
    const tasks = [
      this.#wholeTask(this.#index, 10),
      ...previews.slice(0, 6).map((index) => this.#previewTask(index)),
      ...order(wholeNeighbours).map((index) => this.#wholeTask(index, 1)),
      ...previews.slice(6).map((index) => this.#previewTask(index)),
    ];
    // What was loaded once may have left the cache since; what failed waits for retry().
    for (const { key } of tasks) if (!this.#problems.has(key)) this.#scheduler.forget(key);
    return tasks;
  }

  #wholeTask(index: number, priority: number): Task {
    const cacheKey = this.#keyOf(index);
    const key = `whole ${cacheKey}`;
    return {
      key,
      run: async (signal) => {
        const known = this.#cache.get(cacheKey);
        if (known?.stage === 'exact') return;
        await this.#source
          .whole(this.#stemOf(index), this.#frames[index] as FrameDescription, known !== undefined, priority, signal, (shown) =>
            this.#take(index, cacheKey, shown))
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
        if (this.#cache.get(cacheKey) === undefined)
          this.#take(index, cacheKey, await this.#source.preview(this.#stemOf(index), this.#frames[index] as FrameDescription, 0, signal));
      },
    };
  }

  #take(index: number, cacheKey: string, shown: Shown): void {
    // An object that was opened since has other keys.
    if (cacheKey !== this.#keyOf(index)) return;
    this.#cache.put(cacheKey, shown, shown.picture.pixels.byteLength);
    if (index !== this.#index) return;
    this.#events.frame(this.#frames[index], shown);
    if (!this.#hadPicture) this.#events.firstPicture();
    this.#hadPicture = true;
  }

  #fail(index: number, key: string, error: unknown, signal: AbortSignal): never {
    if (!signal.aborted && key === `whole ${this.#keyOf(index)}`) {
      const text = error instanceof FileError || error instanceof Error ? error.message : String(error);
      this.#problems.set(key, text);
      if (index === this.#index) this.#events.problem(text);
    }
    throw error;
  }

  #keyOf(index: number): string {
    return `${this.#object?.id}/${index}`;
  }

  #stemOf(index: number): string {
    return `${this.#object?.prefix}_${this.#frames[index]?.frame}`;
  }
}
