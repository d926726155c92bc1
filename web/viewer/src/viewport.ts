import type { FrameDescription } from '@vintak/decoder';

import { CanvasRenderer } from './canvasrenderer.js';
import type { Shown } from './framesource.js';
import { GlRenderer } from './glrenderer.js';
import { RasterMaker } from './raster.js';
import type { Renderer, Scene } from './renderer.js';
import { fitted, nearestSample, pixelAspect, scaleBar, type Size, toFrame, type View, zoomed } from './viewgeometry.js';
import { type DisplayWindow, sampleLimits } from './windowing.js';

/** What lies under the pointer. */
export interface Probe {
  x: number;
  y: number;
  /** The rescaled value, or red, green and blue. */
  value: number | [number, number, number];
}

/** The picture on the screen: draws it, and knows where what is. Everything is drawn once a frame of the display. */
export class Viewport {
  readonly #box: HTMLElement;
  readonly #without3d: boolean;
  #triedGl = false;
  readonly #rasters = new RasterMaker();
  #renderer: Renderer | undefined;
  #frame: FrameDescription | undefined;
  /** The last one that there was, which the view is of. */
  #viewed: FrameDescription | undefined;
  #shown: Shown | undefined;
  #view: View | undefined;
  #fit = true;
  #due = false;
  window: DisplayWindow = { center: 128, width: 256 };
  invert = false;
  /** Told after each drawing. */
  onDrawn: () => void = () => undefined;

  /** Puts a canvas into `box`; a 2-D one when asked for, or where there is nothing better. */
  constructor(box: HTMLElement, without3d: boolean) {
    this.#box = box;
    this.#without3d = without3d;
    new ResizeObserver(() => this.redraw()).observe(box);
  }

  get renderer(): Renderer['name'] | undefined {
    return this.#renderer?.name;
  }

  get frame(): FrameDescription | undefined {
    return this.#frame;
  }

  get shown(): Shown | undefined {
    return this.#shown;
  }

