/** What a stream element says of its frame. A sample s stands for s * rescaleSlope + rescaleIntercept. */
export interface ElementHeader {
  rescaleIntercept: number;
  rescaleSlope: number;
  /** In rescaled values; negative for MONOCHROME1, whose samples are turned over already. */
  windowWidth: number;
  windowCenter: number;
}

const headerSize = 24;
const version = 0x00180001;

/**
 * Splits a .p.qi4 or .t.qi4 file, or a beginning of one, into its header and the payload, which is a view of `bytes`.
 * Throws RangeError when it does not begin with a header of the known version.
 */
export function readElement(bytes: Uint8Array): { header: ElementHeader; payload: Uint8Array } {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  if (bytes.length < headerSize || view.getUint32(0, false) !== 0x51584944 || view.getUint32(4, true) !== version)
    throw new RangeError('these bytes do not begin with the header of a stream element');
  return {
    header: {
      rescaleIntercept: view.getFloat32(8, true),
      rescaleSlope: view.getFloat32(12, true),
      windowWidth: view.getFloat32(16, true),
      windowCenter: view.getFloat32(20, true),
    },
    payload: bytes.subarray(headerSize),
  };
}
