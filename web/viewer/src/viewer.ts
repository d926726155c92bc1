// The page: reads the list, and puts sidebar, toolbar, gestures, stack and viewport together.
import { type FrameDescription, WorkerPool } from '@vintak/decoder';

import { Announcer } from './announcer.js';
import { Cine } from './cine.js';
import { Crosshair } from './crosshair.js';
import { fetchFile } from './carried.js';
import { afterPaint, FrameSource, type Received, type Shown } from './framesource.js';
import { listenToGestures } from './gestures.js';
import { listenToKeys } from './keyboard.js';
import { parseObjectList, type ViewedObject } from './objectlist.js';
import { Sidebar } from './sidebar.js';
import { signOf } from './sign.js';
import { Stack } from './stack.js';
import { Thumbnails } from './thumbnails.js';
import { type DragTool, Toolbar } from './toolbar.js';
import { Viewport } from './viewport.js';
import { type DisplayWindow, draggedWindow, fullRange, presetsOf } from './windowing.js';

const byId = <Kind extends HTMLElement>(id: string): Kind => document.getElementById(id) as Kind;
const query = new URLSearchParams(location.search);
const megabyte = 2 ** 20;
/** Milliseconds that the rest of the page waits for the first picture at most. */
const firstPictureTime = 100;

/** Not every browser tells when it is idle. */
function whenIdle(task: () => void): void {
  if ('requestIdleCallback' in window) requestIdleCallback(task, { timeout: firstPictureTime });
  else setTimeout(task);
}

