// Opens the page in headless Chromium as a person would: a picture, a slider, the lines to copy; and
// compares what the canvas shows with the tool's bytes.
// Usage: node page_test.mjs PAGE_FOLDER TOOL [SCREENSHOT_FOLDER]

import {execFileSync} from 'node:child_process';
import {readFileSync, writeFileSync} from 'node:fs';
import {join, resolve} from 'node:path';
import {pathToFileURL} from 'node:url';
import {launch, ready} from './browser.mjs';

const [page, tool] = process.argv.slice(2, 4).map((path) => resolve(path));
const shots = process.argv[4];
const failures = [];
const check = (condition, message) => { if (!condition) failures.push(message); };

const {origin, folder, requests, complaints, open, close} = await launch(page, shots);

const afterHash = `(async () => {
  const c = document.getElementById('after');
  const d = c.getContext('2d').getImageData(0, 0, c.width, c.height).data;
  let text = ''; for (let i = 0; i < d.length; i += 4) text += String.fromCharCode(d[i], d[i + 1], d[i + 2]);
  return btoa(text);
})()`;

try {
  // A picture of our own, through the file dialog's input, and a step whose slider moves.
  const wide = await open(`${origin}/index.html`, 1280, 900);
  await wide.until(ready, 'the built-in picture');
  const picture = join(folder, 'picture.ppm'), file = join(folder, 'picture.png');
  const pixels = Buffer.alloc(97 * 61 * 3, 0).map((_, i) => (i * 7919 + (i >> 5) * 31) & 255);
  writeFileSync(picture, Buffer.concat([Buffer.from('P6\n97 61\n255\n'), pixels]));
  execFileSync(tool, ['run', picture, '-o', file, 'shift-rgb'], {stdio: 'ignore'});
  const {root} = await wide.tab('DOM.getDocument');
  const {nodeId} = await wide.tab('DOM.querySelector', {nodeId: root.nodeId, selector: '#file'});
  await wide.tab('DOM.setFileInputFiles', {nodeId, files: [file]});
  await wide.until(`document.getElementById('after').width === 97`, 'the opened picture');
  await wide.evaluate(`document.getElementById('operation').value = 'light'; document.getElementById('add').click()`);
  await wide.until(`document.querySelector('#chain li input[type=range]') !== null`, 'the controls of light');
  await wide.evaluate(`(() => { const s = document.querySelector('#chain li input[type=range]'); s.value = 37;
      s.dispatchEvent(new Event('input', {bubbles: true})); s.dispatchEvent(new Event('change', {bubbles: true})); })()`);
  await wide.evaluate(`document.getElementById('operation').value = 'median'; document.getElementById('add').click()`);
  await wide.until(`document.getElementById('command').textContent.includes('median') && ${ready}`, 'the command line');
  await new Promise((done) => setTimeout(done, 500));
  const command = await wide.evaluate(`document.getElementById('command').textContent`);
  check(command.includes('37'), `the slider does not show in the line: ${command}`);
  const python = await wide.evaluate(`document.getElementById('python').textContent`);
  check(/qel\.light\(image, /.test(python) && /qel\.median\(image/.test(python), `the Python line is odd: ${python}`);

  // The copied line gives the bytes that the canvas shows.
  execFileSync('sh', ['-c', command.replace(/^qel /, `'${tool}' `).replace('-o result.png', '-o result.ppm')], {cwd: folder, stdio: 'ignore'});
  const result = readFileSync(join(folder, 'result.ppm'));
  const expected = result.subarray(result.length - 97 * 61 * 3).toString('base64');
  check(await wide.evaluate(afterHash) === expected, `the canvas differs from what '${command}' writes`);
  await wide.shot('wide.png');

  // The gallery shows every operation, the keyboard zooms, undo goes back.
  await wide.until(`[...document.querySelectorAll('#gallery canvas')].every((c) => c.width !== 300)`, 'the gallery');
  await wide.evaluate(`document.getElementById('undo').click()`);
  check(await wide.evaluate(`document.querySelectorAll('#chain li').length`) === 1, 'undo does not take the last step back');
  const zoomed = async (how, act) => {
    const before = await wide.evaluate(`document.getElementById('zoom').textContent`);
    await act();
    await wide.until(`document.getElementById('zoom').textContent !== '${before}'`, `${how} to zoom`);
  };
  await zoomed('the key +', () => wide.press('+', '#stage'));
  await zoomed('two fingers', () => wide.tab('Input.synthesizePinchGesture', {x: 300, y: 300, scaleFactor: 2}));

  // Without a mouse: a slider keeps the focus while it moves, steps change places, every control has a name, and
  // what came out is told.
  const first = `document.querySelector('#chain li')`, slider = '#chain li input[type=range]';
  for (let i = 0; i < 2; ++i) await wide.press('ArrowRight', i === 0 ? slider : null);
  check(await wide.evaluate(`document.querySelector('${slider}').value`) === '39', 'a slider does not follow the arrows');
  check(await wide.evaluate(`document.getElementById('redo').disabled`), 'a change leaves what redo would bring back');
  await wide.evaluate(`document.getElementById('operation').value = 'emboss'; document.getElementById('add').click()`);
  await wide.press('Enter', '#chain li:last-child [aria-label="Move up emboss"]');
  check(await wide.evaluate(`${first}.dataset.step`) === 'emboss', 'a step does not move up');
  check(await wide.evaluate(`${first}.contains(document.activeElement)`), 'the focus does not stay with the step that moves');
  await wide.until(`document.getElementById('spoken').textContent.startsWith('Shown: 97 × 61')`, 'what is told of the result');
  const {nodes} = await wide.tab('Accessibility.getFullAXTree');
  const nameless = nodes.filter(({properties, name}) => properties?.some((p) => p.name === 'focusable' && p.value.value) && !name?.value);
  check(nameless.length === 0, `controls without a name for screen readers: ${nameless.map((node) => node.role.value).join(', ')}`);

  // The clipboard, and a second picture.
  const withFile = (type, expression) => `(async () => {
    const {atDepth, builtIn, writePng} = await import('./pictures.js');
    const data = new DataTransfer();
    data.items.add(new File([await writePng(${expression})], 'made.png', {type: 'image/png'}));
    dispatchEvent(new ${type});
  })()`;
  const paste = `ClipboardEvent('paste', {clipboardData: data})`, drop = `DragEvent('drop', {dataTransfer: data})`;
  await wide.evaluate(withFile(paste, 'atDepth(builtIn(53, 61), 24)'));
  await wide.until(`document.getElementById('after').width === 53`, 'the pasted picture');
  await wide.tab('DOM.setFileInputFiles', {nodeId, files: [file]});
  await wide.until(`document.getElementById('after').width === 97`, 'the opened picture');
  await wide.evaluate(`document.getElementById('operation').value = 'subtract'; document.getElementById('add').click();
      (() => { const s = document.querySelector('#chain li:last-child select'); s.value = '\\n'; s.dispatchEvent(new Event('change')); })()`);
  const second = await wide.tab('DOM.querySelector', {nodeId: root.nodeId, selector: '#second-file'});
  await wide.tab('DOM.setFileInputFiles', {nodeId: second.nodeId, files: [file]});
  await wide.until(`document.getElementById('command').textContent.includes("picture.png'") && document.querySelector('#chain li:last-child select').value === 'picture.png'`, 'the second picture');

  // What is no picture leaves the one before, with a message.
  const wrong = join(folder, 'wrong.png');
  writeFileSync(wrong, 'no picture');
  await wide.tab('DOM.setFileInputFiles', {nodeId, files: [wrong]});
  await wide.until(`!document.getElementById('message').hidden`, 'the message about a file that is no picture');
  check(await wide.evaluate(`document.getElementById('before').width`) === 97, 'a wrong file takes the picture away');

  // So does what is too large, which its header tells.
  const large = join(folder, 'large.png'), header = Buffer.from('89504e470d0a1a0a0000000d4948445200002ee000002ee00800000000', 'hex');
  writeFileSync(large, header);
  await wide.tab('DOM.setFileInputFiles', {nodeId, files: [large]});
  await wide.until(`document.getElementById('message').textContent.includes('12000 x 12000')`, 'the message about a large picture');

  // While a slider of a picture of a megapixel is dragged, pictures appear.
  const dragged = await open(`${origin}/index.html#steps=light%20brightness=1`, 1280, 900);
  await dragged.until(ready, 'the built-in picture');
  check(await dragged.evaluate(`(async () => {
    const {atDepth, builtIn, writePng} = await import('./pictures.js');
    const data = new DataTransfer();
    data.items.add(new File([await writePng(atDepth(builtIn(1200, 833), 24))], 'large.png', {type: 'image/png'}));
    dispatchEvent(new DragEvent('drop', {dataTransfer: data}));
    const canvas = document.getElementById('after');
    while (canvas.width !== 1200) await new Promise((next) => setTimeout(next, 50));
    const slider = document.querySelector('#chain li input[type=range]'), context = canvas.getContext('2d');
    let shown = 0;
    const put = context.putImageData.bind(context);
    context.putImageData = (...all) => { ++shown; put(...all); };
    for (const start = performance.now(); performance.now() - start < 2000;) {
      slider.value = performance.now() % 200;
      slider.dispatchEvent(new Event('input', {bubbles: true}));
      await new Promise((next) => setTimeout(next, 5));
    }
    return shown;
  })()`) > 2, 'nothing appears while a slider is dragged');

  // Steps that take forever do not stop the ones after them.
  const slow = await open(`${origin}/index.html#steps=median%20size=20001`, 1000, 800);
  await slow.until(`document.querySelector('#progress:not([hidden])')`, 'a sign of work');
  await slow.evaluate(`location.hash = '#steps=negative'`);
  await slow.until(ready, 'the steps after slow ones');

  // Links: a chain, and one that is broken; on a narrow window.
  const narrow = await open(`${origin}/index.html#steps=negative&emboss`, 390, 800);
  await narrow.until(ready, 'the linked steps');
  check(await narrow.evaluate(`document.querySelectorAll('#chain li').length`) === 2, 'the link does not bring its steps');
  check(await narrow.evaluate(`document.documentElement.scrollWidth <= innerWidth`), 'a narrow window scrolls sideways');
  await narrow.shot('narrow.png');
  const broken = await open(`${origin}/index.html#steps=no-such-step`, 390, 800);
  await broken.until(`!document.getElementById('message').hidden && ${ready}`, 'the message about a broken link');

  // Everything in one file, without a server.
  const single = await open(pathToFileURL(join(page, 'qel.html')).href + '#steps=emboss', 1000, 700);
  await single.until(ready, 'the page in one file');

  const foreign = requests.filter((url) => !url.startsWith(origin) && !/^(data|blob|file|about):/.test(url));
  check(foreign.length === 0, `requests elsewhere: ${foreign.join(', ')}`);
  const unexpected = complaints.filter((text) => !text.includes('favicon'));
  check(unexpected.length === 0, `the console says: ${unexpected.join(' | ')}`);
} catch (error) {
  failures.push(error.stack);
} finally {
  await close();
}
for (const failure of failures) console.log(failure);
console.log(failures.length === 0 ? 'the page works' : `${failures.length} failures`);
process.exit(failures.length > 0 ? 1 : 0);
