/** Tells readers of the screen what changed, once nothing has for a while: a stack that is scrolled would never let them finish. */
export class Announcer {
  readonly #place: HTMLElement;
  readonly #quiet: number;
  #timer: ReturnType<typeof setTimeout> | undefined;

  /** `place` is a live region; `quiet` are the milliseconds to wait for. */
  constructor(place: HTMLElement, quiet = 500) {
    this.#place = place;
    this.#quiet = quiet;
  }

  say(text: string): void {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => {
      if (this.#place.textContent !== text) this.#place.textContent = text;
    }, this.#quiet);
  }
}
