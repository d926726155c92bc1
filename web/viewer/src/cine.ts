/** Plays the frames of a stack: calls `step` at a rate, never faster than it is done. */
export class Cine {
  readonly #step: () => void;
  #timer: ReturnType<typeof setTimeout> | undefined;
  /** Frames a second, 1 to 60. */
  rate = 15;

  constructor(step: () => void) {
    this.#step = step;
  }

  get playing(): boolean {
    return this.#timer !== undefined;
  }

  play(): void {
    if (this.playing) return;
    const next = (due: number): void => {
      this.#timer = setTimeout(() => {
        this.#step();
        next(Math.max(due + 1000 / this.rate, performance.now()));
      }, Math.max(due - performance.now(), 0));
    };
    next(performance.now() + 1000 / this.rate);
  }

  stop(): void {
    clearTimeout(this.#timer);
    this.#timer = undefined;
  }
}
