import { type FrameDescription, Pack, parseDescriptor, type WorkerPool } from '@vintak/decoder';

import { developed } from './canvasrenderer.js';
import { fetchBytes } from './framesource.js';
import type { ViewedObject } from './objectlist.js';
import { type DisplayWindow, presetsOf, sampleLimits } from './windowing.js';

const atOnce = 2;

/** Draws thumbnails of objects on canvases that are in view, once it is allowed to begin. */
export class Thumbnails {
  readonly #pool: WorkerPool;
  readonly #objects = new Map<Element, ViewedObject>();
  readonly #missing = new Set<HTMLCanvasElement>();
  /** In view and neither drawn nor begun. */
  readonly #waiting = new Set<HTMLCanvasElement>();
  readonly #observer: IntersectionObserver;
  #running = 0;
  #allowed = false;

  constructor(pool: WorkerPool) {
    this.#pool = pool;
    this.#observer = new IntersectionObserver((entries) => {
      for (const { isIntersecting, target } of entries)
        if (isIntersecting) this.#waiting.add(target as HTMLCanvasElement);
        else this.#waiting.delete(target as HTMLCanvasElement);
      this.#next();
    });
  }

  /** `canvas` shall show the object's middle frame. */
  add(canvas: HTMLCanvasElement, object: ViewedObject): void {
    this.#objects.set(canvas, object);
    this.#observer.observe(canvas);
  }

  /** From now on thumbnails take nothing from the first picture: it is there. */
  allow(): void {
    if (this.#allowed) return;
    this.#allowed = true;
    this.#next();
  }

  /** Tries those again that could not be had. */
  retry(): void {
    for (const canvas of this.#missing) {
      canvas.classList.remove('missing');
      canvas.title = '';
      this.#observer.observe(canvas);
    }
    this.#missing.clear();
  }

  #next(): void {
    for (const canvas of this.#waiting) {
      if (!this.#allowed || this.#running >= atOnce) return;
      this.#waiting.delete(canvas);
      this.#observer.unobserve(canvas);
      ++this.#running;
      this.#draw(canvas, this.#objects.get(canvas) as ViewedObject)
        .catch(() => {
          this.#missing.add(canvas);
          canvas.classList.add('missing');
          canvas.title = 'the thumbnail could not be had';
        })
        .finally(() => {
          --this.#running;
          this.#next();
        });
    }
  }

  async #draw(canvas: HTMLCanvasElement, object: ViewedObject): Promise<void> {
    if (object.descriptor === null) return;
    const { frame, bytes } = await middleThumbnail(object, object.descriptor);
    const picture = await this.#pool.decode(bytes, { priority: -1 });
    const limits = sampleLimits(presetsOf(frame)[0] as DisplayWindow, frame);
    [canvas.width, canvas.height] = [picture.width, picture.height];
    canvas.getContext('2d')?.putImageData(new ImageData(developed(picture, limits, false), picture.width, picture.height), 0, 0);
  }
}

async function middleThumbnail(object: ViewedObject, descriptor: string): Promise<{ frame: FrameDescription; bytes: Uint8Array }> {
  if (new URL(descriptor).pathname.endsWith('.index')) {
    const pack = await Pack.open(descriptor);
    const packed = await pack.frame(pack.frameCount >> 1);
    const bytes = await pack.element(packed, 'thumbnail', false);
    if (bytes === undefined) throw new RangeError('the pack has no thumbnail of this frame');
    return { frame: packed.description, bytes };
  }
  const { signal } = new AbortController();
  const frames = parseDescriptor(new TextDecoder().decode(await fetchBytes(descriptor, signal)));
  const frame = frames[frames.length >> 1] as FrameDescription;
  return { frame, bytes: await fetchBytes(`${object.prefix}_${frame.frame}.128x128t.cw1`, signal) };
}
