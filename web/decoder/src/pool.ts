import type { FromWorker, ToWorker } from './messages.js';
import { compileModule, type ModuleSource } from './module.js';
import { DecodeError, type DecodeOptions, type Picture } from './picture.js';

export interface PoolOptions {
  /** The package's dist/worker.js, as a module. */
  workerUrl: string | URL;
  wasmUrl: ModuleSource;
  /** Workers; by default one less than there are processors, between 1 and 4. */
  size?: number;
  /** False: Workers are started when there is work for them, or by start(). Default true. */
  startAtOnce?: boolean;
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
  /** None after one came to an end, until there is work for the next: one that cannot be started shall not be started all the time. */
  worker: Worker | undefined;
  job: Job | undefined;
}

/** Workers that decode: each payload on one of them, several payloads side by side. */
export class WorkerPool {
  readonly #workerUrl: string | URL;
  readonly #wasmUrl: ModuleSource;
  #module: Promise<WebAssembly.Module>;
  #compiled: WebAssembly.Module | undefined;
  readonly #slots: Slot[] = [];
  #waiting: Job[] = [];
  #nextId = 1;
  #closed = false;

  constructor(options: PoolOptions) {
    this.#workerUrl = options.workerUrl;
    this.#wasmUrl = options.wasmUrl;
    this.#module = this.#compile();
    const size = options.size ?? Math.min(Math.max((navigator.hardwareConcurrency || 2) - 1, 1), 4);
    for (let i = 0; i < size; ++i) this.#slots.push({ worker: undefined, job: undefined });
    if (options.startAtOnce ?? true) this.start();
  }

  /** Resolves when the module is compiled; rejects when it cannot be had. */
  get ready(): Promise<void> {
    return this.#module.then(() => undefined);
  }

  /** The compiled module, for whoever wants to decode on a thread of its own; rejects when it cannot be had. */
  get module(): Promise<WebAssembly.Module> {
    return this.#haveModule();
  }

  /** Whether any Worker has been started. */
  get isStarted(): boolean {
    return this.#slots.some(({ worker }) => worker !== undefined);
  }

  /** Starts the Workers that are not there, so that the next work finds them ready. */
  start(): void {
    for (const slot of this.#slots) if (slot.worker === undefined) this.#start(slot);
  }

  /** Decodes a payload that lies in one or several parts, which stay the caller's. Rejects with DecodeError or an AbortError. */
  async decode(bytes: Uint8Array | Uint8Array[], options: PoolDecodeOptions = {}): Promise<Picture> {
    await this.#haveModule();
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
      worker?.terminate();
      job?.reject(new DecodeError('crashed', 'the pool is closed'));
    }
    for (const job of this.#waiting) job.reject(new DecodeError('crashed', 'the pool is closed'));
    this.#slots.length = 0;
    this.#waiting = [];
  }

  /** A module that could not be had is asked for again, once for all who wait: the connection may be back. */
  async #haveModule(): Promise<WebAssembly.Module> {
    const tried = this.#module;
    try {
      return await tried;
    } catch {
      if (this.#module === tried) this.#module = this.#compile();
      return this.#module;
    }
  }

  #compile(): Promise<WebAssembly.Module> {
    const compiling = compileModule(this.#wasmUrl).then((module) => {
      this.#compiled = module;
      for (const { worker } of this.#slots) if (worker) post(worker, { kind: 'module', module });
      return module;
    });
    // A page that never decodes shall not hear of a module that could not be had.
    compiling.catch(() => undefined);
    return compiling;
  }

  #start(slot: Slot): void {
    const worker = new Worker(this.#workerUrl, { type: 'module' });
    worker.onmessage = (event: MessageEvent<FromWorker>) => this.#answer(slot, event.data);
    worker.onerror = (event) => {
      event.preventDefault();
      if (slot.worker === worker) this.#end(slot, event.message);
    };
    if (this.#compiled) post(worker, { kind: 'module', module: this.#compiled });
    slot.worker = worker;
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
      try {
        if (slot.worker === undefined) this.#start(slot);
      } catch (error) {
        // The browser refuses another site's script at once, without an event.
        job.reject(new DecodeError('crashed', String(error)));
        continue;
      }
      slot.job = job;
      post(slot.worker as Worker, { kind: 'decode', id: job.id, parts: job.parts, options: job.options });
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

  /** A Worker came to an end: what it was doing fails, and the next one is started for the next work. */
  #end(slot: Slot, why: string): void {
    const { worker, job } = slot;
    [slot.worker, slot.job] = [undefined, undefined];
    worker?.terminate();
    job?.reject(new DecodeError('crashed', why || 'its script could not be had'));
    if (!this.#closed) this.#assign();
  }
}

function post(worker: Worker, message: ToWorker): void {
  worker.postMessage(message);
}
