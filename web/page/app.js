// The page: one picture, a chain of steps, what comes out of it, and the lines that do the same.

import {
  chainOfFragment,
  commandLine,
  fragmentOf,
  parseStep,
  pythonLine,
  startOf,
  textOf,
} from './chain.js';
import {stepForm} from './controls.js';
import {Engine} from './engine.js';
import {Gallery} from './gallery.js';
import {atDepth, builtIn, readFile, shrink, writePng} from './pictures.js';
import {View} from './view.js';

const PREVIEW_PIXELS = 1e6;
const MOST_PIXELS = 64e6;

const get = (id) => document.getElementById(id);
const engine = new Engine();
const view = new View(document);

let table = new Map();
let gallery = null; // a Gallery, once there is the table
let source = null; // {rgba, width, height, bits} as opened
let fileName = '';
let picture = null; // at the chosen depth, full size
let preview = null; // the same, at most PREVIEW_PIXELS
let chain = [];
let seconds = {}; // second pictures by name, full size
let shown = null; // {picture, isFull}: what the stage shows after the steps
let messageIsAboutSteps = false;
let dragged = false; // a slider moves: its changes are one step of undo
const past = [];
const future = [];

/** Shows a message, which goes when the steps work again if it is about them, and otherwise when
    something is opened. */
function tell(message, isAboutSteps = false) {
  get('message').textContent = message;
  get('message').hidden = !message;
  messageIsAboutSteps = isAboutSteps;
}

const stepTexts = () => chain.map((step) => textOf(step, table));
const snapshot = () => JSON.stringify(chain);

// ---- Pictures

function takePicture(opened, name) {
  source = opened;
  fileName = name;
  get('depth').value = String(opened.bits);
  applyDepth();
}

function applyDepth() {
  picture = atDepth(source, Number(get('depth').value));
  preview = shrink(picture, PREVIEW_PIXELS);
  refresh();
  gallery.draw();
}

async function openFile(file) {
  if (!file) return;
  try {
    takePicture(await readFile(file, MOST_PIXELS), file.name ?? 'pasted.png');
    tell('');
  } catch (error) {
    tell(`${error.message} The previous picture stays.`);
  }
}

const scaledSeconds = new Map(); // those that the last steps took, by name

/** Second pictures have the depth of the first, masks are grey; those that are made here have its
    size, too. */
function secondsFor(target) {
  const scaled = {};
  for (const step of chain) {
    for (const {type, name: parameter} of table.get(step.name).parameters) {
      const name = step.values[parameter];
      if (type !== 'picture' || !name) continue;
      const bits = parameter === 'mask' ? 8 : target.bits;
      const before = scaledSeconds.get(name);
      const isSame =
        before?.target === target && before.opened === seconds[name] && before.scaled.bits === bits;
      scaled[name] = isSame ? before.scaled : scaledSecond(seconds[name], target, bits);
      scaledSeconds.set(name, {target, opened: seconds[name], scaled: scaled[name]});
    }
  }
  return scaled;
}

function scaledSecond(opened, target, bits) {
  const whole = atDepth(opened ?? builtIn(source.width, source.height), bits);
  const ratio = (target.width * target.height) / (picture.width * picture.height);
  return ratio < 1 ? shrink(whole, Math.max(1, whole.width * whole.height * ratio)) : whole;
}

// ---- Running

const PATIENCE = 1500; // milliseconds that newer steps wait for older ones
const NOTICED = 300; // milliseconds after which a wait wants an explanation

let wanted = 0; // number of the newest refresh
let running = null; // its job, or an older one's
let full = false;
let idle = Promise.resolve(); // once nothing runs any more

/** Runs the steps on the preview, or on the whole picture; what nobody waits for any more is left
    out. The promise that it returns is kept when the newest result is shown. */
function refresh(isFull = false) {
  if (isFull && running?.isWhole && running.number === wanted) return idle; // asked for twice
  full = isFull;
  ++wanted;
  drawLines();
  if (running) {
    const job = running;
    setTimeout(
      () => {
        if (running === job) engine.stop();
      },
      PATIENCE - (performance.now() - job.start),
    );
  } else {
    idle = runJobs();
  }
  return idle;
}

