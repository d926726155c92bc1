/** Something to be loaded; equal keys are the same work. */
export interface Task {
  key: string;
  run(signal: AbortSignal): Promise<void>;
}

/**
 * Runs the tasks that are wanted now, the first ones first, a few at a time. What runs and is no longer wanted is aborted;
 * what is done, or has failed, is not begun again until forget().
 */
export class Scheduler {
  readonly #atOnce: number;
  readonly #running = new Map<string, AbortController>();
  readonly #settled = new Set<string>();
  #wanted: Task[] = [];
  #mayBegin = 0;

  constructor(atOnce: number) {
    this.#atOnce = atOnce;
  }

  get running(): string[] {
    return [...this.#running.keys()];
  }

  /** From now on these are wanted, in this order. Those beyond the first `mayBegin` go on where they run but wait otherwise. */
  want(tasks: Task[], mayBegin = tasks.length): void {
    this.#wanted = tasks;
    this.#mayBegin = mayBegin;
    const keys = new Set(tasks.map(({ key }) => key));
    for (const [key, abort] of this.#running) {
      if (keys.has(key)) continue;
      this.#running.delete(key);
      abort.abort();
    }
    this.#begin();
  }

  /** Work that may be done again. */
  forget(key: string): void {
    this.#settled.delete(key);
  }

  #begin(): void {
    // The first task is what is on the screen: it never waits behind the others.
    for (const [index, task] of this.#wanted.slice(0, this.#mayBegin).entries()) {
      if (this.#running.size >= this.#atOnce && index > 0) return;
      if (!this.#running.has(task.key) && !this.#settled.has(task.key)) this.#start(task);
    }
  }

  #start(task: Task): void {
    const abort = new AbortController();
    this.#running.set(task.key, abort);
    void task
      .run(abort.signal)
      .then(() => this.#settled.add(task.key), () => !abort.signal.aborted && this.#settled.add(task.key))
      .finally(() => {
        if (this.#running.get(task.key) === abort) this.#running.delete(task.key);
        if (!abort.signal.aborted) this.#begin();
      });
  }
}
