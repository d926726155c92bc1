import type { Preset } from './windowing.js';

/** What a drag with the first button, or one finger, does. */
export type DragTool = 'window' | 'pan' | 'zoom' | 'scroll';

export interface ToolbarActions {
  tool(tool: DragTool): void;
  preset(preset: Preset): void;
  invert(): void;
  fit(): void;
  actualSize(): void;
  zoom(factor: number): void;
  reset(): void;
  play(): void;
  rate(framesPerSecond: number): void;
}

const tools: [DragTool, string, string][] = [
  ['window', 'Window', 'Drag changes window width and centre (w)'],
  ['scroll', 'Scroll', 'Drag changes the frame (s)'],
  ['pan', 'Pan', 'Drag moves the picture (p)'],
  ['zoom', 'Zoom', 'Drag magnifies the picture (z)'],
];

/** The buttons above the picture. Shows states that others tell it; decides nothing. */
export class Toolbar {
  readonly #tools = new Map<DragTool, HTMLButtonElement>();
  readonly #presets = document.createElement('select');
  readonly #rate = document.createElement('select');
  readonly #invert: HTMLButtonElement;
  readonly #play: HTMLButtonElement;
  #offered: Preset[] = [];

  constructor(box: HTMLElement, actions: ToolbarActions) {
    const group = (label: string, ...children: HTMLElement[]): void => {
      const made = document.createElement('div');
      made.className = 'group';
      made.setAttribute('role', 'group');
      made.setAttribute('aria-label', label);
      made.append(...children);
      box.append(made);
    };
    for (const [tool, text, title] of tools) this.#tools.set(tool, this.#button(text, title, () => actions.tool(tool)));
    group('What a drag does', ...this.#tools.values());
    this.#presets.setAttribute('aria-label', 'Window preset');
    this.#presets.addEventListener('change', () => {
      const preset = this.#offered[this.#presets.selectedIndex];
      if (preset) actions.preset(preset);
    });
    this.#invert = this.#button('Invert', 'Exchange black and white (i)', () => actions.invert());
    group('Window', this.#presets, this.#invert);
    const zoomButtons = [this.#button('−', 'Smaller (-)', () => actions.zoom(1 / 1.25)), this.#button('+', 'Larger (+)', () => actions.zoom(1.25))];
    // Narrow screens have no room for them.
    for (const button of zoomButtons) button.className = 'spare';
    group('Size',
      this.#button('Fit', 'Show the whole picture (0)', () => actions.fit()),
      this.#button('1:1', 'One pixel of the picture on one of the screen (1)', () => actions.actualSize()),
      ...zoomButtons,
      this.#button('Reset', 'Window, inversion and size as at first (r)', () => actions.reset()));
    this.#play = this.#button('Play', 'Play the frames (space)', () => actions.play());
    this.#rate.setAttribute('aria-label', 'Frames a second');
    for (const rate of [5, 10, 15, 25, 30]) this.#rate.add(new Option(`${rate} /s`, String(rate), rate === 15, rate === 15));
    this.#rate.addEventListener('change', () => actions.rate(Number(this.#rate.value)));
    group('Cine', this.#play, this.#rate);
  }

  set tool(current: DragTool) {
    for (const [tool, button] of this.#tools) button.setAttribute('aria-pressed', String(tool === current));
  }

  set inverted(inverted: boolean) {
    this.#invert.setAttribute('aria-pressed', String(inverted));
  }

  set playing(playing: boolean) {
    this.#play.textContent = playing ? 'Stop' : 'Play';
    this.#play.setAttribute('aria-pressed', String(playing));
  }

  /** Whether there is more than one frame to play. */
  set canPlay(can: boolean) {
    this.#play.disabled = this.#rate.disabled = !can;
  }

  /** The presets of the frame in view; none for colour. */
  set presets(presets: Preset[]) {
    this.#presets.disabled = presets.length === 0;
    if (this.#presets.length > 0 && JSON.stringify(presets) === JSON.stringify(this.#offered)) return;
    this.#offered = presets;
    // Colour has no window.
    const names = presets.length > 0 ? presets.map(({ name }) => name) : ['no window'];
    this.#presets.replaceChildren(...names.map((name) => new Option(name)));
  }

  /** The preset that is in use; none after a drag. */
  set preset(name: string | undefined) {
    if (this.#offered.length > 0) this.#presets.selectedIndex = this.#offered.findIndex((preset) => preset.name === name);
  }

  #button(text: string, title: string, action: () => void): HTMLButtonElement {
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = text;
    button.title = title;
    button.setAttribute('aria-label', title.replace(/ \(.*\)$/, ''));
    button.addEventListener('click', action);
    return button;
  }
}
