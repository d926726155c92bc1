import type { Received, Shown } from './framesource.js';

function amount(bytes: number): string {
  if (bytes < 10_000) return `${(bytes / 1000).toFixed(1)} kB`;
  return bytes < 1_000_000 ? `${Math.round(bytes / 1000)} kB` : `${(bytes / 1_000_000).toFixed(1)} MB`;
}

/**
 * What the sign in the corner says of a picture, of which more may have been received than it was made of: nobody shall take
 * a first picture for the frame.
 */
export function signOf(shown: Shown | undefined, received?: Received): { text: string; isExact: boolean } {
  if (shown === undefined) return { text: 'loading', isExact: false };
  const { picture, stage } = shown;
  const bytes = Math.max(shown.bytes, received?.bytes ?? 0);
  const totalBytes = received?.totalBytes ?? shown.totalBytes;
  if (stage === 'exact') return { text: `exact · ${amount(shown.bytes)}`, isExact: true };
  const words = [stage === 'damaged' ? 'DAMAGED, not complete' : stage];
  if (picture.reduce > 0) words.push(`reduced 1/${2 ** picture.reduce}`);
  words.push(totalBytes ? `${Math.min(Math.floor((100 * bytes) / totalBytes), 99)} % of ${amount(totalBytes)}` : amount(bytes));
  return { text: words.join(' · '), isExact: false };
}