async function runJobs() {
  for (running = startJob(); running;) {
    const job = running,
      answer = await job.answer;
    clearTimeout(job.timer);
    running = job.number === wanted ? null : startJob(); // works while this one is drawn
    if (!running) get('progress').hidden = true;
    // While a slider is dragged, a late picture is still newer than the one that is shown.
    const isOfUse = answer.picture && job.input === (job.isWhole ? picture : preview);
    if (!running || isOfUse) showAnswer(answer, job.input, job.isWhole);
  }
}

function startJob() {
  const input = full ? picture : preview;
  const progress = get('progress');
  progress.hidden = !full;
  progress.value = 0;
  const timer = setTimeout(() => {
    progress.hidden = false;
  }, NOTICED);
  const onStep = (done, total) => {
    progress.value = total ? done / total : 0;
  };
  const answer = engine.run(input, stepTexts(), secondsFor(input), onStep);
  return {number: wanted, input, isWhole: full, start: performance.now(), timer, answer};
}

function showAnswer(answer, input, isWhole) {
  for (const item of get('chain').children) item.classList.remove('bad');
  get('python').textContent = answer.python?.length ? pythonLine(answer.python, fileName) : '';
  if (!answer.picture) {
    const bad = chain.findIndex((step) => step.name === answer.operation);
    get('chain').children[bad]?.classList.add('bad');
    if (!shown) view.show(input, input);
    tell(
      `${answer.error}. ${shown ? 'The picture shown is the one before' : 'The picture is shown without the steps'}.`,
      true,
    );
    return;
  }
  if (messageIsAboutSteps) tell('');
  shown = {picture: answer.picture, isFull: isWhole || preview === picture};
  view.show(input, answer.picture);
  const percent = Math.round(
    100 * Math.sqrt((preview.width * preview.height) / (picture.width * picture.height)),
  );
  const part = shown.isFull
    ? 'full size'
    : `preview at ${percent} %, where sizes in pixels look larger`;
  const notes = (answer.notes ?? []).map((note) => ` Note: ${note}.`).join('');
  const shape = `${answer.picture.width} × ${answer.picture.height}, ${answer.picture.bits} bits`;
  get('status').textContent = `${shape}, ${answer.milliseconds.toFixed(1)} ms, ${part}.${notes}`;
  announce(`Shown: ${shape}, ${part}.${notes}`);
}

let announceTimer = 0;
/** Tells those who listen to the page, once it has come to rest. */
function announce(text) {
  clearTimeout(announceTimer);
  announceTimer = setTimeout(() => {
    get('spoken').textContent = text;
  }, 700);
}

// ---- The chain

/** What undo goes back to. */
function remember() {
  past.push(snapshot());
  future.length = 0;
  showHistory();
}

function showHistory() {
  get('undo').disabled = past.length === 0;
  get('redo').disabled = future.length === 0;
}

function change(next) {
  remember();
  chain = next;
  drawChain();
  refresh();
}

function travel(from, to) {
  if (from.length === 0) return;
  to.push(snapshot());
  chain = JSON.parse(from.pop());
  drawChain();
  refresh();
}

function drawChain() {
  const list = get('chain');
  const focused = document.activeElement?.id;
  list.replaceChildren(
    ...chain.map((step, index) =>
      stepForm(
        step,
        index,
        chain.length,
        table.get(step.name),
        ['second.png', 'mask.png', ...Object.keys(seconds)],
        {
          change(name, value, dragging) {
            if (!dragged) remember();
            dragged = dragging;
            chain = chain.map((other, i) =>
              i === index ? {...other, values: {...other.values, [name]: value}} : other,
            );
            if (!dragging) gallery.schedule();
            refresh();
          },
          move(by, label) {
            const next = [...chain];
            next.splice(index + by, 0, ...next.splice(index, 1));
            change(next);
            focusStep(index + by, label);
            get('spoken').textContent =
              `${step.name} is step ${index + by + 1} of ${chain.length}.`;
          },
          remove(label) {
            change(chain.filter((_, i) => i !== index));
            focusStep(Math.min(index, chain.length - 1), label);
          },
          openSecond,
        },
      ),
    ),
  );
  if (focused) document.getElementById(focused)?.focus();
  get('empty').hidden = chain.length > 0;
  showHistory();
  gallery.schedule();
}

/** Keyboards go on at the button of that label in a step, or near it. */
function focusStep(index, label) {
  const buttons = [...(get('chain').children[index]?.querySelectorAll('button:enabled') ?? [])];
  (
    buttons.find((button) => button.textContent === label) ??
    buttons[0] ??
    get('operation')
  ).focus();
}

