// Pictures from files: decoded by the browser, upright by their orientation tag, as RGBA pixels.
import type { RawPicture } from '../engine/shared/protocol';

export async function decodePicture(file: Blob): Promise<RawPicture> {
  const bitmap = await createImageBitmap(file, { imageOrientation: 'from-image' });
  try {
    const { width, height } = bitmap;
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
