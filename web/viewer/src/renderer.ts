import type { Raster } from './raster.js';
import type { Size, View } from './viewgeometry.js';

/** What is to be drawn, and how. */
export interface Scene {
  raster: Raster;
  view: View;
  /** Height of a pixel divided by its width. */
  aspect: number;
  /** The samples that are black and white, in either order; of grey pictures only. */
  limits: [number, number];
  invert: boolean;
}

/** Draws a picture on a canvas of its own. */
export interface Renderer {
  readonly name: 'webgl' | 'canvas';
  /** Whether it can draw pictures of this size. */
  takes(scene: Scene): boolean;
  /** Nothing to see with null. The canvas has `size` screen pixels from now on. */
  draw(scene: Scene | null, size: Size): void;
}

/** A scene's rectangle on the screen: left, top, width, height. */
export function placeOf({ raster, view, aspect }: Scene, size: Size): [number, number, number, number] {
  const width = raster.frameWidth * view.scale;
  const height = raster.frameHeight * view.scale * aspect;
  return [size.width / 2 + view.panX - width / 2, size.height / 2 + view.panY - height / 2, width, height];
}
