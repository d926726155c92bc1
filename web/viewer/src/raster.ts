import type { Picture } from '@vintak/decoder';

/** Samples that are drawn: a picture's own, or averages of its blocks where the screen has less room. */
export interface Raster {
  pixels: Uint8Array | Uint16Array;
  width: number;
  height: number;
  channels: 1 | 3;
  frameWidth: number;
  frameHeight: number;
  /** Pixels of the frame from one sample to the next, and to the first one's middle from the middle of the frame's first pixel. */
  apart: number;
  origin: number;
}

function rasterOf(picture: Picture): Raster {
  const { pixels, width, height, channels, frameWidth, frameHeight, reduce } = picture;
  // A reduced picture's samples are the frame's at every so manyth place, not the middles of squares.
  return { pixels, width, height, channels, frameWidth, frameHeight, apart: 2 ** reduce, origin: 0 };
}

/** The averages of blocks of 2^level samples a side; those at the right and lower edge may be smaller. */
export function shrunk(raster: Raster, level: number): Raster {
  if (level === 0) return raster;
  const { pixels, channels } = raster;
  const side = 2 ** level;
  const [width, height] = [Math.ceil(raster.width / side), Math.ceil(raster.height / side)];
  const made = pixels instanceof Uint16Array ? new Uint16Array(width * height * channels) : new Uint8Array(width * height * channels);
  const rowLength = raster.width * channels;
  const sums = new Float64Array(width * channels);
  for (let y = 0; y < height; ++y) {
    const rows = Math.min(side, raster.height - y * side);
    sums.fill(0);
    for (let row = 0; row < rows; ++row) addRow(pixels, (y * side + row) * rowLength, raster.width, level, channels, sums);
    for (let x = 0, to = 0; x < width; ++x) {
      const count = rows * Math.min(side, raster.width - x * side);
      for (let c = 0; c < channels; ++c, ++to) made[y * width * channels + to] = (sums[to] as number) / count + 0.5;
    }
  }
  return { ...raster, pixels: made, width, height, apart: raster.apart * side, origin: (raster.apart * (side - 1)) / 2 };
}

function addRow(pixels: Uint8Array | Uint16Array, from: number, width: number, level: number, channels: number, sums: Float64Array): void {
  if (channels === 1) {
    for (let x = 0; x < width; ++x) sums[x >> level] = (sums[x >> level] as number) + (pixels[from + x] as number);
    return;
  }
  for (let x = 0; x < width; ++x)
    for (let c = 0; c < channels; ++c) {
      const to = (x >> level) * channels + c;
      sums[to] = (sums[to] as number) + (pixels[from + x * channels + c] as number);
    }
}

/** How often samples can be halved so that there is still one or more for a screen pixel. */
export function shrinkLevel(apart: number, screenPixelsPerFramePixel: number): number {
  return Math.max(0, Math.floor(Math.log2(1 / (screenPixelsPerFramePixel * apart))));
}

/** Gives the samples that are drawn of a picture; the last ones are kept, so that they are made and uploaded once. */
export class RasterMaker {
  #last: { picture: Picture; level: number; raster: Raster } | undefined;

  /** `scale`: screen pixels for one of the frame, on the axis that has more. */
  rasterFor(picture: Picture, scale: number): Raster {
    const level = shrinkLevel(2 ** picture.reduce, scale);
    if (this.#last?.picture !== picture || this.#last.level !== level) this.#last = { picture, level, raster: shrunk(rasterOf(picture), level) };
    return this.#last.raster;
  }
}
