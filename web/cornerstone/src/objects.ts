import { type FrameDescription, parseDescriptor } from '@vintak/decoder';

import { type FrameAddress, imageIdOf } from './imageid.js';

/** What the descriptor does not say and a viewer may want to know. */
export interface ObjectDetails {
  /** (0008,0060) */
  modality?: string;
  /** (0020,000E) */
  seriesInstanceUID?: string;
}

interface KnownObject {
  frames: Map<number, FrameDescription>;
  details: ObjectDetails;
}

const objects = new Map<string, KnownObject>();

/** Makes an object known by the text of its descriptor. Returns the image ids of its frames, in their order. */
export function addObject(prefix: string, descriptor: string, details: ObjectDetails = {}): string[] {
  const frames = parseDescriptor(descriptor);
  objects.set(prefix, { frames: new Map(frames.map((frame) => [frame.frame, frame])), details });
  return frames.map(({ frame }) => imageIdOf({ prefix, frame }));
}

/** Fetches PREFIX.desc and makes the object known. Rejects when it cannot be had or read. */
export async function fetchObject(prefix: string, details: ObjectDetails = {}): Promise<string[]> {
  const response = await fetch(`${prefix}.desc`);
  if (!response.ok) throw new Error(`${prefix}.desc: HTTP ${response.status}`);
  return addObject(prefix, await response.text(), details);
}

/** Forgets an object. */
export function removeObject(prefix: string): void {
  objects.delete(prefix);
}

/** What is known of a frame; undefined before addObject(). */
export function frameOf({ prefix, frame }: FrameAddress): (FrameDescription & { details: ObjectDetails }) | undefined {
  const object = objects.get(prefix);
  const description = object?.frames.get(frame);
  return object && description && { ...description, details: object.details };
}
