// Every operation at every depth, with its choices and the ends of its usual ranges, in the module of
// the page and by the native tool: the same bytes, or an error from both.
// Usage: node same_bytes.mjs PAGE_FOLDER TOOL

import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';

const [page, tool] = process.argv.slice(2).map((path) => resolve(path));
const folder = mkdtempSync(join(tmpdir(), 'qel-web-'));
process.on('exit', () => rmSync(folder, {recursive: true, force: true}));
/** The page's modules; their ending tells a browser what they are, and Node takes another one. */
const load = (name) => {
  writeFileSync(join(folder, `${name}.mjs`), readFileSync(join(page, `${name}.js`)));
  return import(join(folder, `${name}.mjs`));
};
const {parseStep, textOf} = await load('chain');
const {atDepth, builtIn, writePng} = await load('pictures');
const {Runner} = await load('worker');
const makeQel = createRequire(import.meta.url)(join(page, 'qel.js'));
const runner = new Runner(await makeQel({wasmBinary: readFileSync(join(page, 'qel.wasm'))}));

const table = new Map(JSON.parse(runner.table()).operations.map((o) => [o.name, o]));
const native = JSON.parse(execFileSync(tool, ['list', '--json'], {encoding: 'utf8'}));

/** Steps to try: the example, every choice, both flags, both ends of every range. */
function stepsOf(operation) {
  const base = parseStep(operation.picture_step, table);
  const steps = [base];
  for (const p of operation.parameters) {
    const values = p.type === 'choice' ? p.choices : p.type === 'flag' ? ['yes', 'no'] :
        ['integer', 'number', 'extent'].includes(p.type) ? p.usual.map(String) : [];
    for (const value of values) steps.push({name: base.name, values: {...base.values, [p.name]: value}});
  }
  return [...new Set(steps.map((step) => textOf(step, table)))];
}

/** The picture in a PAM or PNM file. */
function readPam(bytes) {
  const text = bytes.subarray(0, 200).toString('latin1');
  const field = (name) => Number(text.match(new RegExp(`${name} (\\d+)`))[1]);
  const width = field('WIDTH'), height = field('HEIGHT'), channels = field('DEPTH');
  const data = bytes.subarray(text.indexOf('ENDHDR\n') + 7), rgba = new Uint8ClampedArray(4 * width * height);
  for (let i = 0; i < rgba.length; ++i) {
    const pixel = channels * Math.floor(i / 4), channel = i % 4;
    rgba[i] = channel < Math.min(channels, 3) || channels === 4 ? data[pixel + channel] : channel < 3 ? data[pixel] : 255;
  }
  return {width, height, bits: 8 * channels, rgba};
}

function runNatively(bits, chain) {
  const output = join(folder, 'out.pam');
  rmSync(output, {force: true});
  try {
    execFileSync(tool, ['run', `in${bits}.png`, '-o', output, ...chain], {cwd: folder, stdio: 'pipe'});
  } catch (error) {
    return {error: String(error.stderr)};
  }
  return readPam(readFileSync(output));
}

const differs = [];
let count = 0, errors = 0;
const missing = native.operations.map((o) => o.name).filter((name) => !table.has(name) && name !== 'text');
if (missing.length > 0) differs.push(`the page lacks ${missing.join(', ')}`);
for (const bits of [8, 24, 32]) {
  const opened = builtIn(61, 43);
  for (let i = 3; i < opened.rgba.length; i += 4) opened.rgba[i] = i % 251;
  const picture = atDepth(opened, bits);
  const changed = (change) => ({width: 61, height: 43, rgba: builtIn(61, 43).rgba.map(change)});
  const second = atDepth(changed((value, i) => i % 4 === 3 ? 255 : 255 - value), bits);
  const mask = atDepth(changed((value) => value > 128 ? 255 : 0), 8);
  const seconds = {'second.png': second, 'other.png': second, 'mask.png': mask};
  runner.enter(picture);
  for (const [name, content] of Object.entries(seconds)) runner.enter(content, name);
  for (const [name, content] of Object.entries({[`in${bits}.png`]: picture, ...seconds})) {
    writeFileSync(join(folder, name), Buffer.from(await (await writePng(content)).arrayBuffer()));
  }
  for (const operation of table.values()) {
    for (const step of stepsOf(operation)) {
      const chain = bits === 24 ? ['shift-rgb red=9', step] : [step];  // the page keeps what is before the last step
      const expected = runNatively(bits, chain);
      const actual = runner.run(chain.join('\n'));
      ++count;
      if (expected.error !== undefined || !actual.picture) {
        ++errors;
        if ((expected.error !== undefined) !== !actual.picture) {
          differs.push(`${bits} bits, ${step}: the tool: ${expected.error ?? 'done'}; the page: ${actual.error || 'done'}`);
        }
        continue;
      }
      const result = actual.picture;
      const same = result.width === expected.width && result.height === expected.height &&
          result.bits === expected.bits && Buffer.from(result.rgba.buffer).equals(Buffer.from(expected.rgba.buffer));
      if (!same) {
        const first = expected.rgba.findIndex((value, i) => value !== result.rgba[i]);
        const wrong = expected.rgba.reduce((sum, value, i) => sum + (value !== result.rgba[i]), 0);
        differs.push(`${bits} bits, ${step}: ${wrong} bytes of ${result.width} x ${result.height} at ${result.bits} bits, the first at ${first}` +
            ` (the tool: ${expected.width} x ${expected.height} at ${expected.bits} bits)`);
      }
    }
  }
}
for (const line of differs) console.log(line);
console.log(`${count} calls, ${errors} refused by both, ${differs.length} differences`);
// An error that the tool and the page share is no comparison: most calls must have given a picture.
process.exit(differs.length > 0 || count - errors < 3 * count / 4 ? 1 : 0);
