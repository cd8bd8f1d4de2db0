// The picture view on the page. The pixels and the renderer live in the engine Worker; this object
// keeps what the composition depends on (blend mode, opacity, effects hidden), the frame gate of the
// page, and the newest live frame, and shows what the engine composes.
//
// Gate: one request that renders is in flight at a time. A render asked for meanwhile is not queued:
// it is remembered once, and when the one in flight is shown it runs with the newest frame.
import { EngineRestarted, type EngineClient } from '../engine/client/engine-client';
import type { RawPicture, Size, ViewState } from '../engine/shared/protocol';

export interface PictureDisplay {
  // The view's size in points (CSS pixels).
  layoutSize(): Size;
  // The canvas's size in device pixels.
  displaySize(): Size;
  show(picture: RawPicture): void;
}

export interface PhotoLibrary {
  // Hands the picture to the user's photos (a share sheet or a download); throws on failure.
  save(file: Blob, name: string): Promise<void>;
  // Opens the share sheet with the picture (or downloads it where there is none).
  share(file: Blob, name: string): Promise<void>;
}

export interface EffectedImageViewDelegate {
  imageDidSave(): void;
}

// A decoded still, upright.
export type PictureDecoder = (file: Blob) => Promise<RawPicture>;

export class EffectedImageView {
  blendIndex = 0;
  shouldHideEffects = false;
  isDrawing = false;
  userInteractionEnabled = true;
  delegate: EffectedImageViewDelegate | null = null;
  hasOriginal = false;
  controlSeed: string | null = null;
  // Told when the control values are rolled anew, with their seed.
  onControlSeed: ((seed: string | null) => void) | null = null;

  private layerAlphaValue = 1;
  private pendingFrame: RawPicture | null = null;
  private again: { skipEffects: boolean } | null = null;
  private idleWaiters: (() => void)[] = [];
  private displayInFlight = false;
  private displayAgain = false;
  private still: Blob | null = null;

  constructor(
    private readonly engine: EngineClient,
    private readonly view: PictureDisplay,
    private readonly library: PhotoLibrary,
    private readonly decode: PictureDecoder,
  ) {}

  get layerAlpha(): number {
    return this.layerAlphaValue;
  }

  // Changes the composition only: a redraw, no new run of the stack.
  set layerAlpha(alpha: number) {
    this.layerAlphaValue = alpha;
    void this.redraw();
  }

  setBlendMode(index: number, skipDisplay: boolean): void {
    this.blendIndex = index;
    if (!skipDisplay) void this.redraw();
  }

  // A finger went down on the picture (true) or came up: the base alone while it rests.
  setTouching(down: boolean): void {
    this.shouldHideEffects = down;
    void this.redraw();
  }

  // A live frame becomes the base; it goes to the engine with the next render.
  setOriginalFrame(frame: RawPicture): void {
    this.pendingFrame = frame;
    this.still = null;
    this.hasOriginal = true;
  }

  // A still (a photo or a chosen picture) becomes the base, drawn upright. False when it is no picture
  // the engine can work on.
  async setOriginalStill(file: Blob): Promise<boolean> {
    const picture = await this.decode(file);
    this.pendingFrame = null;
    const reply = await this.engine.request(
      { type: 'setOriginal', picture, orientation: 0, correct: true },
      [picture.data],
    );
    if (!reply.ok) return false;
    this.still = file;
    this.hasOriginal = true;
    return true;
  }

  clearImages(): void {
    this.pendingFrame = null;
    this.still = null;
    this.hasOriginal = false;
    void this.engine.request({ type: 'setOriginal', picture: null, orientation: 0, correct: false }).catch(() => undefined);
  }

  state(): ViewState {
    return {
      blendIndex: this.blendIndex,
      alpha: this.layerAlphaValue,
      hideEffects: this.shouldHideEffects,
      layout: this.view.layoutSize(),
      display: this.view.displaySize(),
    };
  }

  // A preview render, or (skipEffects) a new layout and display of the last effected picture.
  async render(skipEffects: boolean): Promise<void> {
    if (this.isDrawing) {
      this.again = { skipEffects: (this.again?.skipEffects ?? true) && skipEffects };
      return new Promise((resolve) => this.idleWaiters.push(resolve));
    }
    this.isDrawing = true;
    try {
      let skip = skipEffects;
      for (;;) {
        const frame = this.pendingFrame;
        this.pendingFrame = null;
        const reply = await this.engine.request(
          { type: 'render', state: this.state(), skipEffects: skip, frame },
          frame ? [frame.data] : [],
        );
        if (reply.picture) this.view.show(reply.picture);
        if (!this.again) break;
        skip = this.again.skipEffects;
        this.again = null;
      }
    } catch (error) {
      this.failed(error);
    } finally {
      this.isDrawing = false;
      this.again = null;
      const waiters = this.idleWaiters;
      this.idleWaiters = [];
      waiters.forEach((w) => w());
    }
  }

