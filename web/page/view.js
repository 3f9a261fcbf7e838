// Before and after on one stage: zoom, moving, and the divider between them.

import {toRgba} from './pictures.js';

export class View {
  #stage; #before; #after; #line; #divider; #zoomText;
  #shownBefore = null;
  #scale = 1; #x = 0; #y = 0; #fitted = true; #size = {width: 1, height: 1};

  constructor(root) {
    const get = (id) => root.getElementById(id);
    this.#stage = get('stage'); this.#before = get('before'); this.#after = get('after');
    this.#line = get('divider-line'); this.#divider = get('divider'); this.#zoomText = get('zoom');
    this.#divider.addEventListener('input', () => this.#place());
    get('zoom-in').onclick = () => this.zoom(2);
    get('zoom-out').onclick = () => this.zoom(0.5);
    get('fit').onclick = () => this.fit();
    get('pixels').onclick = () => this.zoom(1 / this.#scale);
    this.#stage.addEventListener('wheel', (event) => {
      event.preventDefault();
      const box = this.#stage.getBoundingClientRect();
      this.zoom(event.deltaY < 0 ? 1.25 : 0.8, event.clientX - box.left, event.clientY - box.top);
    }, {passive: false});
    this.#stage.addEventListener('keydown', (event) => this.#key(event));
    this.#follow();
    new ResizeObserver(() => this.#fitted ? this.fit() : this.#place()).observe(this.#stage);
  }

  /** Shows pictures; `scale` is how much of full size they are, so that zoom stays what it says. */
  show(before, after) {
    if (before !== this.#shownBefore) this.#draw(this.#before, before);
    this.#shownBefore = before;
    this.#draw(this.#after, after);
    const size = {width: Math.max(before.width, after.width), height: Math.max(before.height, after.height)};
    const changed = size.width !== this.#size.width || size.height !== this.#size.height;
    this.#size = size;
    if (changed && this.#fitted) this.fit(); else this.#place();
  }

  #draw(canvas, picture) {
    canvas.width = picture.width;
    canvas.height = picture.height;
    canvas.getContext('2d').putImageData(new ImageData(toRgba(picture), picture.width, picture.height), 0, 0);
  }

  fit() {
    const {clientWidth, clientHeight} = this.#stage;
    const {width, height} = this.#size;
    this.#scale = Math.min(clientWidth / width, clientHeight / height, 8);
    this.#x = (clientWidth - width * this.#scale) / 2;
    this.#y = (clientHeight - height * this.#scale) / 2;
    this.#fitted = true;
    this.#place();
  }

  zoom(factor, x = this.#stage.clientWidth / 2, y = this.#stage.clientHeight / 2) {
    const scale = Math.min(64, Math.max(0.02, this.#scale * factor));
    this.#x = x - (x - this.#x) * scale / this.#scale;
    this.#y = y - (y - this.#y) * scale / this.#scale;
    this.#scale = scale;
    this.#fitted = false;
    this.#place();
  }

  #place() {
    const transform = `translate(${this.#x}px, ${this.#y}px) scale(${this.#scale})`;
    const at = this.#stage.clientWidth * this.#divider.value / 100;
    for (const canvas of [this.#before, this.#after]) canvas.style.transform = transform;
    const column = (at - this.#x) / this.#scale;  // of the divider, in pixels of the pictures
    this.#before.style.clipPath = `inset(0 ${this.#before.width - column}px 0 0)`;
    this.#after.style.clipPath = `inset(0 0 0 ${column}px)`;
    this.#line.style.left = `${at}px`;
    this.#stage.classList.toggle('sharp', this.#scale >= 2);
    this.#zoomText.textContent = `${Math.round(100 * this.#scale)} %`;
  }

  #key(event) {
    const moves = {ArrowLeft: [60, 0], ArrowRight: [-60, 0], ArrowUp: [0, 60], ArrowDown: [0, -60]};
    if (event.key === '+' || event.key === '=') this.zoom(2);
    else if (event.key === '-') this.zoom(0.5);
    else if (event.key === '0') this.fit();
    else if (event.key === '1') this.zoom(1 / this.#scale);
    else if (moves[event.key]) this.#move(...moves[event.key]);
    else return;
    event.preventDefault();
  }

  #move(dx, dy) {
    this.#x += dx;
    this.#y += dy;
    this.#fitted = false;
    this.#place();
  }

  /** Fingers and mouse: one moves the pictures or the divider, two zoom. */
  #follow() {
    const held = new Map();
    let divides = false;
    this.#stage.addEventListener('pointerdown', (event) => {
      this.#stage.setPointerCapture(event.pointerId);
      held.set(event.pointerId, event);
      divides = held.size === 1 && event.target === this.#line;
    });
    this.#stage.addEventListener('pointermove', (event) => {
      const last = held.get(event.pointerId);
      if (!last) return;
      if (divides) {
        const box = this.#stage.getBoundingClientRect();
        this.#divider.value = 100 * (event.clientX - box.left) / box.width;
        this.#place();
      } else if (held.size === 2) {
        const [other] = [...held].filter(([id]) => id !== event.pointerId).map(([, e]) => e);
        const far = (e) => Math.hypot(e.clientX - other.clientX, e.clientY - other.clientY) || 1;
        const box = this.#stage.getBoundingClientRect();
        this.zoom(far(event) / far(last), other.clientX - box.left, other.clientY - box.top);
      } else {
        this.#move(event.clientX - last.clientX, event.clientY - last.clientY);
      }
      held.set(event.pointerId, event);
    });
    for (const name of ['pointerup', 'pointercancel']) {
      this.#stage.addEventListener(name, (event) => held.delete(event.pointerId));
    }
  }
}
