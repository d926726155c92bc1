import type { FrameDescription, Picture } from '@vintak/decoder';

/** Samples as the viewer wants them: of the whole frame's size, in rescaled values. */
export type Samples = Uint8Array | Uint16Array | Int16Array | Float32Array;

/** Repeats the samples of a reduced picture until it has the frame's size. */
export function enlarged(picture: Picture): Picture['pixels'] {
  const { width, frameWidth, frameHeight, channels, reduce, pixels } = picture;
  if (reduce === 0) return pixels;
  const size = frameWidth * frameHeight * channels;
  const whole = pixels instanceof Uint16Array ? new Uint16Array(size) : new Uint8Array(size);
  const row = frameWidth * channels;
  for (let y = 0; y < frameHeight; ++y) {
    const at = y * row;
    if (y % (1 << reduce) !== 0) {
      whole.copyWithin(at, at - row, at);
      continue;
    }
    const from = (y >> reduce) * width;
    for (let x = 0; x < frameWidth; ++x)
      for (let c = 0; c < channels; ++c) whole[at + x * channels + c] = pixels[(from + (x >> reduce)) * channels + c] as number;
  }
  return whole;
}

/** The array that holds every rescaled value of a frame with such a description exactly, where there is one. */
export function sampleType(description: FrameDescription): 'Uint8Array' | 'Uint16Array' | 'Int16Array' | 'Float32Array' {
  const { rescaleSlope: slope, rescaleIntercept: intercept, bitsUsed, layout } = description;
  if (layout !== 'mono') return 'Uint8Array';
  if (!Number.isInteger(slope) || !Number.isInteger(intercept)) return 'Float32Array';
  const ends = [intercept, intercept + slope * (2 ** bitsUsed - 1)];
  const [low, high] = [Math.min(...ends), Math.max(...ends)];
  if (low >= 0) return high <= 255 ? 'Uint8Array' : high <= 65535 ? 'Uint16Array' : 'Float32Array';
  return low >= -32768 && high <= 32767 ? 'Int16Array' : 'Float32Array';
}

/** The samples as modality values. Colour stays as it is. */
export function rescaled(pixels: Picture['pixels'], description: FrameDescription): Samples {
  const { rescaleSlope: slope, rescaleIntercept: intercept } = description;
  const type = sampleType(description);
  if (description.layout !== 'mono') return pixels;
  const arrays = { Uint8Array, Uint16Array, Int16Array, Float32Array };
  const samples = new arrays[type](pixels.length);
  // Approximations may lie beyond the exact frame's range.
  const [low, high] = { Uint8Array: [0, 255], Uint16Array: [0, 65535], Int16Array: [-32768, 32767], Float32Array: [-Infinity, Infinity] }[type] as [number, number];
  for (let i = 0; i < pixels.length; ++i) {
    const value = (pixels[i] as number) * slope + intercept;
    samples[i] = value < low ? low : value > high ? high : value;
  }
  return samples;
}
