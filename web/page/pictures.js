// Pictures as canvases have them: {width, height, bits, rgba}, red first, rows without padding. At
// 8 bits the channels are alike, and below 32 bits pixels are opaque.

/** A picture that was opened, at a depth. Grey is what the tool reads from grey files. */
export function atDepth({rgba, width, height}, bits) {
  // Red is in the low byte: every machine with browsers is little-endian.
  const words = new Uint32Array(rgba.slice().buffer);
  for (let i = 0; i < words.length && bits < 32; ++i) {
    const word = words[i],
      r = word & 255,
      g = (word >> 8) & 255,
      b = (word >> 16) & 255;
    const isGrey = r === g && g === b;
    const color =
      bits === 24 || isGrey ? word : Math.round(0.299 * r + 0.587 * g + 0.114 * b) * 0x10101;
    words[i] = color | 0xff000000;
  }
  return {width, height, bits, rgba: new Uint8ClampedArray(words.buffer)};
}

/** At most `most` pixels: means of the pixels that fall together, weighted by alpha. */
export function shrink(picture, most) {
  const {width, height, bits, rgba} = picture;
  if (width * height <= most) return picture;
  const scale = Math.sqrt(most / (width * height));
  const w = Math.max(1, Math.floor(width * scale)),
    h = Math.max(1, Math.floor(height * scale));
  const result = new Uint8ClampedArray(4 * w * h);
  for (let y = 0; y < h; ++y) {
    const top = Math.floor((y * height) / h),
      bottom = Math.max(top + 1, Math.floor(((y + 1) * height) / h));
    for (let x = 0; x < w; ++x) {
      const left = Math.floor((x * width) / w),
        right = Math.max(left + 1, Math.floor(((x + 1) * width) / w));
      let r = 0,
        g = 0,
        b = 0,
        weights = 0;
      for (let sy = top; sy < bottom; ++sy) {
        for (let at = 4 * (sy * width + left); at < 4 * (sy * width + right); at += 4) {
          const weight = rgba[at + 3];
          r += weight * rgba[at];
          g += weight * rgba[at + 1];
          b += weight * rgba[at + 2];
          weights += weight;
        }
      }
      const at = 4 * (y * w + x);
      if (weights) {
        result[at] = Math.round(r / weights);
        result[at + 1] = Math.round(g / weights);
        result[at + 2] = Math.round(b / weights);
      }
      result[at + 3] = Math.round(weights / ((bottom - top) * (right - left)));
    }
  }
  return {width: w, height: h, bits, rgba: result};
}

const MAGIC = [0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a];
const isPng = (bytes) => MAGIC.every((value, i) => bytes[i] === value);

async function through(bytes, stream) {
  return new Uint8Array(
    await new Response(new Blob([bytes]).stream().pipeThrough(stream)).arrayBuffer(),
  );
}

/** What the first bytes of a file say: the depth that the tool reads it at, 24 where they do not
    tell, and of PNG and JPEG the size. */
function headerOf(bytes) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  if (isPng(bytes) && bytes.length >= 26) {
    const bits = {0: 8, 2: 24, 3: 24, 4: 32, 6: 32}[bytes[25]] ?? 24;
    return {bits, width: view.getUint32(16), height: view.getUint32(20)};
  }
  if (bytes[0] === 0xff && bytes[1] === 0xd8) {
    for (
      let at = 2;
      at + 9 < bytes.length && bytes[at] === 0xff;
      at += 2 + view.getUint16(at + 2)
    ) {
      const marker = bytes[at + 1];
      if (marker >= 0xc0 && marker <= 0xcf && ![0xc4, 0xc8, 0xcc].includes(marker)) {
        return {
          bits: bytes[at + 9] === 1 ? 8 : 24,
          width: view.getUint16(at + 7),
          height: view.getUint16(at + 5),
        };
      }
    }
  }
  return {bits: 24};
}

function refuseLarge({width, height}, mostPixels) {
  if (!(width * height > mostPixels)) return;
  throw new Error(
    `The picture has ${width} x ${height} pixels; this page takes ${mostPixels / 1e6} million. Use the tool for it, or a smaller copy.`,
  );
}

/** Pixels of a PNG of 8 bits per channel without interlacing, exactly: a canvas would multiply by
    alpha. Null for other files, which a canvas reads. */
