// A stack viewport over the objects of an objects.json (?list=URL, by default the one beside this page).
import { Enums, eventTarget, init, RenderingEngine, type Types, utilities } from '@cornerstonejs/core';

import { fetchObject, progressiveStages, registerVintak } from '../src/index.js';

interface ListedObject {
  name: string;
  prefix: string;
  descriptor: string | null;
}

const list = new URL(new URLSearchParams(location.search).get('list') ?? 'objects.json', location.href);
const select = document.querySelector('#objects') as HTMLSelectElement;
const state = document.querySelector('#state') as HTMLOutputElement;
const element = document.querySelector('#viewport') as HTMLDivElement;

async function show(viewport: Types.IStackViewport, object: ListedObject): Promise<void> {
  const imageIds = await fetchObject(new URL(object.descriptor?.endsWith('.index') ? object.descriptor : object.prefix, list).href);
  await viewport.setStack(imageIds);
  viewport.render();
}

async function start(): Promise<void> {
  await init();
  registerVintak({ workerUrl: new URL('assets/worker.js', location.href), wasmUrl: new URL('assets/decoder.wasm', location.href) });
  utilities.imageRetrieveMetadataProvider.add('stack', progressiveStages);
  const engine = new RenderingEngine('example');
  engine.enableElement({ viewportId: 'stack', type: Enums.ViewportType.STACK, element });
  const viewport = engine.getViewport('stack') as Types.IStackViewport;

  // What tests and the curious look at.
  const seen: { event: string; id?: string; quality?: number | undefined }[] = [];
  Object.assign(window, { vintakExample: { viewport, seen } });
  eventTarget.addEventListener(Enums.Events.IMAGE_RETRIEVAL_STAGE, ((event: CustomEvent) =>
    seen.push({ event: 'stage', id: event.detail.stageId })) as EventListener);
  element.addEventListener(Enums.Events.STACK_NEW_IMAGE, ((event: CustomEvent) => {
    const { imageId, imageQualityStatus: quality } = event.detail.image as Types.IImage;
    seen.push({ event: 'image', id: imageId, quality });
    state.textContent = quality === Enums.ImageQualityStatus.FULL_RESOLUTION ? 'exact' : 'a first picture';
  }) as EventListener);
  element.addEventListener('wheel', (event) => {
    event.preventDefault();
    viewport.scroll(Math.sign(event.deltaY));
  });

  const { objects } = (await (await fetch(list)).json()) as { objects: ListedObject[] };
  const shown = objects.filter(({ descriptor }) => descriptor !== null);
  for (const { name } of shown) select.add(new Option(name));
  select.addEventListener('change', () => void show(viewport, shown[select.selectedIndex] as ListedObject));
  if (shown[0]) await show(viewport, shown[0]);
}

start().catch((error) => {
  state.textContent = String(error);
});
