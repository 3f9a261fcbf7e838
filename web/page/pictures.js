// Pictures between files, canvases and the module: {width, height, bits, data} with rows without
// padding, blue first, as the module has them.

/** From RGBA bytes. Grey is what the tool reads from grey files: one byte per pixel. */
export function fromRgba(rgba, width, height, bits) {
  const count = width * height;
  const data = new Uint8Array(count * bits / 8);
  for (let i = 0; i < count; ++i) {
    const r = rgba[4 * i], g = rgba[4 * i + 1], b = rgba[4 * i + 2];
    if (bits === 8) {
      data[i] = r === g && g === b ? r : Math.round(0.299 * r + 0.587 * g + 0.114 * b);
    } else {
      const at = i * bits / 8;
      data[at] = b; data[at + 1] = g; data[at + 2] = r;
      if (bits === 32) data[at + 3] = rgba[4 * i + 3];
    }
  }
  return {width, height, bits, data};
}

/** RGBA bytes to show or to save. */
export function toRgba({width, height, bits, data}) {
  const count = width * height;
  const words = new Uint32Array(count);  // red in the low byte: every machine with browsers is little-endian
  if (bits === 8) {
    for (let i = 0; i < count; ++i) words[i] = 0xff000000 | data[i] * 0x10101;
  } else if (bits === 24) {
    for (let i = 0, at = 0; i < count; ++i, at += 3) words[i] = 0xff000000 | data[at] << 16 | data[at + 1] << 8 | data[at + 2];
  } else {
    for (let i = 0, at = 0; i < count; ++i, at += 4) words[i] = data[at + 3] << 24 | data[at] << 16 | data[at + 1] << 8 | data[at + 2];
  }
  return new Uint8ClampedArray(words.buffer);
}

/** At most `most` pixels: means of the pixels that fall together, weighted by alpha. */
export function shrink(picture, most) {
  const {width, height, bits, data} = picture;
  if (width * height <= most) return picture;
  const scale = Math.sqrt(most / (width * height));
  const w = Math.max(1, Math.floor(width * scale)), h = Math.max(1, Math.floor(height * scale));
  const channels = bits / 8, result = new Uint8Array(w * h * channels);
  const sums = new Float64Array(4);
  for (let y = 0; y < h; ++y) {
    const top = Math.floor(y * height / h), bottom = Math.max(top + 1, Math.floor((y + 1) * height / h));
    for (let x = 0; x < w; ++x) {
      const left = Math.floor(x * width / w), right = Math.max(left + 1, Math.floor((x + 1) * width / w));
      sums.fill(0);
      let weights = 0, count = 0;
      for (let sy = top; sy < bottom; ++sy) {
        for (let sx = left; sx < right; ++sx) {
          const at = (sy * width + sx) * channels;
          const weight = bits === 32 ? data[at + 3] : 1;
          for (let c = 0; c < Math.min(channels, 3); ++c) sums[c] += weight * data[at + c];
          weights += weight; ++count;
        }
      }
      const at = (y * w + x) * channels;
      for (let c = 0; c < Math.min(channels, 3); ++c) result[at + c] = weights ? Math.round(sums[c] / weights) : 0;
      if (bits === 32) result[at + 3] = Math.round(weights / count);
    }
  }
  return {width: w, height: h, bits, data: result};
}

const kMagic = [0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a];

async function through(bytes, stream) {
  return new Uint8Array(await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer());
}

/** The depth that the tool reads a file at, from its first bytes; 24 where they do not tell. */
export function depthOfFile(bytes) {
  const isPng = kMagic.every((value, i) => bytes[i] === value);
  if (isPng) return {0: 8, 2: 24, 3: 24, 4: 32, 6: 32}[bytes[25]] ?? 24;
  if (bytes[0] === 0xff && bytes[1] === 0xd8) {
    for (let at = 2; at + 9 < bytes.length && bytes[at] === 0xff;) {
      const marker = bytes[at + 1];
      if (marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker)) return bytes[at + 9] === 1 ? 8 : 24;
      at += 2 + (bytes[at + 2] << 8 | bytes[at + 3]);
    }
  }
  return 24;
}

/** Pixels of a PNG of 8 bits per channel without interlacing, exactly: a canvas would multiply by
    alpha. Null for other files, which a canvas reads; the size alone beyond `mostPixels`. */
async function readPng(bytes, mostPixels) {
  if (!kMagic.every((value, i) => bytes[i] === value)) return null;
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const width = view.getUint32(16), height = view.getUint32(20);
  const channels = {0: 1, 2: 3, 4: 2, 6: 4}[bytes[25]];
  if (width * height > mostPixels) return {width, height};
  if (bytes[24] !== 8 || !channels || bytes[28] !== 0) return null;
  const parts = [];
  for (let at = 8; at + 12 <= bytes.length;) {
    const length = view.getUint32(at);
    const name = String.fromCharCode(...bytes.subarray(at + 4, at + 8));
    if (name === 'IDAT') parts.push(bytes.subarray(at + 8, at + 8 + length));
    if (name === 'tRNS' || name === 'eXIf') return null;
    at += 12 + length;
  }
  const rows = await through(await new Blob(parts).arrayBuffer(), new DecompressionStream('deflate'));
  const stride = width * channels;
  if (rows.length !== height * (stride + 1)) return null;
  const rgba = new Uint8ClampedArray(4 * width * height);
  let above = new Uint8Array(stride);
  for (let y = 0; y < height; ++y) {
    const row = rows.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    const filter = rows[y * (stride + 1)];
    for (let i = 0; i < stride; ++i) {
      const a = i >= channels ? row[i - channels] : 0, b = above[i], c = i >= channels ? above[i - channels] : 0;
      const pa = Math.abs(b - c), pb = Math.abs(a - c), pc = Math.abs(a + b - 2 * c);
      const paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      row[i] += [0, a, b, (a + b) >> 1, paeth][filter] ?? 0;
    }
    for (let x = 0; x < width; ++x) {
      const at = 4 * (y * width + x), from = x * channels;
      const grey = channels < 3;
      rgba[at] = row[from]; rgba[at + 1] = row[from + (grey ? 0 : 1)]; rgba[at + 2] = row[from + (grey ? 0 : 2)];
      rgba[at + 3] = channels === 4 ? row[from + 3] : channels === 2 ? row[from + 1] : 255;
    }
    above = row;
  }
  return {width, height, rgba};
}

