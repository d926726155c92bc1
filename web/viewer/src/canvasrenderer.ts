import type { Raster } from './raster.js';
import { placeOf, type Renderer, type Scene } from './renderer.js';
import type { Size } from './viewgeometry.js';

/** The light of every sample of a grey picture, 0 to 255. */
export function lightTable([low, high]: [number, number], invert: boolean, entries: number): Uint8ClampedArray {
  const table = new Uint8ClampedArray(entries);
  for (let sample = 0; sample < entries; ++sample) {
    const light = ((sample - low) / (high - low)) * 255;
    table[sample] = invert ? 255 - light : light;
  }
  return table;
}

/** A picture as the canvas takes it. */
export function developed(picture: Pick<Raster, 'width' | 'height' | 'channels' | 'pixels'>, limits: [number, number], invert: boolean): Uint8ClampedArray<ArrayBuffer> {
  const { width, height, channels, pixels } = picture;
  const rgba = new Uint8ClampedArray(4 * width * height).fill(255);
  const table = channels === 3 ? lightTable([0, 255], invert, 256) : lightTable(limits, invert, pixels instanceof Uint16Array ? 65536 : 256);
  for (let i = 0, to = 0; i < pixels.length; i += channels, to += 4)
    for (let c = 0; c < 3; ++c) rgba[to + c] = table[pixels[channels === 3 ? i + c : i] as number] as number;
  return rgba;
}

/** The 2-D canvas, where there is no WebGL2 or a picture is too large for it. */
export class CanvasRenderer implements Renderer {
  readonly name = 'canvas';
  readonly #canvas: HTMLCanvasElement;
  readonly #context: CanvasRenderingContext2D;
  readonly #buffer = document.createElement('canvas');
  #drawn: string | undefined;
  #raster: Raster | undefined;

  constructor(canvas: HTMLCanvasElement) {
    this.#canvas = canvas;
    this.#context = canvas.getContext('2d', { alpha: false }) as CanvasRenderingContext2D;
  }

  draw(scene: Scene | null, size: Size): void {
    if (this.#canvas.width !== size.width) this.#canvas.width = size.width;
    if (this.#canvas.height !== size.height) this.#canvas.height = size.height;
    this.#context.fillStyle = '#000';
    this.#context.fillRect(0, 0, size.width, size.height);
    if (scene === null) return;
    const { raster, limits, invert } = scene;
    const wanted = `${limits} ${invert}`;
    if (this.#raster !== raster || this.#drawn !== wanted) {
      this.#buffer.width = raster.width;
      this.#buffer.height = raster.height;
      this.#buffer.getContext('2d')?.putImageData(new ImageData(developed(raster, limits, invert), raster.width, raster.height), 0, 0);
      [this.#raster, this.#drawn] = [raster, wanted];
    }
    this.#place(scene, size);
  }

  #place(scene: Scene, size: Size): void {
    const { raster, view, aspect } = scene;
    const { apart, origin } = raster;
    const [left, top, width, height] = placeOf(scene, size);
    const context = this.#context;
    context.save();
    context.beginPath();
    context.rect(left, top, width, height);
    context.clip();
    context.imageSmoothingQuality = 'high';
    // Samples that are not in the middle of their squares move the picture. What that leaves open at the right and at the
    // bottom is filled by the unmoved one.
    const shift = ((apart - 1) / 2 - origin) * view.scale;
    for (const back of shift > 0 ? [0, shift] : [0])
      context.drawImage(this.#buffer, left - back, top - back * aspect, raster.width * apart * view.scale, raster.height * apart * view.scale * aspect);
    context.restore();
  }
}
