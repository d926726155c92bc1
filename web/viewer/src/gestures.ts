import type { DragTool } from './toolbar.js';

/** What fingers, mouse and wheel ask for; distances in CSS pixels, places in the page's. */
export interface GestureActions {
  beginDrag(): void;
  /** Since the drag began, and since it was last told of. */
  drag(tool: DragTool, total: { dx: number; dy: number }, step: { dx: number; dy: number }, at: { x: number; y: number }): void;
  zoom(factor: number, x: number, y: number): void;
  pan(dx: number, dy: number): void;
  scroll(frames: number): void;
  hover(x: number, y: number): void;
  leave(): void;
}

interface Point {
  x: number;
  y: number;
}

/** Turns pointer and wheel events of an element into gestures: one pointer drags, two pinch. */
export function listenToGestures(box: HTMLElement, toolInUse: () => DragTool, actions: GestureActions): void {
  const pointers = new Map<number, Point>();
  let start: Point = { x: 0, y: 0 };
  let tool: DragTool = 'window';
  let wheel = 0;

  const pinch = (): { middle: Point; distance: number } => {
    const [a, b] = [...pointers.values()] as [Point, Point];
    return { middle: { x: (a.x + b.x) / 2, y: (a.y + b.y) / 2 }, distance: Math.hypot(a.x - b.x, a.y - b.y) };
  };

  box.addEventListener('pointerdown', (event) => {
    if ((event.target as Element).closest('button, a')) return;
    box.setPointerCapture(event.pointerId);
    pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
    start = { x: event.clientX, y: event.clientY };
    tool = event.button === 1 ? 'pan' : event.button === 2 ? 'zoom' : toolInUse();
    if (pointers.size === 1) actions.beginDrag();
    // A finger does not hover.
    actions.hover(event.clientX, event.clientY);
  });
  box.addEventListener('pointermove', (event) => {
    const last = pointers.get(event.pointerId);
    if (last === undefined || event.pointerType === 'mouse') actions.hover(event.clientX, event.clientY);
    if (last === undefined) return;
    const before = pointers.size === 2 ? pinch() : undefined;
    pointers.set(event.pointerId, { x: event.clientX, y: event.clientY });
    if (before !== undefined) {
      const now = pinch();
      actions.pan(now.middle.x - before.middle.x, now.middle.y - before.middle.y);
      if (before.distance > 0) actions.zoom(now.distance / before.distance, now.middle.x, now.middle.y);
    } else if (pointers.size === 1) {
      actions.drag(tool, { dx: event.clientX - start.x, dy: event.clientY - start.y }, { dx: event.clientX - last.x, dy: event.clientY - last.y }, start);
    }
  });
  for (const name of ['pointerup', 'pointercancel'] as const)
    box.addEventListener(name, (event) => {
      pointers.delete(event.pointerId);
      // What is left of a pinch shall not go on as a drag from where it began.
      for (const point of pointers.values()) start = point;
      actions.beginDrag();
    });
  box.addEventListener('pointerleave', () => actions.leave());
  box.addEventListener('contextmenu', (event) => event.preventDefault());
  box.addEventListener('wheel', (event) => {
    event.preventDefault();
    if (event.ctrlKey || event.metaKey) {
      actions.zoom(Math.exp(-event.deltaY / 300), event.clientX, event.clientY);
      return;
    }
    // Touchpads send many small steps, wheels one large one.
    wheel += event.deltaMode === 0 ? event.deltaY / 40 : event.deltaY;
    const frames = Math.trunc(wheel);
    wheel -= frames;
    if (frames !== 0) actions.scroll(Math.sign(frames) * Math.min(Math.abs(frames), event.deltaMode === 0 && Math.abs(event.deltaY) < 100 ? 3 : 1));
  }, { passive: false });
}
