/** A mark on the picture for those who have no pointer: the middle of the box, moved by keys. */
export class Crosshair {
  readonly #box: HTMLElement;
  readonly #mark = document.createElement('div');
  /** From the middle of the box, in CSS pixels. */
  #offset = { x: 0, y: 0 };

  constructor(box: HTMLElement) {
    this.#box = box;
    this.#mark.className = 'crosshair';
    this.#mark.setAttribute('aria-hidden', 'true');
    this.#mark.hidden = true;
    box.append(this.#mark);
  }

  get isShown(): boolean {
    return !this.#mark.hidden;
  }

  /** In the middle again when it was hidden. */
  show(shown: boolean): void {
    if (!this.isShown) this.#offset = { x: 0, y: 0 };
    this.#mark.hidden = !shown;
    this.#place();
  }

  /** Moves it by CSS pixels, and keeps it in the box. */
  move(dx: number, dy: number): void {
    const within = (value: number, most: number): number => Math.min(Math.max(value, -most), most);
    this.#offset = {
      x: within(this.#offset.x + dx, this.#box.clientWidth / 2 - 1),
      y: within(this.#offset.y + dy, this.#box.clientHeight / 2 - 1),
    };
    this.#place();
  }

  /** In the page's coordinates. */
  get position(): { x: number; y: number } {
    const { left, top, width, height } = this.#box.getBoundingClientRect();
    return { x: left + width / 2 + this.#offset.x, y: top + height / 2 + this.#offset.y };
  }

  #place(): void {
    this.#mark.style.translate = `${this.#offset.x}px ${this.#offset.y}px`;
  }
}
