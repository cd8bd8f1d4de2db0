// The picture view on the page. The pixels and the renderer live in the engine Worker; this object
// keeps what the composition depends on (blend mode, opacity, effects hidden), the frame gate of the
// page, and the newest live frame, and shows what the engine composes.
//
// Gate: one request that renders is in flight at a time. A render asked for meanwhile is not queued:
// it is remembered once, and when the one in flight is shown it runs with the newest frame.
import { EngineRestarted, type EngineClient } from '../engine/client/engine-client';
import type { RawPicture, Size, ViewState } from '../engine/shared/protocol';
import { PictureError, sizeProblem, type PictureProblem } from '../platform/picture-check';
import { EditHistory, type EditStep } from './edit-history';

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

// A decoded still, upright. Throws a PictureError when the file is no picture that can be worked on.
export type PictureDecoder = (file: Blob) => Promise<RawPicture>;

export class EffectedImageView {
  blendIndex = 0;
  shouldHideEffects = false;
  isDrawing = false;
  userInteractionEnabled = true;
  delegate: EffectedImageViewDelegate | null = null;
  hasOriginal = false;
  controlSeed: string | null = null;
  // The turns, mirrors and flattens of the still being edited, which can be taken back.
  readonly history = new EditHistory();
  // The last picture handed to the photos in this session.
  lastSavedFile: Blob | null = null;
  // Told when the control values are rolled anew, with their seed.
  onControlSeed: ((seed: string | null) => void) | null = null;

