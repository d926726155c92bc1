import { Enums, type Types } from '@cornerstonejs/core';
import type { FrameDescription, Picture } from '@vintak/decoder';

import { enlarged, rescaled, type Samples } from './samples.js';

/** Which picture of a frame was made. */
export type Stage = 'preview' | 'head' | 'exact';

function rangeOf(samples: Samples): [number, number] {
  let low = Infinity;
  let high = -Infinity;
  for (const sample of samples) {
    if (sample < low) low = sample;
    if (sample > high) high = sample;
  }
  return [low, high];
}

function qualityOf(picture: Picture): Enums.ImageQualityStatus {
  if (picture.reduce > 0) return Enums.ImageQualityStatus.SUBRESOLUTION;
  return picture.completeness === 'exact' ? Enums.ImageQualityStatus.FULL_RESOLUTION : Enums.ImageQualityStatus.LOSSY;
}

/** Cornerstone's image of a picture; its samples are modality values already. */
export function makeImage(imageId: string, picture: Picture, description: FrameDescription, since: number): Types.IImage {
  const samples = rescaled(enlarged(picture), description);
  const [minPixelValue, maxPixelValue] = rangeOf(samples);
  const color = picture.channels === 3;
  const { rescaleSlope, rescaleIntercept, windowCenter, windowWidth, spacing } = description;
  const image = {
    imageId,
    dataType: samples.constructor.name,
    minPixelValue,
    maxPixelValue,
    slope: rescaleSlope,
    intercept: rescaleIntercept,
    isPreScaled: !color,
    preScale: { enabled: true, scaled: !color, scalingParameters: { rescaleSlope, rescaleIntercept } },
    windowCenter,
    windowWidth: Math.abs(windowWidth),
    voiLUTFunction: Enums.VOILUTFunctionType.LINEAR,
    getPixelData: () => samples,
    getCanvas: undefined,
    rows: picture.frameHeight,
    columns: picture.frameWidth,
    height: picture.frameHeight,
    width: picture.frameWidth,
    color,
    rgba: false,
    numberOfComponents: picture.channels,
    rowPixelSpacing: spacing[0] || 1,
    columnPixelSpacing: spacing[1] || 1,
    // MONOCHROME1 has a negative width: small values are to be bright.
    invert: windowWidth < 0,
    photometricInterpretation: color ? 'RGB' : windowWidth < 0 ? 'MONOCHROME1' : 'MONOCHROME2',
    sizeInBytes: samples.byteLength,
    imageQualityStatus: qualityOf(picture),
    FrameOfReferenceUID: description.frameOfReferenceUID,
    loadTimeInMS: performance.now() - since,
    imageFrame: { pixelData: samples },
  };
  return image as unknown as Types.IImage;
}
