import type { Raster } from './raster.js';
import { placeOf, type Renderer, type Scene } from './renderer.js';
import type { Size } from './viewgeometry.js';

/** The light of samples of a grey picture, 0 to 255: of as many, from 0 on. */
export function lightTable([low, high]: [number, number], invert: boolean, entries: number): Uint8ClampedArray {
  const table = new Uint8ClampedArray(entries);
  for (let sample = 0; sample < entries; ++sample) {
    const light = ((sample - low) / (high - low)) * 255;
    table[sample] = invert ? 255 - light : light;
  }
  return table;
}

function largest(pixels: Uint8Array | Uint16Array): number {
  let most = 0;
  for (const pixel of pixels) if (pixel > most) most = pixel;
  return most;
}

/** A picture as the canvas takes it. */
export function developed(picture: Pick<Raster, 'width' | 'height' | 'channels' | 'pixels'>, limits: [number, number], invert: boolean): Uint8ClampedArray<ArrayBuffer> {
  const { width, height, channels, pixels } = picture;
  const rgba = new Uint8ClampedArray(4 * width * height);
  // Red, green, blue and opacity of a pixel in one word, whose lowest byte comes first on every machine that has a browser.
  const words = new Uint32Array(rgba.buffer);
  const opaque = 0xff000000;
  if (channels === 1) {
    const table = lightTable(limits, invert, largest(pixels) + 1);
    for (let i = 0; i < words.length; ++i) words[i] = opaque | ((table[pixels[i] as number] as number) * 0x010101);
    return rgba;
  }
  const flip = invert ? 0xffffff : 0;
  for (let i = 0, from = 0; i < words.length; ++i, from += 3)
    words[i] = opaque | (((pixels[from] as number) | ((pixels[from + 1] as number) << 8) | ((pixels[from + 2] as number) << 16)) ^ flip);
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

  takes(): boolean {
    return true;
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
      this.#buffer.getContext('2d', { willReadFrequently: true })?.putImageData(new ImageData(developed(raster, limits, invert), raster.width, raster.height), 0, 0);
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
