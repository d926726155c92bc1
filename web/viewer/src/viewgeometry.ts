/** Where a frame lies on the screen. Screen pixels are the canvas's own, with the device's density. */
export interface View {
  /** Screen pixels for one pixel of the frame along x; along y it is scale * aspect. */
  scale: number;
  /** Of the frame's centre from the screen's, in screen pixels. */
  panX: number;
  panY: number;
}

export interface Size {
  width: number;
  height: number;
}

/** Height of a pixel divided by its width, from the spacings between rows and between columns in mm. */
export function pixelAspect([rows, columns]: [number, number]): number {
  return rows > 0 && columns > 0 ? rows / columns : 1;
}

/** The whole frame as large as the screen allows. */
export function fitted(frame: Size, screen: Size, aspect: number): View {
  const scale = Math.min(screen.width / frame.width, screen.height / (frame.height * aspect));
  return { scale: scale > 0 && Number.isFinite(scale) ? scale : 1, panX: 0, panY: 0 };
}

/** The frame's coordinates (0 at its left or upper edge) of a point of the screen. */
export function toFrame(view: View, frame: Size, screen: Size, aspect: number, x: number, y: number): [number, number] {
  return [
    (x - screen.width / 2 - view.panX) / view.scale + frame.width / 2,
    (y - screen.height / 2 - view.panY) / (view.scale * aspect) + frame.height / 2,
  ];
}

/** The sample of a reduced picture that is nearest to a place of the frame, of which every 2^reduce-th is there from the first on. */
export function nearestSample(place: number, reduce: number, count: number): number {
  return Math.min(Math.round(place / 2 ** reduce), count - 1);
}

/** Magnified by `factor` around a point of the screen that stays where it is. */
export function zoomed(view: View, screen: Size, factor: number, x: number, y: number): View {
  const scale = Math.min(Math.max(view.scale * factor, 0.01), 100);
  const actual = scale / view.scale;
  const [dx, dy] = [x - screen.width / 2, y - screen.height / 2];
  return { scale, panX: dx - (dx - view.panX) * actual, panY: dy - (dy - view.panY) * actual };
}

/** A round length in mm whose bar has at most `most` screen pixels, and its pixels; nothing without a spacing. */
export function scaleBar(millimetresPerPixel: number, most: number): { millimetres: number; pixels: number } | undefined {
  const longest = millimetresPerPixel * most;
  if (!(longest > 0) || !Number.isFinite(longest)) return undefined;
  const power = 10 ** Math.floor(Math.log10(longest));
  const millimetres = power * (longest >= 5 * power ? 5 : longest >= 2 * power ? 2 : 1);
  return { millimetres, pixels: millimetres / millimetresPerPixel };
}