/** Reads a file: its orientation is applied. Throws an Error that says what to do. */
export async function readFile(file, mostPixels) {
  const bytes = new Uint8Array(await file.arrayBuffer());
  let picture = await readPng(bytes, mostPixels).catch(() => null);
  if (!picture) {
    let bitmap;
    try {
      bitmap = await createImageBitmap(new Blob([bytes], {type: file.type}),
          {premultiplyAlpha: 'none', colorSpaceConversion: 'none', imageOrientation: 'from-image'});
    } catch {
      throw new Error(`"${file.name ?? 'This'}" is not a picture that the browser reads: open a PNG, JPEG, WebP or GIF file.`);
    }
    const {width, height} = bitmap;
    if (width * height <= mostPixels) {
      const canvas = new OffscreenCanvas(width, height);
      const context = canvas.getContext('2d', {willReadFrequently: true});
      context.drawImage(bitmap, 0, 0);
      picture = {width, height, rgba: context.getImageData(0, 0, width, height).data};
    } else {
      picture = {width, height};
    }
  }
  const {width, height, rgba} = picture;
  if (width * height > mostPixels) {
    throw new Error(`The picture has ${width} x ${height} pixels; this page takes ${mostPixels / 1e6} million. Use the tool for it, or a smaller copy.`);
  }
  return {width, height, rgba, bits: depthOfFile(bytes)};
}

const kCrcTable = Array.from({length: 256}, (_, n) => {
  for (let k = 0; k < 8; ++k) n = n & 1 ? 0xedb88320 ^ n >>> 1 : n >>> 1;
  return n >>> 0;
});

function chunk(name, data) {
  const bytes = new Uint8Array(12 + data.length);
  const view = new DataView(bytes.buffer);
  view.setUint32(0, data.length);
  for (let i = 0; i < 4; ++i) bytes[4 + i] = name.charCodeAt(i);
  bytes.set(data, 8);
  let crc = 0xffffffff;
  for (const byte of bytes.subarray(4, 8 + data.length)) crc = kCrcTable[(crc ^ byte) & 255] ^ crc >>> 8;
  view.setUint32(8 + data.length, (crc ^ 0xffffffff) >>> 0);
  return bytes;
}

/** A PNG file of the picture, byte for byte its pixels. */
export async function writePng({width, height, bits, data}) {
  const channels = bits / 8, stride = width * channels;
  const rows = new Uint8Array(height * (stride + 1));
  for (let y = 0; y < height; ++y) {
    const out = y * (stride + 1) + 1;
    for (let i = 0; i < stride; ++i) {
      const c = i % channels;
      rows[out + i] = data[y * stride + (channels === 1 || c === 3 ? i : i - c + 2 - c)];
    }
  }
  const head = new Uint8Array(13);
  new DataView(head.buffer).setUint32(0, width);
  new DataView(head.buffer).setUint32(4, height);
  head[8] = 8;
  head[9] = {8: 0, 24: 2, 32: 6}[bits];
  const pixels = await through(rows, new CompressionStream('deflate'));
  return new Blob([new Uint8Array(kMagic), chunk('IHDR', head), chunk('IDAT', pixels), chunk('IEND', new Uint8Array())],
      {type: 'image/png'});
}

/** A picture to start with: a sky, hills, a disc, stripes and grain. */
export function builtIn(width = 640, height = 426) {
  const rgba = new Uint8ClampedArray(4 * width * height);
  let seed = 7;
  const grain = () => (seed = seed * 1103515245 + 12345 & 0x7fffffff) / 0x7fffffff - 0.5;
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const u = x / width, v = y / height;
      let color = [70 + 120 * v, 130 + 80 * v, 215 - 40 * v];
      if ((u - 0.72) ** 2 + ((v - 0.3) * height / width) ** 2 < 0.006) color = [255, 214, 90];
      if (v > 0.62 + 0.1 * Math.sin(5 * u + 1)) color = [60 + 60 * u, 120 + 40 * u, 60];
      if (v > 0.78 + 0.06 * Math.sin(9 * u)) color = [40, 84 + 50 * u, 52];
      if (u > 0.1 && u < 0.34 && v > 0.42 && v < 0.8) {
        const brick = (Math.floor(x / 12) + Math.floor(y / 8)) % 2;
        color = brick ? [178, 74, 58] : [204, 110, 84];
        if (u > 0.2 && u < 0.25 && v > 0.6) color = [50, 40, 38];
      }
      const noise = 10 * grain();
      for (let c = 0; c < 3; ++c) rgba[4 * (y * width + x) + c] = color[c] + noise;
      rgba[4 * (y * width + x) + 3] = 255;
    }
  }
  return {width, height, rgba, bits: 24};
}
