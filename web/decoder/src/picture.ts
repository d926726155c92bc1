/** How good a picture is: equal to the frame, made of a part of the stream, or of the part before a damage. */
export type Completeness = 'exact' | 'part' | 'damaged';

/** A decoded picture. */
export interface Picture {
  /** Size of this picture in pixels: the frame's, divided by 2^reduce and rounded up. */
  width: number;
  height: number;
  /** Size of the whole frame in pixels. */
  frameWidth: number;
  frameHeight: number;
  /** Only every 2^reduce-th sample of both axes is there. A reduced picture is not the frame, however complete. */
  reduce: number;
  /** The largest `reduce` that this frame has. */
  levels: number;
  /** Bits that the largest sample of the frame needs. */
  bitsUsed: number;
  /** 1: grey, 3: r, g, b interleaved. */
  channels: 1 | 3;
  /** Rows from top to bottom without gaps; 16-bit grey as Uint16Array. The caller's own. */
  pixels: Uint8Array | Uint16Array;
  /** With reduce 0, 'exact' means equal to the frame sample for sample. */
  completeness: Completeness;
  /** Bytes of the payload that were made use of. */
  bytesUsed: number;
  /** The progressive stream (.qi4) or the compressed thumbnail (.cw1). */
  coding: 'stream' | 'thumbnail';
}

/** Why there is no picture at all. */
export type DecodeFailure = 'not-a-payload' | 'unsupported' | 'too-large' | 'no-memory' | 'damaged' | 'crashed';

const sentences: Record<DecodeFailure, string> = {
  'not-a-payload': 'these bytes begin neither a stream nor a thumbnail',
  unsupported: 'the pixel format is not supported',
  'too-large': 'the frame is larger than the limit',
  'no-memory': 'there is no memory for the frame',
  damaged: 'the stream is damaged from its beginning',
  crashed: 'the decoder came to an end and was started anew',
};

export class DecodeError extends Error {
  readonly status: DecodeFailure;

  constructor(status: DecodeFailure, detail?: string) {
    super(detail === undefined ? sentences[status] : `${sentences[status]}: ${detail}`);
    this.name = 'DecodeError';
    this.status = status;
  }
}

export interface DecodeOptions {
  /** Halvings of both sides; more than the frame has levels gives its smallest picture. Default 0. */
  reduce?: number;
  /** Largest width x height x channels that is decoded, after reducing nothing. Default 2^27. */
  maxSamples?: number;
}