async function readPng(bytes) {
  if (!isPng(bytes)) return null;
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  const width = view.getUint32(16),
    height = view.getUint32(20);
  const channels = {0: 1, 2: 3, 4: 2, 6: 4}[bytes[25]];
  if (bytes[24] !== 8 || !channels || bytes[28] !== 0) return null;
  const parts = [];
  for (let at = 8; at + 12 <= bytes.length;) {
    const length = view.getUint32(at);
    const name = String.fromCharCode(...bytes.subarray(at + 4, at + 8));
    if (name === 'IDAT') parts.push(bytes.subarray(at + 8, at + 8 + length));
    if (name === 'tRNS' || name === 'eXIf') return null;
    at += 12 + length;
  }
  const rows = await through(
    await new Blob(parts).arrayBuffer(),
    new DecompressionStream('deflate'),
  );
  const stride = width * channels;
  if (rows.length !== height * (stride + 1)) return null;
  const rgba = new Uint8ClampedArray(4 * width * height);
  let above = new Uint8Array(stride);
  for (let y = 0; y < height; ++y) {
    const row = rows.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    const filter = rows[y * (stride + 1)];
    for (let i = 0; i < stride; ++i) {
      const a = i >= channels ? row[i - channels] : 0,
        b = above[i],
        c = i >= channels ? above[i - channels] : 0;
      const pa = Math.abs(b - c),
        pb = Math.abs(a - c),
        pc = Math.abs(a + b - 2 * c);
      const paeth = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      row[i] += [0, a, b, (a + b) >> 1, paeth][filter] ?? 0;
    }
    for (let x = 0; x < width; ++x) {
      const at = 4 * (y * width + x),
        from = x * channels;
      const grey = channels < 3;
      rgba[at] = row[from];
      rgba[at + 1] = row[from + (grey ? 0 : 1)];
      rgba[at + 2] = row[from + (grey ? 0 : 2)];
      rgba[at + 3] = channels === 4 ? row[from + 3] : channels === 2 ? row[from + 1] : 255;
    }
    above = row;
  }
  return {width, height, rgba};
}

/** Reads a file: its orientation is applied. Throws an Error that says what to do. */
export async function readFile(file, mostPixels) {
  const bytes = new Uint8Array(await file.arrayBuffer());
  const header = headerOf(bytes);
  refuseLarge(header, mostPixels);
  const exact = await readPng(bytes).catch(() => null);
  if (exact) return {...exact, bits: header.bits};
  let bitmap;
  try {
    bitmap = await createImageBitmap(new Blob([bytes], {type: file.type}), {
      premultiplyAlpha: 'none',
      colorSpaceConversion: 'none',
      imageOrientation: 'from-image',
    });
  } catch {
    throw new Error(
      `"${file.name ?? 'This'}" is not a picture that the browser reads: open a PNG, JPEG, WebP or GIF file.`,
    );
  }
  refuseLarge(bitmap, mostPixels);
  const {width, height} = bitmap;
  const context = new OffscreenCanvas(width, height).getContext('2d', {willReadFrequently: true});
  context.drawImage(bitmap, 0, 0);
  return {width, height, rgba: context.getImageData(0, 0, width, height).data, bits: header.bits};
}

const CRC_TABLE = Array.from({length: 256}, (_, n) => {
  for (let k = 0; k < 8; ++k) n = n & 1 ? 0xedb88320 ^ (n >>> 1) : n >>> 1;
  return n >>> 0;
});

function chunk(name, data) {
  const bytes = new Uint8Array(12 + data.length);
  const view = new DataView(bytes.buffer);
  view.setUint32(0, data.length);
  for (let i = 0; i < 4; ++i) bytes[4 + i] = name.charCodeAt(i);
  bytes.set(data, 8);
  let crc = 0xffffffff;
  for (const byte of bytes.subarray(4, 8 + data.length))
    crc = CRC_TABLE[(crc ^ byte) & 255] ^ (crc >>> 8);
  view.setUint32(8 + data.length, (crc ^ 0xffffffff) >>> 0);
  return bytes;
}

/** A PNG file of the picture, byte for byte its pixels. */
export async function writePng({width, height, bits, rgba}) {
  const channels = bits / 8,
    stride = width * channels + 1;
  const rows = new Uint8Array(height * stride);
  for (let y = 0, from = 0; y < height; ++y) {
    for (let x = 0, to = y * stride + 1; x < width; ++x, from += 4) {
      for (let c = 0; c < channels; ++c) rows[to++] = rgba[from + c];
    }
  }
  const head = new Uint8Array(13);
  new DataView(head.buffer).setUint32(0, width);
  new DataView(head.buffer).setUint32(4, height);
  head[8] = 8;
  head[9] = {8: 0, 24: 2, 32: 6}[bits];
  const pixels = await through(rows, new CompressionStream('deflate'));
  return new Blob(
    [
      new Uint8Array(MAGIC),
      chunk('IHDR', head),
      chunk('IDAT', pixels),
      chunk('IEND', new Uint8Array()),
    ],
    {type: 'image/png'},
  );
}

/** A picture to start with: a sky, hills, a disc, stripes and grain. */
export function builtIn(width = 640, height = 426) {
  const rgba = new Uint8ClampedArray(4 * width * height);
  let seed = 7;
  const grain = () => (seed = (seed * 1103515245 + 12345) & 0x7fffffff) / 0x7fffffff - 0.5;
  for (let y = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x) {
      const u = x / width,
        v = y / height;
      let color = [70 + 120 * v, 130 + 80 * v, 215 - 40 * v];
      if ((u - 0.72) ** 2 + (((v - 0.3) * height) / width) ** 2 < 0.006) color = [255, 214, 90];
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
