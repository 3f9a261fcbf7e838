// The page in headless Chromium, driven through the browser's own protocol.

import {spawn} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {createServer} from 'node:http';
import {tmpdir} from 'node:os';
import {extname, join} from 'node:path';

const types = {'.html': 'text/html', '.js': 'text/javascript', '.css': 'text/css', '.wasm': 'application/wasm'};

/** Serves the folder `page` and starts a browser: {origin, folder, requests, complaints, open, close}, with a
    temporary folder, the addresses that were asked for and what the console said. Screenshots go to `shots`, if given. */
export async function launch(page, shots) {
  const folder = mkdtempSync(join(tmpdir(), 'qel-page-'));
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
      throw new Error(`${address}: timed out waiting for ${what}`);
    };
    const shot = async (name) => {
      if (!shots) return;
      const {data} = await tab('Page.captureScreenshot', {format: 'png'});
      writeFileSync(join(shots, name), Buffer.from(data, 'base64'));
    };
    /** Presses a key, with the focus on what `selector` finds, or where it is. */
    const press = async (key, selector) => {
      if (selector) await evaluate(`document.querySelector(${JSON.stringify(selector)}).focus()`);
      const windowsVirtualKeyCode = {Enter: 13, ArrowRight: 39}[key] ?? key.charCodeAt(0);
      const text = key === 'Enter' ? '\r' : key.length === 1 ? key : undefined;
      await tab('Input.dispatchKeyEvent', {type: 'keyDown', key, text, windowsVirtualKeyCode});
      await tab('Input.dispatchKeyEvent', {type: 'keyUp', key, windowsVirtualKeyCode});
    };
    return {tab, evaluate, press, until, shot};
  }

  const close = async () => {
    const exit = new Promise((done) => browser.on('exit', done));
    send('Browser.close');
    await exit;
    server.close();
    // Its helpers write their profile for a moment longer.
    for (let left = 20;; --left) {
      try {
        return rmSync(folder, {recursive: true, force: true});
      } catch (error) {
        if (left === 0) throw error;
        await new Promise((done) => setTimeout(done, 100));
      }
    }
  };
  return {origin, folder, requests, complaints, open, close};
}

/** True on a page that shows the outcome of its steps. */
export const ready = `document.getElementById('status').textContent.includes('ms')`;