  private layerAlphaValue = 1;
  private pendingFrame: RawPicture | null = null;
  private again: { skipEffects: boolean } | null = null;
  // Callers of render waiting for the pass that serves them.
  private waiting: { resolve: () => void; reject: (error: unknown) => void }[] = [];
  private displayInFlight = false;
  private displayAgain = false;
  private still: Blob | null = null;
  // The edits of the still run one after the other: one may have to wait for a picture to decode.
  private edits: Promise<unknown> = Promise.resolve();

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
    this.history.clear();
    this.hasOriginal = true;
  }

  // A still (a photo or a chosen picture) becomes the base, drawn upright, with nothing to take back.
  // Null when done, else why it can't be worked on.
  async setOriginalStill(file: Blob): Promise<PictureProblem | null> {
    const problem = await this.loadStill(file);
    if (problem) return problem;
    this.still = file;
    this.history.clear();
    this.hasOriginal = true;
    return null;
  }

  private async loadStill(file: Blob): Promise<PictureProblem | null> {
    let picture: RawPicture;
    try {
      picture = await this.decode(file);
    } catch (error) {
      if (error instanceof PictureError) return error.problem;
      throw error;
    }
    const problem = sizeProblem(picture.width, picture.height);
    if (problem) return problem;
    this.pendingFrame = null;
    const reply = await this.engine.request(
      { type: 'setOriginal', picture, orientation: 0, correct: true },
      [picture.data],
    );
    return reply.ok ? null : 'damaged';
  }

  clearImages(): void {
    this.pendingFrame = null;
    this.still = null;
    this.history.clear();
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

  // A preview render, or (skipEffects) a new layout and display of the last effected picture. Settles
  // once a pass that started after this call is on screen: a call made while a pass is under way is
  // served by the next one, which takes the newest frame, so a steady stream of frames never keeps an
  // earlier caller waiting.
  render(skipEffects: boolean): Promise<void> {
    const served = new Promise<void>((resolve, reject) => this.waiting.push({ resolve, reject }));
    if (this.isDrawing) {
      this.again = { skipEffects: (this.again?.skipEffects ?? true) && skipEffects };
    } else {
      void this.drawPasses(skipEffects);
    }
    return served;
  }

  private async drawPasses(skipEffects: boolean): Promise<void> {
    this.isDrawing = true;
    let skip = skipEffects;
    try {
      for (;;) {
        const served = this.waiting;
        this.waiting = [];
        const frame = this.pendingFrame;
        this.pendingFrame = null;
        try {
          const reply = await this.engine.request(
            { type: 'render', state: this.state(), skipEffects: skip, frame },
            frame ? [frame.data] : [],
          );
          if (reply.picture) this.view.show(reply.picture);
          served.forEach((w) => w.resolve());
        } catch (error) {
          // A new engine is given the picture again (restore); anything else is the callers' fault to see.
          served.forEach((w) => (error instanceof EngineRestarted ? w.resolve() : w.reject(error)));
          break;
        }
        if (!this.again) break;
        skip = this.again.skipEffects;
        this.again = null;
      }
    } finally {
      this.isDrawing = false;
      this.again = null;
      const left = this.waiting;
      this.waiting = [];
      left.forEach((w) => w.resolve());
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
  rotateBaseImage(degrees: number, mirrored: boolean): Promise<boolean> {
    if (!this.hasOriginal) return Promise.resolve(false);
    return this.edit(async () => {
      const step: EditStep = { kind: 'turn', degrees, mirrored };
      const ok = await this.apply(step);
      if (ok) this.history.record(step);
      return ok;
    });
  }

  // The composed final becomes the new base, and is shown.
  flatten(): Promise<boolean> {
    return this.edit(async () => {
      const state = this.state();
      const reply = await this.engine.request({ type: 'flatten', state });
      if (reply.picture) this.view.show(reply.picture);
      if (reply.ok && reply.look) this.history.record({ kind: 'flatten', look: reply.look, blendIndex: state.blendIndex, alpha: state.alpha });
      return reply.ok;
    });
  }

  // Takes the last turn, mirror or flatten back; false when there is none or it could not be done. The
  // caller renders afterwards.
  undo(): Promise<boolean> {
    return this.edit(async () => {
      const plan = this.history.undoPlan();
      if (!plan) return false;
      const ok = plan.kind === 'turn' ? await this.apply(plan.step) : await this.replay(plan.steps);
      if (ok) this.history.stepBack();
      return ok;
    });
  }

  // Makes the last step taken back again. The caller renders afterwards.
  redo(): Promise<boolean> {
    return this.edit(async () => {
      const step = this.history.redoStep();
      if (!step) return false;
      const ok = await this.apply(step);
      if (ok) this.history.stepForward();
      return ok;
    });
  }

  // Runs one edit after those asked for before it; false when the engine stopped meanwhile.
  private edit(body: () => Promise<boolean>): Promise<boolean> {
    const run = this.edits.then(body).catch((error: unknown) => {
      this.failed(error);
      return false;
    });
    this.edits = run.catch(() => undefined);
    return run;
  }

  // One step on the base as it stands.
  private async apply(step: EditStep): Promise<boolean> {
    if (step.kind === 'turn') return (await this.engine.request({ type: 'rotate', degrees: step.degrees, mirrored: step.mirrored })).ok;
    const state = { ...this.state(), blendIndex: step.blendIndex, alpha: step.alpha, hideEffects: false };
    return (await this.engine.request({ type: 'flatten', state, look: step.look })).ok;
  }

  // The still as it was taken, then `steps`.
  private async replay(steps: readonly EditStep[]): Promise<boolean> {
    if (!this.still || (await this.loadStill(this.still))) return false;
    for (const step of steps) if (!(await this.apply(step))) return false;
    return true;
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
    this.lastSavedFile = file;
    this.delegate?.imageDidSave();
  }

  async export(): Promise<void> {
    const file = await this.renderFinal();
    if (!file) return;
    await this.library.share(file, pictureName()).catch((error: unknown) => console.log(`Export: ${String(error)}`));
  }

  // A new engine took over: it gets the controls, and the still with the edits made on it, again, and
  // the picture is shown anew.
  async restore(): Promise<void> {
    if (this.controlSeed) await this.engine.request({ type: 'setControlSeed', seed: this.controlSeed });
    if (this.still) await this.replay(this.history.applied);
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
