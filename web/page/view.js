// Before and after on one stage: zoom, moving, and the divider between them.

/** Puts a picture on a canvas, which takes its size. */
export function draw(canvas, {width, height, rgba}) {
  // Setting it throws the canvas's memory away, even if it stays the same.
  if (canvas.width !== width) canvas.width = width;
  if (canvas.height !== height) canvas.height = height;
  canvas.getContext('2d').putImageData(new ImageData(rgba, width, height), 0, 0);
}

export class View {
  #stage;
  #before;
  #after;
  #line;
  #divider;
  #zoomText;
  #shownBefore = null;
  #scale = 1;
  #x = 0;
  #y = 0;
  #fitted = true;
  #size = {width: 1, height: 1};
  #placed = '';

  constructor(root) {
    const get = (id) => root.getElementById(id);
    this.#stage = get('stage');
    this.#before = get('before');
    this.#after = get('after');
    this.#line = get('divider-line');
    this.#divider = get('divider');
    this.#zoomText = get('zoom');
    this.#divider.addEventListener('input', () => this.#place());
    get('zoom-in').onclick = () => this.zoom(2);
    get('zoom-out').onclick = () => this.zoom(0.5);
    get('fit').onclick = () => this.fit();
    get('pixels').onclick = () => this.zoom(1 / this.#scale);
    this.#stage.addEventListener(
      'wheel',
      (event) => {
        event.preventDefault();
        const box = this.#stage.getBoundingClientRect();
        // A notch of a wheel, or a little of what two fingers do on a pad.
        const moved = event.deltaY * (event.deltaMode === WheelEvent.DOM_DELTA_LINE ? 20 : 1);
        this.zoom(2 ** (-moved / 300), event.clientX - box.left, event.clientY - box.top);
      },
      {passive: false},
    );
    this.#stage.addEventListener('keydown', (event) => this.#key(event));
    this.#follow();
    new ResizeObserver(() => (this.#fitted ? this.fit() : this.#place())).observe(this.#stage);
  }

  /** Shows pictures, which share their middle; zoom stays, or fits what is shown. */
  show(before, after) {
    if (before !== this.#shownBefore) draw(this.#before, before);
    this.#shownBefore = before;
    draw(this.#after, after);
    const size = {
      width: Math.max(before.width, after.width),
      height: Math.max(before.height, after.height),
    };
    const sizes = `${size.width} ${size.height} ${after.width} ${after.height}`;
    if (sizes === this.#placed) return;
    this.#placed = sizes;
    this.#size = size;
    if (this.#fitted) this.fit();
    else this.#place();
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
    this.#x = x - ((x - this.#x) * scale) / this.#scale;
    this.#y = y - ((y - this.#y) * scale) / this.#scale;
    this.#scale = scale;
    this.#fitted = false;
    this.#place();
  }

  #place() {
    const at = (this.#stage.clientWidth * this.#divider.value) / 100;
    for (const canvas of [this.#before, this.#after]) {
      // Pictures of different sizes share their middle.
      const x = this.#x + ((this.#size.width - canvas.width) / 2) * this.#scale;
      const y = this.#y + ((this.#size.height - canvas.height) / 2) * this.#scale;
      canvas.style.transform = `translate(${x}px, ${y}px) scale(${this.#scale})`;
      const column = (at - x) / this.#scale; // of the divider, in pixels of the picture
      canvas.style.clipPath =
        canvas === this.#before
          ? `inset(0 ${canvas.width - column}px 0 0)`
          : `inset(0 0 0 ${column}px)`;
    }
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
        this.#divider.value = (100 * (event.clientX - box.left)) / box.width;
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
