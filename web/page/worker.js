// Runs the module away from the page: one request at a time, answered with its number.
/* global makeQel */

/** The module and the pictures that it holds. */
export class Runner {
  #qel;

  constructor(qel) {
    this.#qel = qel;
  }

  table() {
    return this.#qel.UTF8ToString(this.#qel._qel_table());
  }

  /** Gives the module a picture: the source of the steps, or a second one under the name that steps
      call it by. */
  enter({width, height, bits, rgba}, name = '') {
    const qel = this.#qel;
    const at = qel._malloc(rgba.length);
    if (at) qel.HEAPU8.set(rgba, at);
    const entered =
      at && this.#withText(name, (text) => qel._qel_enter(text, at, width, height, bits));
    qel._free(at);
    if (!entered)
      throw new Error('There is not enough memory for this picture: use a smaller one.');
  }

  /** Runs the steps, one a line, on the source: {picture} or {error}, with notes, Python's lines and
      milliseconds. */
  run(steps) {
    const qel = this.#qel;
    const start = performance.now();
    const at = this.#withText(steps, (text) => qel._qel_run(text));
    const {width, height, bits, ...answer} = JSON.parse(qel.UTF8ToString(qel._qel_answer()));
    if (at)
      answer.picture = {
        width,
        height,
        bits,
        rgba: new Uint8ClampedArray(qel.HEAPU8.buffer.slice(at, at + 4 * width * height)),
      };
    return {...answer, milliseconds: performance.now() - start};
  }

  #withText(text, use) {
    const qel = this.#qel;
    const size = qel.lengthBytesUTF8(text) + 1;
    const at = qel._malloc(size);
    qel.stringToUTF8(text, at, size);
    try {
      return use(at);
    } finally {
      qel._free(at);
    }
  }
}

const MILLISECONDS_BEFORE_PROGRESS = 100;

function start() {
  const loaded = makeQel(self.wasmBinary ? {wasmBinary: self.wasmBinary} : {});
  let runner = null;
  self.onmessage = async ({data: {id, table, source, seconds, steps}}) => {
    try {
      const qel = await loaded;
      runner ??= new Runner(qel);
      if (table) {
        self.postMessage({id, table: runner.table()});
        return;
      }
      const start = performance.now();
      qel.onStep = (done, total) => {
        if (performance.now() - start > MILLISECONDS_BEFORE_PROGRESS)
          self.postMessage({id, done, total});
      };
      if (source) runner.enter(source);
      for (const [name, picture] of seconds) runner.enter(picture, name);
      const answer = runner.run(steps);
      self.postMessage({id, answer}, answer.picture ? [answer.picture.rgba.buffer] : []);
    } catch (error) {
      const text = error instanceof Error ? error.message : 'the operation failed';
      self.postMessage({
        id,
        answer: {error: text},
        broken: !(error instanceof Error) || /abort|memory/i.test(text),
      });
    }
  };
}

if (typeof WorkerGlobalScope !== 'undefined' && self instanceof WorkerGlobalScope) start();
