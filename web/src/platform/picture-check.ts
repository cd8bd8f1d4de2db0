// Why a file can't be opened as a picture: none of the picture formats a browser decodes, damaged, or of
// a size the engine does not work on. The format and the size are read from the file's first bytes,
// so that a picture far too large is refused before anything tries to decode it.

export type PictureProblem = 'not a picture' | 'damaged' | 'too small' | 'too large';

// The engine works on pictures at least this many pixels on a side and at most this many in all.
export const kMinPictureSide = 16;
export const kMaxPicturePixels = 100_000_000;

export class PictureError extends Error {
  constructor(readonly problem: PictureProblem) {
    super(problemText(problem));
    this.name = 'PictureError';
  }
}

// The words the info message gives for each problem.
export function problemText(problem: PictureProblem): string {
  switch (problem) {
    case 'not a picture':
      return 'not a picture';
    case 'damaged':
      return 'damaged';
    case 'too small':
      return `too small (at least ${kMinPictureSide} pixels a side)`;
    case 'too large':
      return `too large (at most ${kMaxPicturePixels / 1_000_000} megapixels)`;
  }
}

export function sizeProblem(width: number, height: number): PictureProblem | null {
  if (width < kMinPictureSide || height < kMinPictureSide) return 'too small';
  if (width * height > kMaxPicturePixels) return 'too large';
  return null;
}

export interface PictureHeader {
  format: 'jpeg' | 'png' | 'gif' | 'webp' | 'bmp' | 'heif';
  // As stored, before any orientation tag; null where the first bytes don't tell it.
  width: number | null;
  height: number | null;
}

const ascii = (b: Uint8Array, at: number, text: string) =>
  b.length >= at + text.length && [...text].every((c, i) => b[at + i] === c.charCodeAt(0));
const be16 = (b: Uint8Array, at: number) => (b[at]! << 8) | b[at + 1]!;
const be32 = (b: Uint8Array, at: number) => ((b[at]! << 24) | (b[at + 1]! << 16) | (b[at + 2]! << 8) | b[at + 3]!) >>> 0;
const le16 = (b: Uint8Array, at: number) => b[at]! | (b[at + 1]! << 8);
const le24 = (b: Uint8Array, at: number) => b[at]! | (b[at + 1]! << 8) | (b[at + 2]! << 16);
const le32 = (b: Uint8Array, at: number) => (b[at]! | (b[at + 1]! << 8) | (b[at + 2]! << 16) | (b[at + 3]! << 24)) | 0;

// The format and size from the first bytes of a file, or null when they are none of a picture's.
export function readPictureHeader(b: Uint8Array): PictureHeader | null {
  const unknown = (format: PictureHeader['format']): PictureHeader => ({ format, width: null, height: null });
  if (b.length >= 3 && b[0] === 0xff && b[1] === 0xd8 && b[2] === 0xff) return { format: 'jpeg', ...jpegSize(b) };
  if (b.length >= 8 && b[0] === 0x89 && ascii(b, 1, 'PNG\r\n\x1a\n')) {
    return b.length >= 24 && ascii(b, 12, 'IHDR') ? { format: 'png', width: be32(b, 16), height: be32(b, 20) } : unknown('png');
  }
  if (ascii(b, 0, 'GIF87a') || ascii(b, 0, 'GIF89a')) {
    return b.length >= 10 ? { format: 'gif', width: le16(b, 6), height: le16(b, 8) } : unknown('gif');
  }
  if (ascii(b, 0, 'RIFF') && ascii(b, 8, 'WEBP')) {
    if (ascii(b, 12, 'VP8X') && b.length >= 30) return { format: 'webp', width: le24(b, 24) + 1, height: le24(b, 27) + 1 };
    if (ascii(b, 12, 'VP8 ') && b.length >= 30) return { format: 'webp', width: le16(b, 26) & 0x3fff, height: le16(b, 28) & 0x3fff };
    if (ascii(b, 12, 'VP8L') && b.length >= 25) {
      const bits = le32(b, 21);
      return { format: 'webp', width: (bits & 0x3fff) + 1, height: ((bits >>> 14) & 0x3fff) + 1 };
    }
    return unknown('webp');
  }
  if (ascii(b, 0, 'BM') && b.length >= 26) return { format: 'bmp', width: Math.abs(le32(b, 18)), height: Math.abs(le32(b, 22)) };
  if (ascii(b, 4, 'ftyp') && ['avif', 'avis', 'heic', 'heix', 'mif1', 'msf1'].some((brand) => ascii(b, 8, brand))) return unknown('heif');
  return null;
}

// A JPEG's size from its first frame header, walking the segments before it.
function jpegSize(b: Uint8Array): { width: number | null; height: number | null } {
  let at = 2;
  while (at + 4 <= b.length) {
    if (b[at] !== 0xff) break;
    const marker = b[at + 1]!;
    if (marker === 0xff) {
      at += 1; // fill byte
      continue;
    }
    if (marker === 0xd8 || (marker >= 0xd0 && marker <= 0xd7) || marker === 0x01) {
      at += 2;
      continue;
    }
    const length = be16(b, at + 2);
    const frame = marker >= 0xc0 && marker <= 0xcf && marker !== 0xc4 && marker !== 0xc8 && marker !== 0xcc;
    if (frame) return at + 9 <= b.length ? { height: be16(b, at + 5), width: be16(b, at + 7) } : { width: null, height: null };
    if (length < 2) break;
    at += 2 + length;
  }
  return { width: null, height: null };
}
