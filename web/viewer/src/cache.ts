/** Keeps what was used last, up to a number of bytes. */
export class ByteCache<Value> {
  readonly #most: number;
  readonly #entries = new Map<string, { value: Value; bytes: number }>();
  #bytes = 0;

  constructor(mostBytes: number) {
    this.#most = mostBytes;
  }

  get bytes(): number {
    return this.#bytes;
  }

  /** The value, which counts as used. */
  get(key: string): Value | undefined {
    const entry = this.#entries.get(key);
    if (entry === undefined) return undefined;
    this.#entries.delete(key);
    this.#entries.set(key, entry);
    return entry.value;
  }

  /** Puts a value and lets go of those that were not used for longest. One that is larger than all room is kept alone. */
  put(key: string, value: Value, bytes: number): void {
    this.delete(key);
    this.#entries.set(key, { value, bytes });
    this.#bytes += bytes;
    for (const oldest of this.#entries.keys()) {
      if (this.#bytes <= this.#most || oldest === key) break;
      this.delete(oldest);
    }
  }

  delete(key: string): void {
    const entry = this.#entries.get(key);
    if (entry === undefined) return;
    this.#entries.delete(key);
    this.#bytes -= entry.bytes;
  }
}
