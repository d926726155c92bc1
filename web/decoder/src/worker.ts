// The script of a pool's Worker: decodes one payload after another.
import { joined } from './bytes.js';
import { Decoder } from './decoder.js';
import type { FromWorker, ToWorker } from './messages.js';
import { DecodeError } from './picture.js';

interface WorkerScope {
  onmessage: ((event: MessageEvent<ToWorker>) => void) | null;
  postMessage(message: FromWorker, transfer?: Transferable[]): void;
}

const scope = globalThis as unknown as WorkerScope;
let decoder: Decoder | undefined;

scope.onmessage = ({ data }) => {
  if (data.kind === 'module') {
    decoder = new Decoder(data.module);
    return;
  }
  try {
    if (decoder === undefined) throw new DecodeError('crashed', 'no module has come');
    const picture = decoder.decode(joined(data.parts), data.options);
    scope.postMessage({ kind: 'picture', id: data.id, picture }, [picture.pixels.buffer as ArrayBuffer]);
  } catch (error) {
    const status = error instanceof DecodeError ? error.status : 'crashed';
    scope.postMessage({ kind: 'failure', id: data.id, status, message: String(error) });
  }
};
