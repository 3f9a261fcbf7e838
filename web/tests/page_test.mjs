// Opens the page in headless Chromium as a person would: a picture, a slider, the lines to copy; and
// compares what the canvas shows with the tool's bytes. Drives the browser through its own protocol.
// Usage: node page_test.mjs PAGE_FOLDER TOOL [SCREENSHOT_FOLDER]

import {execFileSync, spawn} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {createServer} from 'node:http';
import {tmpdir} from 'node:os';
import {extname, join, resolve} from 'node:path';
import {pathToFileURL} from 'node:url';

const [page, tool] = process.argv.slice(2, 4).map((path) => resolve(path));
const shots = process.argv[4];
const folder = mkdtempSync(join(tmpdir(), 'qel-page-'));
const failures = [];
const check = (condition, message) => { if (!condition) failures.push(message); };

const types = {'.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm'};
const server = createServer((request, response) => {
  const path = new URL(request.url, 'http://x').pathname;
  try {
    const content = readFileSync(join(page, path === '/' ? 'index.html' : path.slice(1)));
    response.writeHead(200, {'Content-Type': types[extname(path)] ?? 'text/html'}).end(content);
  } catch {
    response.writeHead(404).end();
  }
}).listen(0, '127.0.0.1');
await new Promise((ready) => server.on('listening', ready));
const origin = `http://127.0.0.1:${server.address().port}`;

const browser = spawn(process.env.QEL_CHROMIUM ?? 'chromium', [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync', `--user-data-dir=${join(folder, 'profile')}`, '--remote-debugging-pipe', 'about:blank',
], {stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe']});

let next = 1, text = '';
const waiting = new Map(), requests = [], complaints = [];
browser.stdio[4].on('data', (data) => {
  text += data;
  const messages = text.split('\0');
  text = messages.pop();
  for (const message of messages.map((m) => JSON.parse(m))) {
    const {id, method, params, result, error} = message;
    if (id !== undefined) waiting.get(id)?.(error ? Promise.reject(new Error(error.message)) : result);
    if (method === 'Network.requestWillBeSent') requests.push(params.request.url);
    if (method === 'Runtime.exceptionThrown') complaints.push(params.exceptionDetails.exception?.description ?? params.exceptionDetails.text);
    if (method === 'Runtime.consoleAPICalled' && ['error', 'warning'].includes(params.type)) complaints.push(params.args.map((a) => a.value ?? a.description).join(' '));
    if (method === 'Log.entryAdded' && params.entry.level === 'error') complaints.push(params.entry.text);
  }
});
function send(method, params = {}, sessionId = undefined) {
  const id = next++;
  browser.stdio[3].write(JSON.stringify({id, method, params, sessionId}) + '\0');
  return new Promise((done) => waiting.set(id, done));
}

/** A tab on an address, with what a person does in it. */
async function open(address, width, height) {
  const {targetId} = await send('Target.createTarget', {url: 'about:blank'});
  const {sessionId} = await send('Target.attachToTarget', {targetId, flatten: true});
  const tab = (method, params) => send(method, params, sessionId);
  for (const domain of ['Page', 'Runtime', 'Network', 'Log', 'DOM']) await tab(`${domain}.enable`);
  await tab('Emulation.setDeviceMetricsOverride', {width, height, deviceScaleFactor: 1, mobile: width < 600});
  await tab('Page.navigate', {url: address});
  const evaluate = async (expression) => {
    const {result, exceptionDetails} = await tab('Runtime.evaluate', {expression, awaitPromise: true, returnByValue: true});
    if (exceptionDetails) throw new Error(`${expression}: ${exceptionDetails.exception?.description ?? exceptionDetails.text}`);
    return result.value;
  };
  const until = async (expression, what) => {
    for (let i = 0; i < 300; ++i) {
      if (await evaluate(expression).catch(() => false)) return true;
      await new Promise((ready) => setTimeout(ready, 100));
    }
    check(false, `${address}: timed out waiting for ${what}`);
    return false;
  };
  const shot = async (name) => {
    if (!shots) return;
    const {data} = await tab('Page.captureScreenshot', {format: 'png'});
    writeFileSync(join(shots, name), Buffer.from(data, 'base64'));
  };
  return {tab, evaluate, until, shot};
}

const ready = `document.getElementById('status').textContent.includes('ms')`;
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
  const before = await wide.evaluate(`document.getElementById('zoom').textContent`);
  await wide.evaluate(`document.getElementById('stage').dispatchEvent(new KeyboardEvent('keydown', {key: '+', bubbles: true}))`);
  check(await wide.evaluate(`document.getElementById('zoom').textContent`) !== before, 'the key + does not zoom');
  check(await wide.evaluate(`[...document.querySelectorAll('button, input, select')].every((c) => c.hidden || c.getAttribute('aria-label') ||
      c.textContent.trim() || c.labels?.length > 0)`), 'a control has no name for screen readers');

  // What is no picture leaves the one before, with a message.
  const wrong = join(folder, 'wrong.png');
  writeFileSync(wrong, 'no picture');
  await wide.tab('DOM.setFileInputFiles', {nodeId, files: [wrong]});
  await wide.until(`!document.getElementById('message').hidden`, 'the message about a file that is no picture');
  check(await wide.evaluate(`document.getElementById('before').width`) === 97, 'a wrong file takes the picture away');

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
  browser.kill();
  server.close();
  await new Promise((done) => browser.on('exit', done));
  rmSync(folder, {recursive: true, force: true, maxRetries: 5});
}
for (const failure of failures) console.log(failure);
console.log(failures.length === 0 ? 'the page works' : `${failures.length} failures`);
process.exit(failures.length > 0 ? 1 : 0);
