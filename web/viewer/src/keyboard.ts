import type { DragTool } from './toolbar.js';

export interface KeyActions {
  /** Frames onwards; backwards when negative; beyond the ends, the end's. */
  scroll(frames: number): void;
  zoom(factor: number): void;
  fit(): void;
  actualSize(): void;
  invert(): void;
  reset(): void;
  play(): void;
  tool(tool: DragTool): void;
  /** Shows the mark, or takes it away. */
  mark(): void;
  /** To the next object, or the one before (-1). */
  object(step: number): void;
  /** A step to the right and downwards. */
  move(x: number, y: number): void;
}

const arrows: Record<string, [number, number]> = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
const toTheEnd = Number.MAX_SAFE_INTEGER;

/** What the page's keys do; those that a control or the browser has a use for are left to them. */
export function listenToKeys(actions: KeyActions): void {
  const plain: Record<string, () => void> = {
    ArrowDown: () => actions.scroll(1), ArrowRight: () => actions.scroll(1), ArrowUp: () => actions.scroll(-1), ArrowLeft: () => actions.scroll(-1),
    PageDown: () => actions.scroll(10), PageUp: () => actions.scroll(-10), Home: () => actions.scroll(-toTheEnd), End: () => actions.scroll(toTheEnd),
    '+': () => actions.zoom(1.25), '=': () => actions.zoom(1.25), '-': () => actions.zoom(1 / 1.25),
    '0': () => actions.fit(), '1': () => actions.actualSize(), i: () => actions.invert(), r: () => actions.reset(), ' ': () => actions.play(),
    w: () => actions.tool('window'), s: () => actions.tool('scroll'), p: () => actions.tool('pan'), z: () => actions.tool('zoom'),
    v: () => actions.mark(), '.': () => actions.object(1), ',': () => actions.object(-1),
  };
  document.addEventListener('keydown', (event) => {
    const { key, shiftKey } = event;
    const target = event.target as HTMLElement;
    if (event.ctrlKey || event.metaKey || event.altKey || target.tagName === 'SELECT') return;
    if (key === ' ' && target.tagName === 'BUTTON') return;
    if (target.tagName === 'INPUT' && /^(Arrow|Page|Home|End)/.test(key)) return;
    const arrow = shiftKey ? arrows[key] : undefined;
    // Letters mean the same where capitals are locked.
    const action = arrow ? () => actions.move(...arrow) : plain[event.getModifierState('CapsLock') && key.length === 1 ? key.toLowerCase() : key];
    if (action === undefined) return;
    event.preventDefault();
    action();
  });
}
