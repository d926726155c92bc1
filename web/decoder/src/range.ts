import { joined } from './bytes.js';

function fileName(url: string): string {
  return decodeURIComponent(new URL(url).pathname.split('/').pop() ?? url);
}

/** Lets `length` bytes from `first` on through and ends. */
function cut(first: number, length: number): TransformStream<Uint8Array, Uint8Array> {
  let at = 0;
  return new TransformStream({
    transform(bytes, controller) {
      const from = Math.max(first - at, 0);
      const to = Math.min(first + length - at, bytes.length);
      if (to > from) controller.enqueue(bytes.subarray(from, to));
      at += bytes.length;
      if (at >= first + length) controller.terminate();
    },
  });
}

/**
 * Asks for one range of a file: one range needs no preflight where the file is another site's, several in a header do. Of a
 * server that does not know ranges and answers with the whole file, the rest is not read. Rejects with what is wrong; that
 * the body has its length only shows at its end.
 */
export async function openRange(url: string, first: number, length: number, signal?: AbortSignal): Promise<Response> {
  if (length === 0) return new Response(new Uint8Array());
  const response = await fetch(url, { headers: { Range: `bytes=${first}-${first + length - 1}` }, ...(signal && { signal }) });
  if (response.status === 206) {
    // Another site's server may not show it.
    const range = response.headers.get('content-range');
    if (range === null || range.startsWith(`bytes ${first}-${first + length - 1}/`)) return response;
    await response.body?.cancel();
    throw new RangeError(`${fileName(url)}: the server gives another range, ${range}`);
  }
  if (response.status === 200 && response.body !== null)
    return new Response(response.body.pipeThrough(cut(first, length)), { headers: { 'content-length': String(length) } });
  await response.body?.cancel();
  throw new RangeError(
    response.status === 404 ? `${fileName(url)} is missing`
    : response.status === 416 ? `${fileName(url)} is shorter than its index says`
    : `${fileName(url)}: the server answers ${response.status}`);
}

/** The bytes of one range, neither more nor fewer: who sends more is not read to the end. */
export async function fetchRange(url: string, first: number, length: number, signal?: AbortSignal): Promise<Uint8Array> {
  const reader = (await openRange(url, first, length, signal)).body?.getReader();
  // No memory is had for a length that an index claims before the bytes are there.
  const parts: Uint8Array[] = [];
  for (let at = 0; ; ) {
    const { done, value } = (await reader?.read()) ?? { done: true, value: undefined };
    if (!done && value.length <= length - at) {
      parts.push(value);
      at += value.length;
      continue;
    }
    if (done && at === length) return joined(parts);
    await reader?.cancel();
    throw new RangeError(`${fileName(url)}: the server gives ${done ? 'fewer' : 'more'} bytes than were asked for`);
  }
}
