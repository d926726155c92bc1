import { parseImageId } from './imageid.js';
import { frameOf } from './objects.js';
import { sampleType } from './samples.js';

type Frame = NonNullable<ReturnType<typeof frameOf>>;

function pixelModule(frame: Frame): object {
  const color = frame.layout !== 'mono';
  const type = sampleType(frame);
  const bits = type === 'Uint8Array' ? 8 : type === 'Float32Array' ? 32 : 16;
  return {
    rows: frame.rows,
    columns: frame.columns,
    samplesPerPixel: color ? 3 : 1,
    photometricInterpretation: color ? 'RGB' : frame.windowWidth < 0 ? 'MONOCHROME1' : 'MONOCHROME2',
    bitsAllocated: bits,
    bitsStored: bits,
    highBit: bits - 1,
    pixelRepresentation: type === 'Int16Array' || type === 'Float32Array' ? 1 : 0,
  };
}

function planeModule(frame: Frame): object {
  const orientation = frame.imageOrientation.length === 6 ? frame.imageOrientation : undefined;
  const position = frame.imagePosition.length === 3 ? frame.imagePosition : undefined;
  const [rowSpacing, columnSpacing] = frame.spacing;
  return {
    frameOfReferenceUID: frame.frameOfReferenceUID,
    rows: frame.rows,
    columns: frame.columns,
    imageOrientationPatient: orientation,
    rowCosines: orientation?.slice(0, 3),
    columnCosines: orientation?.slice(3, 6),
    imagePositionPatient: position,
    pixelSpacing: rowSpacing > 0 ? frame.spacing : undefined,
    rowPixelSpacing: rowSpacing || undefined,
    columnPixelSpacing: columnSpacing || undefined,
  };
}

const modules: Record<string, (frame: Frame) => object> = {
  imagePixelModule: pixelModule,
  imagePlaneModule: planeModule,
  // A window of width 0 means that the frame has none.
  voiLutModule: (frame) => (frame.windowWidth === 0 ? {} : { windowCenter: [frame.windowCenter], windowWidth: [Math.abs(frame.windowWidth)] }),
  modalityLutModule: (frame) => ({ rescaleIntercept: frame.rescaleIntercept, rescaleSlope: frame.rescaleSlope }),
  generalSeriesModule: (frame) => ({ modality: frame.details.modality ?? 'OT', seriesInstanceUID: frame.details.seriesInstanceUID }),
};

/** Cornerstone's metadata provider: what the descriptors of the known objects say. */
export function metadata(type: string, imageId: unknown): object | undefined {
  if (typeof imageId !== 'string' || !imageId.startsWith('vintak:')) return undefined;
  const module = modules[type];
  const frame = module && frameOf(parseImageId(imageId));
  return frame && module(frame);
}
