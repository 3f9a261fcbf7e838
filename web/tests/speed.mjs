// How fast the page is on a picture of one megapixel: milliseconds of every operation's default in the worker, and
// pictures a second while a slider is dragged, as a Markdown table.
// Usage: node speed.mjs PAGE_FOLDER

import {resolve} from 'node:path';
import {launch, ready} from './browser.mjs';

const {origin, open, close} = await launch(resolve(process.argv[2]));
try {
  const tab = await open(`${origin}/index.html`, 1280, 900);
  await tab.until(ready, 'the built-in picture');
  const rows = await tab.evaluate(`(async () => {
    const {Engine} = await import('./engine.js');
    const {atDepth, builtIn} = await import('./pictures.js');
    const engine = new Engine();
    const [mask, picture, whole] = [8, 24, 32].map((bits) => atDepth(builtIn(1200, 833), bits));
    const rows = [];
    for (const row of (await engine.table()).operations) {
      const input = row.depths.includes(24) ? picture : whole;
      const seconds = {'second.png': input, 'other.png': input, 'mask.png': mask};
      const times = [];
      for (let i = 0; i < 4; ++i) {
        const answer = await engine.run(input, [row.picture_step], seconds);
        if (!answer.picture) throw new Error(row.name + ': ' + answer.error);
        if (i > 0) times.push(answer.milliseconds);
      }
      rows.push([row.name, times.sort((a, b) => a - b)[1]]);
    }
    return rows;
  })()`);
  console.log('| Operation | ms |\n|---|---|');
  for (const [name, time] of rows.sort((a, b) => b[1] - a[1])) console.log(`| ${name} | ${time.toFixed(1)} |`);
  for (const steps of [['light brightness=1'], ['gamma gamma=1.1'], ['lut black=3'], ['shift-rgb red=1'], ['threshold level=9'],
    ['median', 'blur', 'light brightness=1']]) {
    const dragged = await open(`${origin}/index.html#steps=${steps.map(encodeURIComponent).join('&')}`, 1280, 900);
    await dragged.until(ready, steps.join(', '));
    const rate = await dragged.evaluate(`(async () => {
      const {atDepth, builtIn, writePng} = await import('./pictures.js');
      const data = new DataTransfer();
      data.items.add(new File([await writePng(atDepth(builtIn(1200, 833), 24))], 'large.png', {type: 'image/png'}));
      dispatchEvent(new DragEvent('drop', {dataTransfer: data}));
      while (document.getElementById('after').width !== 1200) await new Promise((next) => setTimeout(next, 50));
      await new Promise((next) => setTimeout(next, 4000));  // the gallery is drawn meanwhile
      const slider = document.querySelector('#chain li:last-child input[type=range]');
      let shown = 0;
      const canvas = document.getElementById('after').getContext('2d');
      const put = canvas.putImageData.bind(canvas);
      canvas.putImageData = (...all) => { ++shown; put(...all); };
      const start = performance.now();
      for (let i = 0; performance.now() - start < 3000; ++i) {
        slider.value = Number(slider.min) + (i % 100) / 100 * (slider.max - slider.min);
        slider.dispatchEvent(new Event('input', {bubbles: true}));
        await new Promise((next) => requestAnimationFrame(next));
      }
      return shown / (performance.now() - start) * 1000;
    })()`);
    console.log(`dragging the last of ${steps.join(', ')}: ${rate.toFixed(0)} pictures a second`);
  }
} finally {
  await close();
}