function addStep(text) {
  change([...chain, parseStep(text, table)]);
}

function openSecond(then) {
  const input = get('second-file');
  input.value = '';
  input.onchange = async () => {
    try {
      const file = input.files[0];
      seconds[file.name] = await readFile(file, MOST_PIXELS);
      then(file.name);
      drawChain(); // every step can have it now
    } catch (error) {
      tell(error.message);
    }
  };
  input.click();
}

let addressTimer = 0;
function drawLines() {
  get('command').textContent = chain.length ? commandLine(chain, table, fileName) : '';
  // Browsers refuse more than a few changes of the address a second.
  clearTimeout(addressTimer);
  addressTimer = setTimeout(() => {
    history.replaceState(
      null,
      '',
      location.href.split('#')[0] + (chain.length ? fragmentOf(chain, table) : ''),
    );
  }, 300);
}

/** The list of operations to add, by component. */
function listOperations() {
  let group = null;
  for (const [name, {component}] of table) {
    if (group?.label !== component) {
      group = Object.assign(document.createElement('optgroup'), {label: component});
      get('operation').append(group);
    }
    group.append(new Option(name, name));
  }
}

// ---- Start

function takeFragment() {
  try {
    chain = chainOfFragment(location.hash, table);
    drawChain();
  } catch (error) {
    tell(
      `This link does not hold steps that this page knows: ${error.message}. The steps stay as they were; pick others below.`,
    );
  }
}

async function copy(text, button) {
  try {
    await navigator.clipboard.writeText(text);
  } catch {
    // without a secure origin
    const box = Object.assign(document.createElement('textarea'), {value: text});
    document.body.append(box);
    box.select();
    document.execCommand('copy');
    box.remove();
  }
  const label = button.textContent;
  button.textContent = get('spoken').textContent = 'Copied';
  setTimeout(() => {
    button.textContent = label;
  }, 1200);
}

function listen() {
  get('open').onclick = () => get('file').click();
  get('file').onchange = () => {
    openFile(get('file').files[0]);
    get('file').value = ''; // the same file may be opened again
  };
  get('built-in').onclick = () => takePicture(builtIn(), 'picture.png');
  get('depth').onchange = applyDepth;
  get('undo').onclick = () => travel(past, future);
  get('redo').onclick = () => travel(future, past);
  get('full').onclick = () => refresh(true);
  get('add').onclick = () => {
    const name = get('operation').value;
    change([
      ...chain,
      {
        name,
        values: Object.fromEntries(table.get(name).parameters.map((p) => [p.name, startOf(p)])),
      },
    ]);
  };
  get('save').onclick = async () => {
    if (running || !shown?.isFull) await refresh(true);
    if (!shown?.isFull) return;
    const link = document.createElement('a');
    link.href = URL.createObjectURL(await writePng(shown.picture));
    link.download = 'result.png';
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 1e4);
  };
  for (const button of document.querySelectorAll('[data-copy]')) {
    button.onclick = () => copy(get(button.dataset.copy).textContent, button);
  }
  get('link').onclick = () =>
    copy(location.href.split('#')[0] + fragmentOf(chain, table), get('link'));
  addEventListener('keydown', (event) => {
    if (!(event.ctrlKey || event.metaKey) || event.key.toLowerCase() !== 'z') return;
    event.preventDefault();
    if (event.shiftKey) travel(future, past);
    else travel(past, future);
  });
  addEventListener('dragover', (event) => {
    event.preventDefault();
    document.body.classList.add('drop');
  });
  addEventListener('dragleave', () => document.body.classList.remove('drop'));
  addEventListener('drop', (event) => {
    event.preventDefault();
    document.body.classList.remove('drop');
    openFile(event.dataTransfer.files[0]);
  });
  addEventListener('paste', (event) => openFile([...event.clipboardData.files][0]));
  addEventListener('hashchange', () => {
    tell('');
    takeFragment();
    refresh();
  });
}

async function main() {
  const rows = await engine.table();
  table = new Map(rows.operations.map((operation) => [operation.name, operation]));
  listOperations();
  gallery = new Gallery(get('gallery'), table, () => shown?.picture ?? preview, addStep);
  listen();
  takeFragment();
  takePicture(builtIn(), 'picture.png');
}

main().catch((error) =>
  tell(
    `The page could not start: ${error.message}. Serve its folder with a web server, or open qel.html.`,
  ),
);
