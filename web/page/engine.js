// The worker as the page sees it: requests that answer once, old ones dropped.

/** Where the worker's text comes from: its file, or what stands in the page itself. */
function makeWorker() {
  const inPage = document.getElementById('worker-text');
  const loader = document.getElementById('loader-text');
  if (!inPage) {
    const base = new URL('.', document.baseURI).href;
    const text = `importScripts(${JSON.stringify(base + 'qel.js')});`;
    return fetch('worker.js').then((r) => r.text()).then((worker) =>
      fetch('qel.wasm').then((r) => r.arrayBuffer()).then((wasm) => ({text: text + plain(worker), wasm})));
  }
  const wasm = Uint8Array.from(atob(document.getElementById('wasm-text').textContent), (c) => c.charCodeAt(0));
  return Promise.resolve({text: loader.textContent + '\n' + plain(inPage.textContent), wasm: wasm.buffer});
}
const plain = (text) => text.replace(/^export /gm, '');

export class Engine {
  #worker = null;
  #source = null;
  #next = 1;
  #waiting = new Map();
  #sent = new Map();  // the pictures that the worker has, by name; the source has none

  async #send(message) {
    this.#source ??= makeWorker();
    const {text, wasm} = await this.#source;
    if (!this.#worker) {
      const url = URL.createObjectURL(new Blob(['self.wasmBinary = null; self.onmessage = ({data}) => { self.wasmBinary = data; begin(); };\nfunction begin() {\n' + text + '\n}'], {type: 'text/javascript'}));
      this.#worker = new Worker(url);
      this.#worker.postMessage(wasm);
      this.#worker.onmessage = ({data}) => this.#answer(data);
      this.#worker.onerror = (event) => this.#fail(event.message || 'the worker stopped');
    }
    return new Promise((resolve) => {
      const id = this.#next++;
      this.#waiting.set(id, {resolve, onStep: message.onStep});
      delete message.onStep;
      this.#worker.postMessage({...message, id});
    });
  }

  #answer(data) {
    const waiting = this.#waiting.get(data.id);
    if (!waiting) return;
    if (data.total !== undefined) {
      waiting.onStep?.(data.done, data.total);
      return;
    }
    this.#waiting.delete(data.id);
    if (data.broken) this.#fail('');
    waiting.resolve(data.table ?? data.answer);
  }

  /** A worker whose memory broke is replaced; nothing is lost but what it was doing. */
  #fail(message) {
    this.#worker?.terminate();
    this.#worker = null;
    this.#sent.clear();
    for (const {resolve} of this.#waiting.values()) resolve({error: message || 'stopped'});
    this.#waiting.clear();
  }

  async table() {
    return JSON.parse(await this.#send({table: true}));
  }

  /** Runs steps on a picture, with second pictures by name: {picture} or {error}, with notes and milliseconds.
      Pictures that the worker has are not sent again. */
  async run(picture, steps, seconds, onStep) {
    const isNew = (name, sent) => {
      const before = this.#sent.get(name);
      this.#sent.set(name, sent);
      return sent !== before;
    };
    return this.#send({
      source: isNew('', picture) ? picture : null,
      seconds: Object.entries(seconds).filter(([name, second]) => isNew(name, second)),
      steps: steps.join('\n'),
      onStep,
    });
  }

  /** Ends what is running, for steps that are no longer wanted. */
  stop() {
    if (this.#waiting.size > 0) this.#fail('stopped');
  }
}
