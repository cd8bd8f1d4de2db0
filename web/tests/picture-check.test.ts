// Telling a picture file from anything else by its first bytes, and its size before it is decoded.
import { describe, expect, it } from 'vitest';

import { readPictureHeader, sizeProblem } from '../src/platform/picture-check';

const bytes = (...parts: (string | number[])[]) =>
  new Uint8Array(parts.flatMap((p) => (typeof p === 'string' ? [...p].map((c) => c.charCodeAt(0)) : p)));
const be = (n: number, size: number) => Array.from({ length: size }, (_, i) => (n >>> (8 * (size - 1 - i))) & 255);
const le = (n: number, size: number) => be(n, size).reverse();

describe('picture files', () => {
  it('reads the format and the size of each kind, past a JPEG\'s metadata; anything else is none', () => {
    const png = bytes([0x89], 'PNG\r\n\x1a\n', be(13, 4), 'IHDR', be(1, 4), be(1, 4));
    const exif = [0xff, 0xe1, ...be(2 + 300, 2), ...new Array<number>(300).fill(0xff)]; // an APP1 full of 0xff
    const jpeg = bytes([0xff, 0xd8], exif, [0xff, 0xdb, 0, 4, 0, 0], [0xff, 0xc2, 0, 17, 8], be(3024, 2), be(4032, 2));
    const gif = bytes('GIF89a', le(640, 2), le(480, 2));
    const webpLossless = bytes('RIFF', le(100, 4), 'WEBPVP8L', le(50, 4), [0x2f], le((199 & 0x3fff) | (99 << 14), 4));
    const webpExtended = bytes('RIFF', le(100, 4), 'WEBPVP8X', le(10, 4), [0, 0, 0, 0], le(7999, 3), le(5999, 3));
    const bmp = bytes('BM', new Array<number>(16).fill(0), le(32, 4), le(-24, 4));
    const heic = bytes([0, 0, 0, 24], 'ftypheic');
    expect([png, jpeg, gif, webpLossless, webpExtended, bmp, heic].map(readPictureHeader)).toEqual([
      { format: 'png', width: 1, height: 1 },
      { format: 'jpeg', width: 4032, height: 3024 },
      { format: 'gif', width: 640, height: 480 },
      { format: 'webp', width: 200, height: 100 },
      { format: 'webp', width: 8000, height: 6000 },
      { format: 'bmp', width: 32, height: 24 },
      { format: 'heif', width: null, height: null },
    ]);
    // A JPEG cut off before its frame header is still a JPEG, of no known size.
    expect(readPictureHeader(jpeg.subarray(0, 200))).toEqual({ format: 'jpeg', width: null, height: null });
    for (const none of [bytes('hello, this is text'), bytes(''), bytes([0xff, 0xd8]), bytes('<svg xmlns="http://www.w3.org/2000/svg"/>')])
      expect(readPictureHeader(none)).toBeNull();
  });

  it('works on pictures of 16 pixels a side up to 100 megapixels', () => {
    const sizes: [number, number][] = [[16, 16], [15, 4000], [4000, 15], [10000, 10000], [10000, 10001], [1, 1]];
    expect(sizes.map(([w, h]) => sizeProblem(w, h))).toEqual([null, 'too small', 'too small', null, 'too large', 'too small']);
  });
});
