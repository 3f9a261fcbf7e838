// Runs the module away from the page: one request at a time, answered with its number.
/* global makeQel */

let qel = null;
let request = 0;
let last = null;  // the picture that came last

function withText(text, use) {
  const size = qel.lengthBytesUTF8(text) + 1;
  const at = qel._malloc(size);
  qel.stringToUTF8(text, at, size);
  try {
    return use(at);
  } finally {
    qel._free(at);
  }
}

/** Copies a picture into the module's memory. */
function enter({width, height, bits, data}) {
  const picture = qel._qel_make(width, height, bits);
  if (!picture) throw new Error('There is not enough memory for this picture: use a smaller one.');
  const start = qel._qel_bits(picture), stride = qel._qel_stride(picture), row = width * bits / 8;
  for (let y = 0; y < height; ++y) qel.HEAPU8.set(data.subarray(y * row, (y + 1) * row), start + y * stride);
  return picture;
}

function leave(picture) {
  const width = qel._qel_width(picture), height = qel._qel_height(picture), bits = qel._qel_depth(picture);
  const start = qel._qel_bits(picture), stride = qel._qel_stride(picture), row = Math.ceil(width * bits / 8);
  const data = new Uint8Array(row * height);
  for (let y = 0; y < height; ++y) {
    const at = start + y * stride;
    data.set(qel.HEAPU8.subarray(at, at + row), y * row);
  }
  return {width, height, bits, data};
}

/** Runs the steps, one a line. Answers {picture} or {error}, with notes and milliseconds. */
export function runSteps(module, source, steps, seconds = {}) {
  qel = module;
  const named = [];
  let input = 0, output = 0;
  try {
    for (const [name, picture] of Object.entries(seconds)) {
      const entered = enter(picture);
      named.push(entered);
      withText(name, (text) => qel._qel_name(text, entered));
    }
    input = enter(source);
    const start = performance.now();
    output = withText(steps, (text) => qel._qel_run(input, text));
    const answer = JSON.parse(qel.UTF8ToString(qel._qel_answer()));
    answer.milliseconds = performance.now() - start;
    if (output) answer.picture = leave(output);
    return answer;
  } finally {
    for (const picture of [...named, input, output]) if (picture) qel._qel_free(picture);
  }
}

function start() {
  const ready = makeQel(self.wasmBinary ? {wasmBinary: self.wasmBinary} : {});
  self.onmessage = async ({data}) => {
    request = data.id;
    try {
      const module = await ready;
      module.onStep = (done, total) => self.postMessage({id: request, done, total});
      if (data.table) {
        self.postMessage({id: data.id, table: module.UTF8ToString(module._qel_table())});
        return;
      }
      last = data.picture ?? last;
      const answer = runSteps(module, last, data.steps, data.seconds);
      self.postMessage({id: data.id, answer}, answer.picture ? [answer.picture.data.buffer] : []);
    } catch (error) {
      const text = error instanceof Error ? error.message : 'the operation failed';
      self.postMessage({id: data.id, answer: {error: text, notes: []}, broken: !(error instanceof Error) || /abort|memory/i.test(text)});
    }
  };
}

if (typeof WorkerGlobalScope !== 'undefined' && self instanceof WorkerGlobalScope) start();
