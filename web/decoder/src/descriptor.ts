/** A frame's line of the descriptor (.desc). */
export interface FrameDescription {
  /** Counted from 1. */
  frame: number;
  columns: number;
  rows: number;
  /** 'mono' grey, 'bypixel' colour. */
  layout: string;
  /** Bits of a sample, 8 or 16. */
  bits: number;
  /** Bits that the range of the samples needs. */
  bitsUsed: number;
  rescaleIntercept: number;
  rescaleSlope: number;
  /** In rescaled values; negative for MONOCHROME1. */
  windowWidth: number;
  windowCenter: number;
  /** Spacing in mm between rows and between columns; 0 when unknown. */
  spacing: [number, number];
  frameOfReferenceUID: string;
  /** x, y, z in mm; empty when unknown. */
  imagePosition: number[];
  /** Six cosines; empty when unknown. */
  imageOrientation: number[];
  patientOrientation: string[];
}

const fieldCount = 16;

function numbers(text: string): number[] {
  return text === '' ? [] : text.split('\\').map(Number);
}

function parseLine(line: string, number: number): FrameDescription {
  const fields = line.split(' ');
  // The last field may hold blanks of its own.
  const field = (index: number): string => fields[index] ?? '';
  const value = (index: number): number => Number(field(index));
  const parsed: FrameDescription = {
    frame: value(0),
    columns: value(1),
    rows: value(2),
    layout: field(3),
    bits: value(4),
    bitsUsed: value(5),
    rescaleIntercept: value(6),
    rescaleSlope: value(7),
    windowWidth: value(8),
    windowCenter: value(9),
    spacing: [value(10), value(11)],
    frameOfReferenceUID: field(12),
    imagePosition: numbers(field(13)),
    imageOrientation: numbers(field(14)),
    patientOrientation: fields.slice(15).join(' ').split('\\').filter((part) => part !== ''),
  };
  const wholes = [parsed.frame, parsed.columns, parsed.rows];
  if (fields.length < fieldCount || !wholes.every((whole) => Number.isInteger(whole) && whole > 0))
    throw new SyntaxError(`line ${number} of the descriptor is damaged`);
  return parsed;
}

/** Reads a descriptor, one entry for each frame in its order. Throws SyntaxError that names the line. */
export function parseDescriptor(text: string): FrameDescription[] {
  return text
    .split('\n')
    .filter((line) => line !== '')
    .map((line, index) => parseLine(line, index + 1));
}
