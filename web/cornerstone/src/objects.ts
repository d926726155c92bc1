import { type FrameDescription, framesOfBlock, Pack, parseDescriptor } from '@vintak/decoder';

import { type FrameAddress, imageIdOf, isPack } from './imageid.js';

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
  pack?: Pack;
}

/** Opened packs, by the address of their index. */
const packs = new Map<string, Promise<Pack>>();

const objects = new Map<string, KnownObject>();

/** What was said of an object is not forgotten when its frames are asked for. */
const detailsOf = (prefix: string): ObjectDetails => objects.get(prefix)?.details ?? {};

/** What is on its way for fetchFrame(): a stack that is opened asks for many frames at once. */
const coming = new Map<string, Promise<unknown>>();

async function once(key: string, work: () => Promise<unknown>): Promise<void> {
  const begun = coming.get(key) ?? work().finally(() => coming.delete(key));
  coming.set(key, begun);
  await begun;
}

/** Makes an object known by the text of its descriptor. Returns the image ids of its frames, in their order. */
export function addObject(prefix: string, descriptor: string, details: ObjectDetails = detailsOf(prefix)): string[] {
  const frames = parseDescriptor(descriptor);
  objects.set(prefix, { frames: new Map(frames.map((frame) => [frame.frame, frame])), details });
  return frames.map(({ frame }) => imageIdOf({ prefix, frame }));
}

/** The pack of an index, opened once. */
export function packOf(prefix: string): Promise<Pack> {
  let pack = packs.get(prefix);
  if (pack === undefined) {
    pack = Pack.open(prefix);
    pack.catch(() => packs.delete(prefix));
    packs.set(prefix, pack);
  }
  return pack;
}

/** Makes the frames of a pack's block known, geometry included. */
async function addBlock(prefix: string, pack: Pack, block: number, details: ObjectDetails): Promise<void> {
  const descriptions = await pack.descriptions(await pack.block(block));
  const known = objects.get(prefix) ?? { frames: new Map<number, FrameDescription>(), details, pack };
  for (const description of descriptions) known.frames.set(description.frame, description);
  objects.set(prefix, known);
}

/** Has what is known of a frame fetched, where nothing is; of a pack only the part of its index that tells of it. */
export async function fetchFrame(address: FrameAddress): Promise<void> {
  if (frameOf(address) !== undefined) return;
  const { prefix, frame } = address;
  const block = Math.floor((frame - 1) / framesOfBlock);
  if (!isPack(prefix)) await once(prefix, () => fetchObject(prefix));
  else await once(`${prefix} ${block}`, async () => addBlock(prefix, await packOf(prefix), block, {}));
}

/** Fetches PREFIX.desc, or a pack's index, and makes the frames known. Rejects when it cannot be had or read. */
export async function fetchObject(prefix: string, details?: ObjectDetails): Promise<string[]> {
  if (isPack(prefix)) {
    const pack = await packOf(prefix);
    const said = details ?? detailsOf(prefix);
    objects.set(prefix, { frames: new Map(), details: said, pack });
    for (let block = 0; block * framesOfBlock < pack.frameCount; ++block) await addBlock(prefix, pack, block, said);
    return Array.from({ length: pack.frameCount }, (_, place) => imageIdOf({ prefix, frame: place + 1 }));
  }
  const response = await fetch(`${prefix}.desc`);
  if (!response.ok) throw new Error(`${prefix}.desc: HTTP ${response.status}`);
  return addObject(prefix, await response.text(), details);
}

/** Forgets an object. */
export function removeObject(prefix: string): void {
  objects.delete(prefix);
  packs.delete(prefix);
}

/** What is known of a frame; undefined before addObject(). */
export function frameOf({ prefix, frame }: FrameAddress): (FrameDescription & { details: ObjectDetails }) | undefined {
  const object = objects.get(prefix);
  const description = object?.frames.get(frame);
  return object && description && { ...description, details: object.details };
}
