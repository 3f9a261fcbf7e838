// Thumbnails of every operation on the picture as it is after the steps.

import {Engine} from './engine.js';
import {atDepth, builtIn, shrink} from './pictures.js';
import {draw} from './view.js';

const THUMBNAIL_PIXELS = 150 * 100;
const REST = 600; // milliseconds without a change after which thumbnails are made

export class Gallery {
  #engine = new Engine(); // a worker of its own: previews do not wait for thumbnails
  #list;
  #table;
  #picture;
  #timer = 0;
  #round = 0;

  /** Fills `list` with a button for each operation of the table, which calls `pick` with its step;
      `picture` tells what thumbnails are made of. */
  constructor(list, table, picture, pick) {
    this.#list = list;
    this.#table = table;
    this.#picture = picture;
    for (const [name, operation] of table) {
      const button = document.createElement('button');
      button.type = 'button';
      button.dataset.operation = name;
      button.title = operation.summary;
      button.append(document.createElement('canvas'), name);
      button.onclick = () => pick(operation.picture_step);
      const item = document.createElement('div');
      item.setAttribute('role', 'listitem');
      item.append(button);
      list.append(item);
    }
  }

  /** Draws once changes have come to rest. */
  schedule() {
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.draw(), REST);
  }

  /** Draws all thumbnails, unless it is called again meanwhile. */
  async draw() {
    const round = ++this.#round;
    const base = shrink(this.#picture(), THUMBNAIL_PIXELS);
    const other = builtIn(base.width, base.height);
    const second = atDepth(other, base.bits),
      mask = atDepth(other, 8);
    for (const [name, operation] of this.#table) {
      const item = this.#list.querySelector(`[data-operation="${name}"]`);
      const answer = await this.#engine.run(base, [operation.picture_step], {
        'second.png': second,
        'other.png': second,
        'mask.png': mask,
      });
      if (round !== this.#round) return;
      const canvas = item.querySelector('canvas');
      item.title = answer.picture ? operation.summary : answer.error;
      canvas.style.opacity = answer.picture ? 1 : 0.25;
      draw(canvas, answer.picture ?? base);
    }
  }
}
