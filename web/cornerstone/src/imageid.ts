/**
 * A frame of an object: the address that the names of its files begin with, and its number from 1. Of a pack, the address of
 * its index ("https://.../series.index") and the place in viewing order, from 1.
 */
export interface FrameAddress {
  prefix: string;
  frame: number;
}

const scheme = 'vintak:';

/** "vintak:PREFIX#FRAME". PREFIX is the absolute address of the object's files without "_1.p.qi4" or ".desc". */
export function imageIdOf({ prefix, frame }: FrameAddress): string {
  return `${scheme}${prefix}#${frame}`;
}

/** Whether a prefix is the address of a pack's index. */
export function isPack(prefix: string): boolean {
  return prefix.endsWith('.index');
}

/** Throws RangeError for what is no such image id. */
export function parseImageId(imageId: string): FrameAddress {
  const at = imageId.lastIndexOf('#');
  const frame = Number(imageId.slice(at + 1));
  if (!imageId.startsWith(scheme) || at < 0 || !Number.isInteger(frame) || frame < 1)
    throw new RangeError(`"${imageId}" is no image id of a vintak frame`);
  return { prefix: imageId.slice(scheme.length, at), frame };
}
