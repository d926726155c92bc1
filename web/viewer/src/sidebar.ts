import type { ViewedObject } from './objectlist.js';
import type { Thumbnails } from './thumbnails.js';

function element<Name extends keyof HTMLElementTagNameMap>(name: Name, className = '', text = ''): HTMLElementTagNameMap[Name] {
  const made = document.createElement(name);
  made.className = className;
  made.textContent = text;
  return made;
}

function describe({ frames, error, descriptor }: ViewedObject): string {
  if (error !== null) return error;
  if (descriptor === null) return 'document';
  return frames === 1 ? '1 image' : `${frames} images`;
}

/** The list of objects: one is current, documents open in a tab of their own. */
export class Sidebar {
  readonly #buttons = new Map<ViewedObject, HTMLButtonElement>();

  constructor(list: HTMLElement, objects: ViewedObject[], thumbnails: Thumbnails, choose: (object: ViewedObject) => void) {
    for (const object of objects) {
      const item = element('li', object.error === null ? '' : 'failed');
      if (object.descriptor !== null || object.error !== null || object.document === null) item.append(this.#button(object, thumbnails, choose));
      if (object.document !== null) item.append(this.#documentLink(object));
      list.append(item);
    }
  }

  set current(object: ViewedObject) {
    for (const [other, button] of this.#buttons) button.setAttribute('aria-current', String(other === object));
    this.#buttons.get(object)?.scrollIntoView({ block: 'nearest', inline: 'nearest' });
  }

  /** Says what of an object could not be had; null: all is well. */
  note(object: ViewedObject, trouble: string | null): void {
    const button = this.#buttons.get(object);
    const about = button?.querySelector('small');
    if (!about) return;
    button?.parentElement?.classList.toggle('failed', trouble !== null);
    about.textContent = trouble ?? describe(object);
  }

  #button(object: ViewedObject, thumbnails: Thumbnails, choose: (object: ViewedObject) => void): HTMLButtonElement {
    const button = element('button');
    button.type = 'button';
    if (object.descriptor !== null) {
      const canvas = element('canvas');
      canvas.setAttribute('aria-hidden', 'true');
      thumbnails.add(canvas, object);
      button.append(canvas);
    } else {
      button.append(element('span', 'mark', '!'));
    }
    button.append(this.#words(object.name, describe(object)));
    button.addEventListener('click', () => choose(object));
    this.#buttons.set(object, button);
    return button;
  }

  #documentLink(object: ViewedObject): HTMLAnchorElement {
    const link = element('a', 'document');
    link.href = object.document as string;
    link.target = '_blank';
    link.rel = 'noopener';
    link.append(element('span', 'mark', 'PDF'), this.#words(object.name, 'document, opens in a tab'));
    return link;
  }

  #words(name: string, about: string): HTMLElement {
    const words = element('span');
    const title = element('span', 'name', name);
    title.title = name;
    words.append(title, element('small', '', about));
    return words;
  }
}
