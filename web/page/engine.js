// The worker as the page sees it: requests that answer once, old ones dropped.

/** What a worker is made of: {url, wasm}, from files, or from what stands in the page itself. */
async function workerParts() {
  const inPage = (id) => document.getElementById(id)?.textContent;
  const worker = inPage('worker-text') ?? (await (await fetched('worker.js')).text());
  const loader =
    inPage('loader-text') ??
    `importScripts(${JSON.stringify(new URL('qel.js', document.baseURI).href)});`;
  const wasm =
    inPage('wasm-text') === undefined
      ? await (await fetched('qel.wasm')).arrayBuffer()
      : Uint8Array.from(atob(inPage('wasm-text')), (c) => c.charCodeAt(0)).buffer;
  // The worker begins with the first message, which brings the module.
  const text = `self.onmessage = ({data}) => { self.wasmBinary = data; begin(); };
function begin() {
${loader}
${worker.replace(/^export /gm, '')}
}`;
  return {url: URL.createObjectURL(new Blob([text], {type: 'text/javascript'})), wasm};
}

async function fetched(name) {
  const response = await fetch(name);
  if (!response.ok) throw new Error(`${name} cannot be loaded (${response.status})`);
  return response;
}

export class Engine {
  #worker = null;
  #parts = null;
  #next = 1;
  #waiting = new Map();
  #sent = new Map(); // the pictures that the worker has, by name; the source has none

  async #send({onStep, ...message}) {
    this.#parts ??= workerParts();
    const {url, wasm} = await this.#parts;
    if (!this.#worker) {
      this.#worker = new Worker(url);
      this.#worker.postMessage(wasm);
      this.#worker.onmessage = ({data}) => this.#answer(data);
      this.#worker.onerror = (event) => this.#fail(event.message || 'the worker stopped');
    }
    return new Promise((resolve) => {
      const id = this.#next++;
      this.#waiting.set(id, {resolve, onStep});
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

  /** The table of operations; throws when the module does not start. */
  async table() {
    const answer = await this.#send({table: true});
    if (answer.error) throw new Error(answer.error);
    return JSON.parse(answer);
  }

  /** Runs steps on a picture, with second pictures by name: {picture} or {error}, with notes and
      milliseconds. Pictures that the worker has are not sent again. */
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