class Viewer {
  readonly #pool = new WorkerPool({ workerUrl: new URL('assets/worker.js', document.baseURI), wasmUrl: new URL('assets/decoder.wasm', document.baseURI), startAtOnce: false });
  readonly #viewport = new Viewport(byId('viewport'), query.get('renderer') === 'canvas');
  readonly #stack = new Stack(new FrameSource(this.#pool), (Number(query.get('cache')) || 512) * megabyte, {
    frame: (frame, shown) => this.#show(frame, shown),
    problem: (text) => this.#tellProblem(text),
    received: (received) => {
      this.#received = received;
      this.#sign();
    },
    settled: () => this.#getReady(),
  });
  readonly #thumbnails = new Thumbnails(this.#pool);
  readonly #announcer = new Announcer(byId('announcer'));
  readonly #crosshair = new Crosshair(byId('viewport'));
  readonly #cine = new Cine(() => this.#playOn());
  #toolbar: Toolbar | undefined;
  readonly #slider = byId('slider').querySelector('input') as HTMLInputElement;
  #sidebar: Sidebar | undefined;
  #objects: ViewedObject[] = [];
  #tool: DragTool = 'window';
  #toolWasChosen = false;
  #isSettled = false;
  #isReady = false;
  readonly #drawnStages = new Set<string>();
  /** Of the frame in view. */
  #received: Received | undefined;
  #presetName: string | undefined = 'Default';
  #dragged: { window: DisplayWindow; index: number } = { window: { center: 0, width: 1 }, index: 0 };

  constructor() {
    this.#viewport.onDrawn = () => {
      this.#tellSize();
      this.#markStage();
    };
    this.#slider.addEventListener('input', () => this.#scrollTo(Number(this.#slider.value) - 1));
    byId('problem').querySelector('button')?.addEventListener('click', () => this.#retry());
    this.#listenToKeys();
    this.#listenToGestures();
    setTimeout(() => this.#furnish(), firstPictureTime);
  }

  /** Takes the list, from an answer that is on its way, and opens the first object that can be seen. */
  async start(answer: Promise<Response>): Promise<void> {
    this.#complain(null);
    try {
      const response = await answer;
      if (!response.ok) throw new Error(`the server answers ${response.status}`);
      this.#objects = parseObjectList(await response.json(), listUrl);
    } catch (error) {
      const why = error instanceof TypeError ? 'the connection was lost' : error instanceof Error ? error.message : String(error);
      this.#complain(`The list of objects cannot be had: ${why}`);
      return;
    }
    const first = this.#objects.find(({ descriptor }) => descriptor !== null) ?? this.#objects.find(({ error }) => error !== null);
    if (first) this.#open(first);
    else this.#complain(this.#objects.length > 0 ? null : 'The list of objects is empty');
    if (this.#toolbar) this.#listObjects();
  }

  /** For tests and the curious: what is on the screen. */
  get state(): object {
    const shown = this.#viewport.shown;
    return {
      object: this.#stack.object?.name ?? null,
      frame: this.#viewport.frame?.frame ?? null,
      frames: this.#stack.frames.length,
      stage: shown?.stage ?? null,
      reduce: shown?.picture.reduce ?? null,
      bytes: shown?.bytes ?? null,
      pictureFrameSize: shown ? [shown.picture.frameWidth, shown.picture.frameHeight] : null,
      window: { ...this.#viewport.window },
      invert: this.#viewport.invert,
      tool: this.#tool,
      playing: this.#cine.playing,
      renderer: this.#viewport.renderer,
      ready: this.#isReady,
      cachedBytes: this.#stack.cachedBytes,
      problem: byId('problem').hidden ? null : (byId('problem').querySelector('p')?.textContent ?? ''),
    };
  }

  /** The samples on the screen, for tests. */
  get samples(): Uint8Array | Uint16Array | undefined {
    return this.#viewport.shown?.picture.pixels;
  }

  #open(object: ViewedObject): void {
    if (this.#sidebar) this.#sidebar.current = object;
    this.#play(false);
    this.#presetName = 'Default';
    this.#invert(false);
    this.#viewport.fit();
    void this.#stack.open(object);
  }

  /** What the first picture has no use for, once it is on the screen or none will come: one by one, and what files bring goes before. */
  #getReady(): void {
    if (this.#isSettled) return;
    this.#isSettled = true;
    const tasks = [() => this.#furnish(), () => this.#viewport.useGraphicsProcessor(), () => this.#thumbnails.allow(), () => (this.#isReady = true)];
    afterPaint(() => {
      this.#pool.start();
      for (const task of tasks) whenIdle(task);
    });
  }

  /** Toolbar and list, which take longer to lay out than a picture to draw. */
  #furnish(): void {
    if (this.#toolbar) return;
    this.#toolbar = new Toolbar(byId('toolbar'), {
      tool: (tool) => this.#chooseTool(tool),
      preset: (preset) => this.#setWindow(preset, preset.name),
      invert: () => this.#invert(!this.#viewport.invert),
      fit: () => this.#viewport.fit(),
      actualSize: () => this.#viewport.actualSize(),
      zoom: (factor) => this.#viewport.zoom(factor),
      reset: () => this.#reset(),
      play: () => this.#play(!this.#cine.playing),
      rate: (rate) => (this.#cine.rate = rate),
    });
    this.#tellToolbar();
    if (this.#objects.length > 0) this.#listObjects();
  }

  #listObjects(): void {
    const list = byId('objects').querySelector('ul') as HTMLElement;
    list.replaceChildren();
    this.#sidebar = new Sidebar(list, this.#objects, this.#thumbnails, (object) => this.#open(object));
    const { object, trouble } = this.#stack;
    if (object === undefined) return;
    this.#sidebar.current = object;
    if (object.error === null) this.#sidebar.note(object, trouble);
  }

  #tellToolbar(): void {
    const toolbar = this.#toolbar;
    if (toolbar === undefined) return;
    const { frame, invert } = this.#viewport;
    toolbar.presets = frame?.layout === 'mono' ? presetsOf(frame) : [];
    toolbar.preset = this.#presetName;
    toolbar.canPlay = this.#stack.frames.length > 1;
    toolbar.inverted = invert;
    toolbar.tool = this.#tool;
    toolbar.playing = this.#cine.playing;
  }

  #show(frame: FrameDescription | undefined, shown: Shown | undefined): void {
    const presets = frame === undefined || frame.layout !== 'mono' ? [] : presetsOf(frame);
    // A preset follows the frame, each of which may have a window of its own; a window of the user's stays.
    const preset = presets.find(({ name }) => name === this.#presetName);
    if (preset) this.#viewport.window = { center: preset.center, width: preset.width };
    if (frame !== this.#viewport.frame) this.#received = undefined;
    this.#viewport.show(frame, shown);
    this.#tellPlace(frame);
    this.#tellToolbar();
    this.#sign();
    document.body.dataset['stage'] = shown?.stage ?? 'none';
    if (frame) this.#announcer.say(`${this.#stack.object?.name}, frame ${this.#stack.index + 1} of ${this.#stack.frames.length}: ${shown?.stage ?? 'loading'}`);
  }

  #sign(): void {
    const { frame, shown } = this.#viewport;
    const sign = byId('sign');
    const said = frame === undefined ? { text: '', isExact: false } : signOf(shown, this.#received);
    sign.textContent = said.text;
    sign.classList.toggle('exact', said.isExact);
  }

  #tellPlace(frame: FrameDescription | undefined): void {
    const count = this.#stack.frames.length;
    byId('title').textContent =
      frame === undefined ? (this.#stack.object?.name ?? '') : `${this.#stack.object?.name}\n${count > 1 ? `frame ${this.#stack.index + 1} of ${count}, ` : ''}${frame.columns} × ${frame.rows}`;
    byId('slider').hidden = count < 2;
    this.#slider.max = String(Math.max(count, 1));
    this.#slider.value = String(this.#stack.index + 1);
    this.#slider.setAttribute('aria-valuetext', `frame ${this.#stack.index + 1} of ${count}`);
    // One finger swipes through a stack, unless it was told to do something else.
    if (!this.#toolWasChosen && matchMedia('(pointer: coarse)').matches) this.#tool = count > 1 ? 'scroll' : 'window';
    this.#probeAgain();
  }

  #tellSize(): void {
    const { frame, window, invert } = this.#viewport;
    const isGrey = frame?.layout === 'mono';
    const round = (value: number): string => String(Math.abs(value) < 10 ? Math.round(value * 100) / 100 : Math.round(value));
    byId('values').textContent = isGrey ? `C ${round(window.center)}  W ${round(window.width)}${invert ? '  inverted' : ''}` : invert ? 'inverted' : '';
    const bar = this.#viewport.scaleBar();
    byId('scalebar').hidden = bar === undefined;
    if (bar === undefined) return;
    byId('scalebar').style.width = `${bar.pixels}px`;
    (byId('scalebar').firstElementChild as HTMLElement).textContent = bar.text;
  }

  /** Tells the browser's timeline when the page's first picture of each stage was drawn: "vintak:preview", "vintak:exact". */
  #markStage(): void {
    const stage = this.#viewport.shown?.stage;
    if (stage === undefined || this.#drawnStages.has(stage)) return;
    this.#drawnStages.add(stage);
    performance.mark(`vintak:${stage}`);
  }

  #tellProblem(text: string | null): void {
    this.#complain(text);
    const { object, trouble } = this.#stack;
    if (object && object.error === null) this.#sidebar?.note(object, trouble);
    // What could not be converted is not there the next time either.
    (byId('problem').querySelector('button') as HTMLElement).hidden = object !== undefined && object.error !== null;
  }

  #retry(): void {
    this.#thumbnails.retry();
    if (this.#objects.length > 0) this.#stack.retry();
    else void this.start(fetchList());
  }

  #complain(text: string | null): void {
    byId('problem').hidden = text === null;
    (byId('problem').querySelector('p') as HTMLElement).textContent = text ?? '';
  }

  #setWindow(window: DisplayWindow, presetName?: string): void {
    this.#presetName = presetName;
    this.#viewport.window = { center: window.center, width: window.width };
    this.#tellToolbar();
    this.#viewport.redraw();
  }

  #invert(invert: boolean): void {
    this.#viewport.invert = invert;
    this.#tellToolbar();
    this.#viewport.redraw();
  }

  #reset(): void {
    const { frame } = this.#viewport;
    if (frame?.layout === 'mono') this.#setWindow(presetsOf(frame)[0] as DisplayWindow, 'Default');
    this.#invert(false);
    this.#viewport.fit();
  }

  #chooseTool(tool: DragTool): void {
    this.#toolWasChosen = true;
    this.#tool = tool;
    this.#tellToolbar();
  }

  #play(play: boolean): void {
    if (play && this.#stack.frames.length > 1) this.#cine.play();
    else this.#cine.stop();
    this.#tellToolbar();
  }

  /** The next frame once this one has a picture. */
  #playOn(): void {
    if (this.#viewport.shown === undefined) return;
    const last = this.#stack.frames.length - 1;
    this.#stack.goTo(this.#stack.index === last ? 0 : this.#stack.index + 1);
  }

  #scroll(frames: number): void {
    this.#scrollTo(this.#stack.index + frames);
  }

  #scrollTo(index: number): void {
    this.#play(false);
    this.#stack.goTo(index);
  }

  #nextObject(step: number): void {
    const seen = this.#objects.filter(({ descriptor, error }) => descriptor !== null || error !== null);
    const at = seen.findIndex((object) => object === this.#stack.object);
    const next = seen[Math.min(Math.max(at + step, 0), seen.length - 1)];
    if (next && next !== this.#stack.object) this.#open(next);
  }

  #listenToKeys(): void {
    listenToKeys({
      scroll: (frames) => this.#scroll(frames),
      zoom: (factor) => this.#viewport.zoom(factor),
      fit: () => this.#viewport.fit(),
      actualSize: () => this.#viewport.actualSize(),
      invert: () => this.#invert(!this.#viewport.invert),
      reset: () => this.#reset(),
      play: () => this.#play(!this.#cine.playing),
      tool: (tool) => this.#chooseTool(tool),
      mark: () => this.#markPlace(!this.#crosshair.isShown),
      object: (step) => this.#nextObject(step),
      move: (x, y) => this.#moveByKey(x, y),
    });
  }

  /** By a pixel of the frame with the crosshair, or else what a drag of some CSS pixels does. */
  #moveByKey(x: number, y: number): void {
    if (this.#crosshair.isShown) {
      const { width, height } = this.#viewport.pixelSize;
      this.#crosshair.move(x * width, y * height);
      this.#markPlace(true);
      return;
    }
    const [dx, dy] = [16 * x, 16 * y];
    const { left, top, width, height } = byId('viewport').getBoundingClientRect();
    this.#beginDrag();
    this.#drag(this.#tool, { dx, dy }, { dx, dy }, { x: left + width / 2, y: top + height / 2 });
  }

  #markPlace(mark: boolean): void {
    this.#crosshair.show(mark);
    this.#probeAgain();
    if (mark) this.#announcer.say(byId('probe').textContent || 'outside the image');
  }

  /** At the crosshair; where there is none the pointer will say. */
  #probeAgain(): void {
    const { x, y } = this.#crosshair.position;
    if (this.#crosshair.isShown) this.#probe(x, y);
    else byId('probe').textContent = '';
  }

  #beginDrag(): void {
    this.#dragged = { window: { ...this.#viewport.window }, index: this.#stack.index };
  }

  #drag(tool: DragTool, total: { dx: number; dy: number }, step: { dx: number; dy: number }, at: { x: number; y: number }): void {
    const pixelsPerFrame = 12;
    const { frame } = this.#viewport;
    if (tool === 'pan') this.#viewport.pan(step.dx, step.dy);
    else if (tool === 'zoom') this.#viewport.zoom(Math.exp(-step.dy / 150), at.x, at.y);
    else if (tool === 'scroll') this.#scrollTo(this.#dragged.index + Math.round(total.dy / pixelsPerFrame));
    else if (frame?.layout === 'mono') this.#setWindow(draggedWindow(this.#dragged.window, total.dx, total.dy, fullRange(frame).width));
  }

  #listenToGestures(): void {
    listenToGestures(byId('viewport'), () => this.#tool, {
      beginDrag: () => this.#beginDrag(),
      drag: (tool, total, step, at) => this.#drag(tool, total, step, at),
      zoom: (factor, x, y) => this.#viewport.zoom(factor, x, y),
      pan: (dx, dy) => this.#viewport.pan(dx, dy),
      scroll: (frames) => this.#scroll(frames),
      hover: (x, y) => this.#probe(x, y),
      leave: () => this.#probeAgain(),
    });
  }

  #probe(x: number, y: number): void {
    const probe = this.#viewport.probe(x, y);
    const value = probe && (Array.isArray(probe.value) ? `rgb ${probe.value.join(' ')}` : String(Math.round(probe.value * 1000) / 1000));
    const isRough = this.#viewport.shown?.stage !== 'exact';
    byId('probe').textContent = probe ? `${probe.x}, ${probe.y}: ${isRough ? '≈ ' : ''}${value}` : '';
  }
}

const listUrl = new URL(query.get('list') ?? 'objects.json', document.baseURI).href;
const fetchList = (): Promise<Response> => fetchFile(listUrl);
// On its way while the page is put together.
const list = fetchList();
list.catch(() => undefined);
const viewer = new Viewer();
Object.defineProperty(window, 'vintak', { value: Object.freeze({
  get state() { return viewer.state; },
  get samples() { return viewer.samples; },
}) });
void viewer.start(list);
