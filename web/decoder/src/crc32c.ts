const tables = makeTables();

/** Four tables: the sum of a byte, and of it with one to three zeros behind it. */
function makeTables(): Uint32Array[] {
  const first = Uint32Array.from({ length: 256 }, (_, byte) => {
    let sum = byte;
    for (let bit = 0; bit < 8; ++bit) sum = (sum >>> 1) ^ (sum & 1 ? 0x82f63b78 : 0);
    return sum;
  });
  const made = [first];
  for (let i = 1; i < 4; ++i) {
    const before = made[i - 1] as Uint32Array;
    made.push(before.map((sum) => (sum >>> 8) ^ (first[sum & 255] as number)));
  }
  return made;
}

/** CRC-32C (Castagnoli) of bytes. */
export function crc32c(bytes: Uint8Array): number {
  const [t0, t1, t2, t3] = tables as [Uint32Array, Uint32Array, Uint32Array, Uint32Array];
  let sum = -1;
  let at = 0;
  for (; at + 4 <= bytes.length; at += 4) {
    sum ^= (bytes[at] as number) | ((bytes[at + 1] as number) << 8) | ((bytes[at + 2] as number) << 16) | ((bytes[at + 3] as number) << 24);
    sum = (t3[sum & 255] as number) ^ (t2[(sum >>> 8) & 255] as number) ^ (t1[(sum >>> 16) & 255] as number) ^ (t0[sum >>> 24] as number);
  }
  for (; at < bytes.length; ++at) sum = (sum >>> 8) ^ (t0[(sum ^ (bytes[at] as number)) & 255] as number);
  return ~sum >>> 0;
}
