import { type FrameDescription, parseDescriptor, type WorkerPool } from '@vintak/decoder';

import { developed } from './canvasrenderer.js';
import { fetchBytes } from './framesource.js';
import type { ViewedObject } from './objectlist.js';
import { presetsOf, sampleLimits } from './windowing.js';

/** Draws thumbnails of objects on canvases as these come into view, once it is allowed to begin. */
export class Thumbnails {
  readonly #pool: WorkerPool;
  readonly #objects = new Map<Element, ViewedObject>();
  readonly #observer: IntersectionObserver;
  #waiting: Element[] = [];
  #running = 0;
  #allowed = false;

  constructor(pool: WorkerPool) {
    this.#pool = pool;
    this.#observer = new IntersectionObserver((entries) => {
      for (const { isIntersecting, target } of entries) {
        if (!isIntersecting) continue;
        this.#observer.unobserve(target);
        this.#waiting.push(target);
      }
      this.#next();
    });
  }

  /** `canvas` shall show the object's middle frame. */
  add(canvas: HTMLCanvasElement, object: ViewedObject): void {
    this.#objects.set(canvas, object);
    this.#observer.observe(canvas);
  }

  /** The first picture is there: from now on thumbnails take nothing from it. */
  allow(): void {
    this.#allowed = true;
    this.#next();
  }

  #next(): void {
    while (this.#allowed && this.#running < 2) {
      const canvas = this.#waiting.shift() as HTMLCanvasElement | undefined;
      if (canvas === undefined) return;
      const object = this.#objects.get(canvas) as ViewedObject;
      ++this.#running;
      this.#draw(canvas, object)
        .catch(() => canvas.classList.add('missing'))
        .finally(() => {
          --this.#running;
          this.#next();
        });
    }
  }

  async #draw(canvas: HTMLCanvasElement, object: ViewedObject): Promise<void> {
    if (object.descriptor === null) return;
    const { signal } = new AbortController();
    const frames = parseDescriptor(new TextDecoder().decode(await fetchBytes(object.descriptor, signal)));
    const frame = frames[frames.length >> 1] as FrameDescription;
    const bytes = await fetchBytes(`${object.prefix}_${frame.frame}.128x128t.cw1`, signal);
    const picture = await this.#pool.decode(bytes, { priority: -1 });
    const limits = sampleLimits(presetsOf(frame)[0] as { center: number; width: number }, frame);
    [canvas.width, canvas.height] = [picture.width, picture.height];
    canvas.getContext('2d')?.putImageData(new ImageData(developed(picture, limits, false), picture.width, picture.height), 0, 0);
  }
}
