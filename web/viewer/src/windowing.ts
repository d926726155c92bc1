import type { FrameDescription } from '@vintak/decoder';

/** Which values are shown between black and white. */
export interface DisplayWindow {
  center: number;
  width: number;
}

export interface Preset extends DisplayWindow {
  name: string;
}

/** What a sample means: value = sample * slope + intercept. */
export interface Rescale {
  rescaleSlope: number;
  rescaleIntercept: number;
}

/**
 * The samples that a window makes black and white, in this order: black is the greater one where the smallest values are the
 * brightest (MONOCHROME1, which a negative width tells) or the slope is negative, but not both. Between them it is linear.
 */
export function sampleLimits(window: DisplayWindow, frame: Rescale & { windowWidth: number }): [number, number] {
  const width = Math.max(window.width, 1);
  const low = window.center - 0.5 - (width - 1) / 2;
  const slope = frame.rescaleSlope || 1;
  const [dark, bright] = [low, low + Math.max(width - 1, 1e-3)].map((value) => (value - frame.rescaleIntercept) / slope) as [number, number];
  return frame.windowWidth < 0 ? [bright, dark] : [dark, bright];
}

/** The window over all values that a frame with so many bits can have. */
export function fullRange(frame: Rescale & { bitsUsed: number }): DisplayWindow {
  const ends = [0, 2 ** Math.max(frame.bitsUsed, 1) - 1].map((sample) => sample * frame.rescaleSlope + frame.rescaleIntercept);
  const [low, high] = [Math.min(...ends), Math.max(...ends)];
  return { center: (low + high + 1) / 2, width: high - low + 1 };
}

const tissue: Preset[] = [
  { name: 'Soft tissue', center: 40, width: 400 },
  { name: 'Lung', center: -600, width: 1500 },
  { name: 'Bone', center: 480, width: 2500 },
  { name: 'Brain', center: 40, width: 80 },
];

/** The windows that are offered for a frame; the first is its own. */
export function presetsOf(frame: FrameDescription): Preset[] {
  const own = Math.abs(frame.windowWidth) > 0 ? { center: frame.windowCenter, width: Math.abs(frame.windowWidth) } : fullRange(frame);
  const presets = [{ name: 'Default', ...own }, { name: 'Full range', ...fullRange(frame) }];
  // Values that begin near -1000 with whole steps are Hounsfield units in all likelihood.
  const isHounsfield = frame.rescaleIntercept <= -900 && frame.rescaleIntercept >= -3100 && frame.rescaleSlope === 1;
  return isHounsfield ? [...presets, ...tissue] : presets;
}

/** The window after a drag by so many pixels of the screen: to the right wider, downwards a higher centre. */
export function draggedWindow(start: DisplayWindow, dx: number, dy: number, range: number): DisplayWindow {
  const step = Math.max(range / 1024, 0.05);
  return { center: start.center + dy * step, width: Math.max(start.width + dx * step, 1) };
}
