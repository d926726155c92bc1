/** An object as the list names it; addresses are absolute. */
export interface ViewedObject {
  id: number;
  /** For people. */
  name: string;
  frames: number;
  /** What the names of its files begin with. */
  prefix: string;
  /** Address of what describes its frames: a .desc, or the .index of a pack. */
  descriptor: string | null;
  /** Address of a PDF. */
  document: string | null;
  /** Why there is nothing to see. */
  error: string | null;
}

function addressOf(address: string, base: string): URL {
  try {
    return new URL(address, base);
  } catch {
    throw new SyntaxError(`the list of objects names what is no address, ${address}`);
  }
}

/** Reads an objects.json; addresses in it are relative to `base`. Throws SyntaxError for what is no such list. */
export function parseObjectList(json: unknown, base: string): ViewedObject[] {
  const list = json as { version?: unknown; objects?: unknown } | null;
  const isObject = (value: unknown): boolean => typeof value === 'object' && value !== null;
  if (list?.version !== 1 || !Array.isArray(list.objects) || !list.objects.every(isObject)) throw new SyntaxError('the list of objects has another form');
  const absolute = (address: string | null | undefined): string | null => {
    if (!address) return null;
    const url = addressOf(address, base);
    // A document is a link: it shall lead to a file, whoever wrote the list.
    if (!/^https?:$/.test(url.protocol)) throw new SyntaxError(`the list of objects names an address of another kind, ${url.protocol}`);
    return url.href;
  };
  return list.objects.map((object: Partial<ViewedObject>, index) => ({
    id: object.id ?? index,
    name: object.name ?? `object ${index + 1}`,
    frames: object.frames ?? 0,
    prefix: absolute(object.prefix) ?? '',
    descriptor: absolute(object.descriptor),
    document: absolute(object.document),
    error: object.error ?? null,
  }));
}
