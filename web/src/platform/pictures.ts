// Pictures from files: decoded by the browser, upright by their orientation tag, as RGBA pixels. A
// file that can't be is refused with the reason (a PictureError).
import type { RawPicture } from '../engine/shared/protocol';
import { PictureError, readPictureHeader, sizeProblem } from './picture-check';

// Enough of the file for the size of a JPEG behind large metadata segments.
const kHeaderBytes = 1 << 20;

export async function decodePicture(file: Blob): Promise<RawPicture> {
  const header = readPictureHeader(new Uint8Array(await file.slice(0, kHeaderBytes).arrayBuffer()));
  if (!header) throw new PictureError('not a picture');
  if (header.width && header.height) {
    const problem = sizeProblem(header.width, header.height);
    if (problem) throw new PictureError(problem);
  }
  let bitmap: ImageBitmap;
  try {
    bitmap = await createImageBitmap(file, { imageOrientation: 'from-image' });
  } catch (error) {
    console.log(`The picture could not be decoded: ${String(error)}`);
    throw new PictureError('damaged');
  }
  try {
    const { width, height } = bitmap;
    const problem = sizeProblem(width, height);
    if (problem) throw new PictureError(problem);
    const canvas =
      typeof OffscreenCanvas !== 'undefined' ? new OffscreenCanvas(width, height) : Object.assign(document.createElement('canvas'), { width, height });
    const context = canvas.getContext('2d', { willReadFrequently: true }) as
      | CanvasRenderingContext2D
      | OffscreenCanvasRenderingContext2D
      | null;
    if (!context) throw new Error('the browser gives no 2D canvas');
    context.drawImage(bitmap, 0, 0);
    const data = context.getImageData(0, 0, width, height).data;
    return { width, height, data: data.buffer as ArrayBuffer };
  } finally {
    bitmap.close();
  }
}
