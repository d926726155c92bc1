import type { DecodeOptions, Picture } from './picture.js';

/** Collects the bytes of one payload and gives the best picture that can be made of them so far. */
export class PictureStream {
  readonly #decode: (bytes: Uint8Array, options?: DecodeOptions) => Picture;
  #bytes = new Uint8Array(0);
  #received = 0;

  constructor(decode: (bytes: Uint8Array, options?: DecodeOptions) => Picture) {
    this.#decode = decode;
  }

  get bytesReceived(): number {
    return this.#received;
  }

  /** The next bytes of the payload, as many or few as there are; they are copied. */
  push(bytes: Uint8Array): void {
    const needed = this.#received + bytes.length;
    if (needed > this.#bytes.length) {
      const larger = new Uint8Array(Math.max(needed, 2 * this.#bytes.length, 8192));
      larger.set(this.#bytes.subarray(0, this.#received));
      this.#bytes = larger;
    }
    this.#bytes.set(bytes, this.#received);
    this.#received = needed;
  }

  /** Decodes what has arrived, from its beginning. Throws DecodeError until there is a header (16 bytes). */
  picture(options?: DecodeOptions): Picture {
    return this.#decode(this.#bytes.subarray(0, this.#received), options);
  }

  /** Lets go of the bytes. */
  close(): void {
    this.#bytes = new Uint8Array(0);
    this.#received = 0;
  }
}
