// Where finished pictures go: the share sheet where the browser can share files (a phone's share sheet
// has "Save Image"), else a download.
import type { PhotoLibrary } from '../screens/effected-image-view';

// Asks the user to confirm a share after a long render, when the browser wants a fresh tap for it.
export type ShareConfirm = (title: string, action: string) => Promise<boolean>;

export class BrowserPhotoLibrary implements PhotoLibrary {
  constructor(private readonly confirm: ShareConfirm) {}

  save(file: Blob, name: string): Promise<void> {
    return this.deliver(file, name, 'Save');
  }

  share(file: Blob, name: string): Promise<void> {
    return this.deliver(file, name, 'Share');
  }

  private async deliver(blob: Blob, name: string, action: string): Promise<void> {
    const file = new File([blob], name, { type: blob.type || 'image/jpeg' });
    const data = { files: [file] };
    if (typeof navigator.share !== 'function' || !navigator.canShare?.(data)) {
      download(file);
      return;
    }
    try {
      await navigator.share(data);
    } catch (error) {
      // A share needs a recent tap; after a long render the browser refuses it, so ask for one.
      if (!(error instanceof DOMException) || error.name !== 'NotAllowedError') throw error;
      if (!(await this.confirm('IMAGE READY', action))) throw new Error('the share was cancelled');
      await navigator.share(data);
    }
  }
}

export function download(file: File): void {
  const url = URL.createObjectURL(file);
  const a = document.createElement('a');
  a.href = url;
  a.download = file.name;
  document.body.append(a);
  a.click();
  a.remove();
  setTimeout(() => URL.revokeObjectURL(url), 10_000);
}