  // The display pass alone; asks made while one is under way collapse into one more.
  async redraw(): Promise<void> {
    if (this.displayInFlight) {
      this.displayAgain = true;
      return;
    }
    this.displayInFlight = true;
    try {
      do {
        this.displayAgain = false;
        const reply = await this.engine.request({ type: 'display', state: this.state() });
        if (reply.picture) this.view.show(reply.picture);
      } while (this.displayAgain);
    } catch (error) {
      this.failed(error);
    } finally {
      this.displayInFlight = false;
    }
  }

  // New control values, then a preview render (the engine logs "randomParams").
  async randomizeControls(): Promise<void> {
    try {
      const reply = await this.engine.request({ type: 'randomizeControls', state: this.state() });
      this.controlSeed = reply.seed;
      this.onControlSeed?.(reply.seed);
      if (reply.picture) this.view.show(reply.picture);
    } catch (error) {
      this.failed(error);
    }
  }

  // Width over height of the base, 1.0 without one.
  async originalAspect(): Promise<number> {
    try {
      const { originalWidth: w, originalHeight: h } = await this.engine.request({ type: 'status' });
      return w > 0 && h > 0 ? w / h : 1.0;
    } catch (error) {
      this.failed(error);
      return 1.0;
    }
  }

  // The base turned (and mirrored); false without a base.
  async rotateBaseImage(degrees: number, mirrored: boolean): Promise<boolean> {
    if (!this.hasOriginal) return false;
    try {
      const reply = await this.engine.request({ type: 'rotate', degrees, mirrored });
      return reply.ok;
    } catch (error) {
      this.failed(error);
      return false;
    }
  }

  // The composed final becomes the new base, and is shown.
  async flatten(): Promise<boolean> {
    try {
      const reply = await this.engine.request({ type: 'flatten', state: this.state() });
      if (reply.picture) this.view.show(reply.picture);
      return reply.ok;
    } catch (error) {
      this.failed(error);
      return false;
    }
  }

  // The final at full size (or half by the save quality) as a JPEG file that carries its look; null on
  // failure.
  async renderFinal(): Promise<Blob | null> {
    try {
      const reply = await this.engine.request({ type: 'renderFinal', state: this.state(), mimeType: 'image/jpeg', quality: 0.92 });
      if (reply.file) return reply.file;
      const file = reply.picture ? await encodeJpeg(reply.picture) : null;
      if (!file) return null;
      const withLook = await this.engine.request({ type: 'embedLook', file: await file.arrayBuffer(), xmp: reply.xmp });
      return withLook.file ? new Blob([withLook.file], { type: 'image/jpeg' }) : file;
    } catch (error) {
      this.failed(error);
      return null;
    }
  }

  async saveToPhotos(): Promise<void> {
    const file = await this.renderFinal();
    if (!file) return;
    try {
      await this.library.save(file, pictureName());
    } catch (error) {
      console.log(`Image save error ${error instanceof Error ? error.message : String(error)}`);
      return;
    }
    this.delegate?.imageDidSave();
  }

  async export(): Promise<void> {
    const file = await this.renderFinal();
    if (!file) return;
    await this.library.share(file, pictureName()).catch((error: unknown) => console.log(`Export: ${String(error)}`));
  }

  // A new engine took over: it gets the controls and the still again (as it was loaded: turns and
  // flattens made since are lost with the old engine), and the picture is shown anew.
  async restore(): Promise<void> {
    if (this.controlSeed) await this.engine.request({ type: 'setControlSeed', seed: this.controlSeed });
    if (this.still) await this.setOriginalStill(this.still);
    await this.render(false);
  }

  private failed(error: unknown): void {
    // The new engine is given the picture again (restore); anything else is a fault.
    if (!(error instanceof EngineRestarted)) throw error;
  }
}

export function pictureName(date = new Date()): string {
  const p = (n: number) => String(n).padStart(2, '0');
  return `zorvex-${date.getFullYear()}${p(date.getMonth() + 1)}${p(date.getDate())}-${p(date.getHours())}${p(date.getMinutes())}${p(date.getSeconds())}.jpg`;
}

async function encodeJpeg(picture: RawPicture): Promise<Blob | null> {
  if (typeof document === 'undefined') return null;
  const canvas = document.createElement('canvas');
  canvas.width = picture.width;
  canvas.height = picture.height;
  const context = canvas.getContext('2d');
  if (!context) return null;
  context.putImageData(new ImageData(new Uint8ClampedArray(picture.data), picture.width, picture.height), 0, 0);
  return new Promise((resolve) => canvas.toBlob(resolve, 'image/jpeg', 0.92));
}
