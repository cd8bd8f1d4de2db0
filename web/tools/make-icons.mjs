// Draws the app's icons (a shutter ring split into its colours, cut by glitch bars) as PNG files in
// public/icons. Run by hand after a change: node tools/make-icons.mjs
import { writeFileSync, mkdirSync } from 'node:fs';
import { deflateSync } from 'node:zlib';

function crc32(bytes) {
  let c, crc = 0xffffffff;
  for (const b of bytes) {
    c = (crc ^ b) & 0xff;
    for (let k = 0; k < 8; k++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
    crc = (crc >>> 8) ^ c;
  }
  return (crc ^ 0xffffffff) >>> 0;
}

function png(size, pixel) {
  const raw = Buffer.alloc(size * (size * 4 + 1));
  for (let y = 0; y < size; y++) {
    raw[y * (size * 4 + 1)] = 0;
    for (let x = 0; x < size; x++) raw.set(pixel(x / size, y / size), y * (size * 4 + 1) + 1 + x * 4);
  }
  const chunk = (type, data) => {
    const out = Buffer.alloc(12 + data.length);
    out.writeUInt32BE(data.length, 0);
    out.write(type, 4, 'ascii');
    data.copy(out, 8);
    out.writeUInt32BE(crc32(out.subarray(4, 8 + data.length)), 8 + data.length);
    return out;
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE(size, 0);
  header.writeUInt32BE(size, 4);
  header.set([8, 6, 0, 0, 0], 8);
  return Buffer.concat([
    Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk('IHDR', header),
    chunk('IDAT', deflateSync(raw)),
    chunk('IEND', Buffer.alloc(0)),
  ]);
}

// Ring coverage at (x, y) for a ring centred at (cx, cy); smooth edges over `soft`.
function ring(x, y, cx, cy, r, width, soft) {
  const d = Math.hypot(x - cx, y - cy);
  const inside = Math.min(d - (r - width / 2), r + width / 2 - d);
  return Math.max(0, Math.min(1, inside / soft + 0.5));
}

function icon(size, safe) {
  const s = safe ? 0.72 : 1; // maskable icons keep their picture in the middle
  const soft = 1.2 / size;
  const bars = [0.31, 0.47, 0.62];
  return png(size, (u, v) => {
    const x = 0.5 + (u - 0.5) / s;
    const y = 0.5 + (v - 0.5) / s;
    const bar = bars.findIndex((b) => Math.abs(y - b) < 0.025);
    const shift = bar < 0 ? 0 : [0.05, -0.07, 0.035][bar];
    const r = 0.3, w = 0.085;
    const m = ring(x + shift - 0.02, y, 0.5, 0.5, r, w, soft);
    const c = ring(x + shift + 0.02, y, 0.5, 0.5, r, w, soft);
    const dot = ring(x + shift, y, 0.5, 0.5, 0.0, 0.22, soft);
    const bg = [11, 11, 15];
    const R = Math.min(255, bg[0] + 244 * m + 235 * dot);
    const G = Math.min(255, bg[1] + 46 * m + 242 * c + 235 * dot);
    const B = Math.min(255, bg[2] + 136 * m + 255 * c + 235 * dot);
    return [R, G, B, 255];
  });
}

mkdirSync('public/icons', { recursive: true });
writeFileSync('public/icons/icon-192.png', icon(192, false));
writeFileSync('public/icons/icon-512.png', icon(512, false));
writeFileSync('public/icons/icon-maskable-512.png', icon(512, true));