  /** Draws by the graphics processor from now on, where there is one. Getting there takes longer than a first picture may. */
  useGraphicsProcessor(): void {
    if (this.#without3d || this.#triedGl) return;
    this.#triedGl = true;
    const canvas = document.createElement('canvas');
    try {
      const renderer = new GlRenderer(canvas);
      // The graphics processor may leave us: a black screen would look like a picture.
      canvas.addEventListener('webglcontextlost', () => {
        this.#useCanvas();
        this.redraw();
      });
      // Drawn before it is seen, so that nothing flickers.
      const scene = this.#scene();
      if (scene !== null && !renderer.takes(scene)) return;
      renderer.draw(scene, this.#size());
      this.#put(canvas, renderer);
    } catch {
      // There is no WebGL2: the 2-D canvas stays.
    }
  }

  /** What will be on the screen: a frame and, once there is one, a picture of it. No frame, no picture. */
  show(frame: FrameDescription | undefined, shown: Shown | undefined): void {
    this.#frame = frame;
    this.#shown = shown;
    // A frame of a stack that is not known yet will hardly be of another size.
    if (frame && (frame.columns !== this.#viewed?.columns || frame.rows !== this.#viewed.rows)) this.#view = undefined;
    this.#viewed = frame ?? this.#viewed;
    this.redraw();
  }

  fit(): void {
    this.#fit = true;
    this.#view = undefined;
    this.redraw();
  }

  /** One pixel of the frame on one of the screen. */
  actualSize(): void {
    this.#change({ scale: 1, panX: 0, panY: 0 });
  }

  /** Coordinates of the page's. */
  zoom(factor: number, clientX?: number, clientY?: number): void {
    const [x, y] = this.#toScreen(clientX, clientY);
    this.#change(zoomed(this.#currentView(), this.#size(), factor, x, y));
  }

  pan(dx: number, dy: number): void {
    const view = this.#currentView();
    this.#change({ ...view, panX: view.panX + dx * devicePixelRatio, panY: view.panY + dy * devicePixelRatio });
  }

  /** Width and height of a pixel of the frame, in CSS pixels. */
  get pixelSize(): { width: number; height: number } {
    const width = this.#currentView().scale / devicePixelRatio;
    return { width, height: width * this.#aspect() };
  }

  probe(clientX: number, clientY: number): Probe | undefined {
    const picture = this.#shown?.picture;
    if (this.#frame === undefined || picture === undefined) return undefined;
    const [fx, fy] = toFrame(this.#currentView(), this.#frameSize(), this.#size(), this.#aspect(), ...this.#toScreen(clientX, clientY));
    const [x, y] = [Math.floor(fx), Math.floor(fy)];
    if (x < 0 || y < 0 || x >= this.#frame.columns || y >= this.#frame.rows) return undefined;
    const { reduce, width, height, channels } = picture;
    const at = (nearestSample(y, reduce, height) * width + nearestSample(x, reduce, width)) * channels;
    const sample = (offset: number): number => picture.pixels[at + offset] as number;
    const value: Probe['value'] =
      picture.channels === 3 ? [sample(0), sample(1), sample(2)] : sample(0) * this.#frame.rescaleSlope + this.#frame.rescaleIntercept;
    return { x, y, value };
  }

  /** A scale bar of at most a quarter of the width: its text and its length in CSS pixels. */
  scaleBar(): { text: string; pixels: number } | undefined {
    if (this.#frame === undefined) return undefined;
    const bar = scaleBar(this.#frame.spacing[1] / this.#currentView().scale, this.#size().width / 4);
    if (bar === undefined) return undefined;
    const text = bar.millimetres >= 10 ? `${bar.millimetres / 10} cm` : `${bar.millimetres} mm`;
    return { text, pixels: bar.pixels / devicePixelRatio };
  }

  redraw(): void {
    if (this.#due) return;
    this.#due = true;
    requestAnimationFrame(() => {
      this.#due = false;
      this.#draw();
      this.onDrawn();
    });
  }

  #draw(): void {
    if (this.#frame === undefined && this.#renderer === undefined) return;
    const scene = this.#scene();
    if (this.#renderer === undefined || (scene !== null && !this.#renderer.takes(scene))) this.#useCanvas();
    this.#renderer?.draw(scene, this.#size());
  }

  #scene(): Scene | null {
    const picture = this.#shown?.picture;
    const frame = this.#frame;
    if (picture === undefined || frame === undefined) return null;
    const [view, aspect] = [this.#currentView(), this.#aspect()];
    const raster = this.#rasters.rasterFor(picture, view.scale * Math.max(aspect, 1));
    return { raster, view, aspect, limits: sampleLimits(this.window, frame), invert: this.invert };
  }

  #useCanvas(): void {
    const canvas = document.createElement('canvas');
    this.#put(canvas, new CanvasRenderer(canvas));
  }

  #put(canvas: HTMLCanvasElement, renderer: Renderer): void {
    this.#box.querySelector('canvas')?.remove();
    this.#box.prepend(canvas);
    this.#renderer = renderer;
  }

  #change(view: View): void {
    this.#fit = false;
    this.#view = view;
    this.redraw();
  }

  #currentView(): View {
    if (this.#fit || this.#view === undefined) return fitted(this.#frameSize(), this.#size(), this.#aspect());
    return this.#view;
  }

  #frameSize(): Size {
    return { width: this.#frame?.columns ?? 1, height: this.#frame?.rows ?? 1 };
  }

  #aspect(): number {
    return pixelAspect(this.#frame?.spacing ?? [0, 0]);
  }

  #size(): Size {
    return { width: Math.max(Math.round(this.#box.clientWidth * devicePixelRatio), 1), height: Math.max(Math.round(this.#box.clientHeight * devicePixelRatio), 1) };
  }

  #toScreen(clientX?: number, clientY?: number): [number, number] {
    const { width, height } = this.#size();
    if (clientX === undefined || clientY === undefined) return [width / 2, height / 2];
    const { left, top } = this.#box.getBoundingClientRect();
    return [(clientX - left) * devicePixelRatio, (clientY - top) * devicePixelRatio];
  }
}
