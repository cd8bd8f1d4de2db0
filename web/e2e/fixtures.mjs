// Pictures the end-to-end run makes for itself: a y4m video for Chromium's fake camera, and a JPEG
// carrying an orientation tag.
import { writeFileSync } from 'node:fs';

// A test card: colour bands, a grey ramp and a bright bar that moves from frame to frame.
function card(w, h, frame) {
  const rgb = new Uint8Array(w * h * 3);
  const bands = [[230, 40, 60], [250, 200, 30], [40, 200, 90], [30, 160, 240], [150, 60, 220], [240, 240, 240]];
  for (let y = 0; y < h; y++) {
    for (let x = 0; x < w; x++) {
      let c;
      if (y < (h * 2) / 3) c = bands[Math.floor((x * bands.length) / w)];
      else {
        const g = Math.round((255 * x) / (w - 1));
        c = [g, g, g];
      }
      const bar = (frame * 8) % w;
      if (x >= bar && x < bar + 12 && y > h / 6 && y < h / 2) c = [255, 255, 255];
      if (Math.hypot(x - w / 2, y - h / 3) < h / 8) c = [20, 20, 20];
      rgb.set(c, (y * w + x) * 3);
    }
  }
  return rgb;
}

// Writes `frames` frames of the card as a y4m (4:2:0, BT.601) of w x h.
export function writeY4m(path, w, h, frames = 30) {
  const parts = [Buffer.from(`YUV4MPEG2 W${w} H${h} F30:1 Ip A1:1 C420jpeg\n`)];
  for (let f = 0; f < frames; f++) {
    const rgb = card(w, h, f);
    const Y = Buffer.alloc(w * h);
    const U = Buffer.alloc((w / 2) * (h / 2));
    const V = Buffer.alloc((w / 2) * (h / 2));
    for (let i = 0; i < w * h; i++) {
      const [r, g, b] = [rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]];
      Y[i] = Math.round(0.299 * r + 0.587 * g + 0.114 * b);
    }
    for (let y = 0; y < h / 2; y++)
      for (let x = 0; x < w / 2; x++) {
        const i = (2 * y * w + 2 * x) * 3;
        const [r, g, b] = [rgb[i], rgb[i + 1], rgb[i + 2]];
        U[y * (w / 2) + x] = Math.max(0, Math.min(255, Math.round(128 - 0.168736 * r - 0.331264 * g + 0.5 * b)));
        V[y * (w / 2) + x] = Math.max(0, Math.min(255, Math.round(128 + 0.5 * r - 0.418688 * g - 0.081312 * b)));
      }
    parts.push(Buffer.from('FRAME\n'), Y, U, V);
  }
  writeFileSync(path, Buffer.concat(parts));
}

// The JPEG with an EXIF segment holding only the orientation tag, put right after the start marker.
export function withOrientation(jpeg, orientation) {
  const tiff = Buffer.from([
    0x4d, 0x4d, 0x00, 0x2a, 0x00, 0x00, 0x00, 0x08, // big-endian header, first directory at 8
    0x00, 0x01, // one entry
    0x01, 0x12, 0x00, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, orientation, 0x00, 0x00, // Orientation, SHORT
    0x00, 0x00, 0x00, 0x00, // no next directory
  ]);
  const body = Buffer.concat([Buffer.from('Exif\0\0', 'binary'), tiff]);
  const app1 = Buffer.concat([Buffer.from([0xff, 0xe1, (body.length + 2) >> 8, (body.length + 2) & 0xff]), body]);
  return Buffer.concat([jpeg.subarray(0, 2), app1, jpeg.subarray(2)]);
}
