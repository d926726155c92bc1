import type { FromWorker, ToWorker } from './messages.js';
import { compileModule, type ModuleSource } from './module.js';
import { DecodeError, type DecodeOptions, type Picture } from './picture.js';

export interface PoolOptions {
  /** The package's dist/worker.js, as a module. */
  workerUrl: string | URL;
  wasmUrl: ModuleSource;
  /** Workers; by default one less than there are processors, between 1 and 4. */
  size?: number;
}

export interface PoolDecodeOptions extends DecodeOptions {
  /** Drops the request: what waits is not decoded, what is being decoded comes to nobody. */
  signal?: AbortSignal;
  /** The greatest goes first, equals in their order. Default 0. */
  priority?: number;
}

interface Job {
  id: number;
  parts: Uint8Array[];
  options: DecodeOptions;
  priority: number;
  resolve(picture: Picture): void;
  reject(reason: unknown): void;
}

interface Slot {
  worker: Worker;
  job: Job | undefined;
}

/** Workers that decode: each payload on one of them, several payloads side by side. */
export class WorkerPool {
  readonly #workerUrl: string | URL;
  readonly #module: Promise<WebAssembly.Module>;
  readonly #slots: Slot[] = [];
  #waiting: Job[] = [];
  #nextId = 1;
  #closed = false;

  constructor(options: PoolOptions) {
    this.#workerUrl = options.workerUrl;
    this.#module = compileModule(options.wasmUrl);
    // A page that never decodes shall not hear of a module that could not be had.
    this.#module.catch(() => undefined);
    const size = options.size ?? Math.min(Math.max((navigator.hardwareConcurrency || 2) - 1, 1), 4);
    for (let i = 0; i < size; ++i) this.#slots.push(this.#start());
  }

  /** Resolves when the module is compiled; rejects when it cannot be had. */
  get ready(): Promise<void> {
    return this.#module.then(() => undefined);
  }

  /** Decodes a payload that lies in one or several parts, which stay the caller's. Rejects with DecodeError or an AbortError. */
  async decode(bytes: Uint8Array | Uint8Array[], options: PoolDecodeOptions = {}): Promise<Picture> {
    await this.#module;
    const { signal, priority = 0, ...decodeOptions } = options;
    signal?.throwIfAborted();
    if (this.#closed) throw new DecodeError('crashed', 'the pool is closed');
    return new Promise<Picture>((resolve, reject) => {
      const job: Job = { id: this.#nextId++, parts: Array.isArray(bytes) ? bytes : [bytes], options: decodeOptions, priority, resolve, reject };
      signal?.addEventListener('abort', () => this.#abort(job, signal.reason), { once: true });
      this.#enqueue(job);
      this.#assign();
    });
  }

  /** Ends the Workers; what was asked for and has not come is rejected. */
  close(): void {
    this.#closed = true;
    for (const { worker, job } of this.#slots) {
      worker.terminate();
      job?.reject(new DecodeError('crashed', 'the pool is closed'));
    }
    for (const job of this.#waiting) job.reject(new DecodeError('crashed', 'the pool is closed'));
    this.#slots.length = 0;
    this.#waiting = [];
  }

  #start(): Slot {
    const slot: Slot = { worker: new Worker(this.#workerUrl, { type: 'module' }), job: undefined };
    slot.worker.onmessage = (event: MessageEvent<FromWorker>) => this.#answer(slot, event.data);
    slot.worker.onerror = (event) => {
      event.preventDefault();
      this.#replace(slot, event.message);
    };
    void this.#module.then((module) => post(slot.worker, { kind: 'module', module }));
    return slot;
  }

  #enqueue(job: Job): void {
    const at = this.#waiting.findIndex((other) => other.priority < job.priority);
    this.#waiting.splice(at < 0 ? this.#waiting.length : at, 0, job);
  }

  #assign(): void {
    for (const slot of this.#slots) {
      if (slot.job !== undefined) continue;
      const job = this.#waiting.shift();
      if (job === undefined) return;
      slot.job = job;
      post(slot.worker, { kind: 'decode', id: job.id, parts: job.parts, options: job.options });
    }
  }

  #answer(slot: Slot, message: FromWorker): void {
    const job = slot.job;
    if (job === undefined || job.id !== message.id) return;
    slot.job = undefined;
    if (message.kind === 'picture') job.resolve(message.picture);
    else job.reject(new DecodeError(message.status, message.message));
    this.#assign();
  }

  #abort(job: Job, reason: unknown): void {
    this.#waiting = this.#waiting.filter((other) => other !== job);
    job.reject(reason);
  }

  #replace(slot: Slot, why: string): void {
    const at = this.#slots.indexOf(slot);
    slot.worker.terminate();
    slot.job?.reject(new DecodeError('crashed', why));
    if (at < 0 || this.#closed) return;
    this.#slots[at] = this.#start();
    this.#assign();
  }
}

function post(worker: Worker, message: ToWorker): void {
  worker.postMessage(message);
}
