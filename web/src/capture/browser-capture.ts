// The capture backend of the browser: cameras from getUserMedia, frames read from a video element at
// the frame quality's size, stills through ImageCapture where the browser has it.
//
// Lenses: the environment-facing camera is the back lens and the user-facing one the front lens;
// cameras whose facing the browser does not tell count as back, then front, in the browser's order; a
// device with a single camera uses it as both.
import type { RawPicture } from '../engine/shared/protocol';
import { FrameQuality } from '../platform/settings';
import type {
  CaptureBackend,
  CaptureDevice,
  CaptureFlashMode,
  CaptureInput,
  CaptureSession,
  LensPosition,
} from './camera';

// The frame sizes asked for, as width x height of a landscape frame.
export const kFrameSizes: Record<FrameQuality, { long: number; short: number }> = {
  [FrameQuality.normal]: { long: 480, short: 360 },
  [FrameQuality.low]: { long: 192, short: 144 },
};

// The size a frame of a `width` x `height` video is read at: the video's own aspect, fitted in the
// quality's box turned the way the video is (upright for the way the device is held), never larger.
export function frameSize(width: number, height: number, quality: FrameQuality): { width: number; height: number } {
  const box = kFrameSizes[quality];
  const portrait = height > width;
  const boxW = portrait ? box.short : box.long;
  const boxH = portrait ? box.long : box.short;
  const scale = Math.min(1, boxW / width, boxH / height);
  return { width: Math.max(1, Math.round(width * scale)), height: Math.max(1, Math.round(height * scale)) };
}

export type Facing = 'back' | 'front' | 'unknown';

export interface CameraInfo {
  deviceId: string;
  label: string;
  facing: Facing;
}

// Which camera serves as which lens.
export function assignLenses(cameras: readonly CameraInfo[]): { back: CameraInfo | null; front: CameraInfo | null } {
  let back = cameras.find((c) => c.facing === 'back') ?? null;
  let front = cameras.find((c) => c.facing === 'front') ?? null;
  for (const c of cameras.filter((c) => c.facing === 'unknown')) {
    if (!back) back = c;
    else if (!front && c !== back) front = c;
  }
  if (!back) back = front;
  if (!front) front = back;
  return { back, front };
}

// The facing of a camera from what the browser tells: its capabilities, else its label.
export function facingOf(facingModes: readonly string[] | undefined, label: string): Facing {
  if (facingModes?.includes('environment')) return 'back';
  if (facingModes?.includes('user')) return 'front';
  if (/\b(back|rear|environment)\b/i.test(label)) return 'back';
  if (/\b(front|user|facetime|selfie)\b/i.test(label)) return 'front';
  return 'unknown';
}

class BrowserDevice implements CaptureDevice {
  flash = false; // known once the camera has been opened
  constructor(readonly info: CameraInfo) {}
  get id(): string {
    return this.info.deviceId;
  }
  get label(): string {
    return this.info.label;
  }
  hasFlash(): boolean {
    return this.flash;
  }
}

interface ImageCaptureLike {
  takePhoto(settings?: { fillLightMode?: string; imageWidth?: number; imageHeight?: number }): Promise<Blob>;
  getPhotoCapabilities(): Promise<{ fillLightMode?: string[]; imageWidth?: { max?: number }; imageHeight?: { max?: number } }>;
}
type ImageCaptureConstructor = new (track: MediaStreamTrack) => ImageCaptureLike;

function imageCaptureClass(): ImageCaptureConstructor | null {
  return (globalThis as unknown as { ImageCapture?: ImageCaptureConstructor }).ImageCapture ?? null;
}

class BrowserSession implements CaptureSession {
  private stream: MediaStream | null = null;
  private device: BrowserDevice | null = null;
  private running = false;
  private onFrame: ((grab: () => RawPicture | null) => void) | null = null;
  private frameCanvas: HTMLCanvasElement | null = null;
  private lastTime = -1;

  constructor(
    private readonly video: HTMLVideoElement,
    private quality: FrameQuality,
  ) {}

  get isRunning(): boolean {
    return this.running;
  }

  private get track(): MediaStreamTrack | null {
    return this.stream?.getVideoTracks()[0] ?? null;
  }

  private constraints(deviceId: string): MediaStreamConstraints {
    const size = kFrameSizes[this.quality];
    return {
      audio: false,
      video: { deviceId: { exact: deviceId }, width: { ideal: size.long }, height: { ideal: size.short } },
    };
  }

  async addInput(input: CaptureInput): Promise<boolean> {
    const device = input.device as BrowserDevice;
    if (this.stream && this.device === device) return true;
    try {
      const stream = await navigator.mediaDevices.getUserMedia(this.constraints(device.id));
      this.closeStream();
      this.stream = stream;
      this.device = device;
      device.flash = await flashOffered(stream.getVideoTracks()[0] ?? null);
      this.video.srcObject = stream;
      if (this.running) await this.play();
      return true;
    } catch (error) {
      console.log(`Camera ${device.label || device.id} could not be opened: ${String(error)}`);
      return false;
    }
  }

  // The stream stays open until another input replaces it, so that swapping a lens for itself (a
  // device with one camera) changes nothing.
  removeInput(): void {}

  setVideoOutput(onFrame: (grab: () => RawPicture | null) => void): void {
    this.onFrame = onFrame;
  }

  activeFormatDimensions(): { width: number; height: number } | null {
    const s = this.track?.getSettings();
    return s?.width && s?.height ? { width: s.width, height: s.height } : null;
  }

  async setPreset(quality: FrameQuality): Promise<void> {
    if (quality === this.quality) return;
    this.quality = quality;
    const size = kFrameSizes[quality];
    await this.track?.applyConstraints({ width: { ideal: size.long }, height: { ideal: size.short } }).catch(() => undefined);
  }

  addPhotoOutput(): boolean {
    return true;
  }

  async startRunning(): Promise<void> {
    if (this.running || !this.stream) return;
    this.running = true;
    await this.play();
    this.scheduleFrame();
  }

  stopRunning(): void {
    this.running = false;
    this.closeStream();
  }

  private closeStream(): void {
    this.stream?.getTracks().forEach((t) => t.stop());
    this.stream = null;
    if (this.video.srcObject) this.video.srcObject = null;
  }

  private async play(): Promise<void> {
    await this.video.play().catch((error: unknown) => console.log(`Camera video could not play: ${String(error)}`));
  }

  private scheduleFrame(): void {
    if (!this.running) return;
    const video = this.video as HTMLVideoElement & {
      requestVideoFrameCallback?: (cb: () => void) => number;
    };
    if (video.requestVideoFrameCallback) {
      video.requestVideoFrameCallback(() => this.deliverFrame());
    } else {
      requestAnimationFrame(() => {
        if (this.video.currentTime !== this.lastTime) {
          this.lastTime = this.video.currentTime;
          this.deliverFrame();
        } else {
          this.scheduleFrame();
        }
      });
    }
  }

  private deliverFrame(): void {
    if (!this.running) return;
    try {
      this.onFrame?.(() => this.grab());
    } finally {
      this.scheduleFrame();
    }
  }

  private grab(): RawPicture | null {
    const vw = this.video.videoWidth;
    const vh = this.video.videoHeight;
    if (!vw || !vh) return null;
    const { width, height } = frameSize(vw, vh, this.quality);
    const canvas = (this.frameCanvas ??= document.createElement('canvas'));
    if (canvas.width !== width || canvas.height !== height) {
      canvas.width = width;
      canvas.height = height;
    }
    const context = canvas.getContext('2d', { willReadFrequently: true });
    if (!context) return null;
    context.drawImage(this.video, 0, 0, width, height);
    const data = context.getImageData(0, 0, width, height).data;
    return { width, height, data: data.buffer as ArrayBuffer };
  }

  async capturePhoto(flash: CaptureFlashMode | null): Promise<Blob> {
    const track = this.track;
    if (!track) throw new Error('no camera is open');
    const ImageCapture = imageCaptureClass();
    if (ImageCapture) {
      try {
        const capture = new ImageCapture(track);
        const capabilities = await capture.getPhotoCapabilities();
        const settings: { fillLightMode?: string; imageWidth?: number; imageHeight?: number } = {};
        if (capabilities.imageWidth?.max) settings.imageWidth = capabilities.imageWidth.max;
        if (capabilities.imageHeight?.max) settings.imageHeight = capabilities.imageHeight.max;
        const modes = capabilities.fillLightMode ?? [];
        if (flash !== null && modes.includes('flash')) settings.fillLightMode = flash === 1 ? 'flash' : flash === 2 ? 'auto' : 'off';
        const useTorch = flash === 1 && !modes.includes('flash');
        if (useTorch) await setTorch(track, true);
        try {
          return await capture.takePhoto(settings);
        } finally {
          if (useTorch) await setTorch(track, false);
        }
      } catch (error) {
        console.log(`ImageCapture failed (${String(error)}); taking the still from the video`);
      }
    }
    return this.stillFromVideo(track, flash === 1);
  }

  // A still where ImageCapture is missing: the stream asked for its largest size for a moment, one
  // frame of it encoded, and the live size asked for again.
  private async stillFromVideo(track: MediaStreamTrack, torch: boolean): Promise<Blob> {
    const live = kFrameSizes[this.quality];
    if (torch) await setTorch(track, true);
    try {
      await track.applyConstraints({ width: { ideal: 4096 }, height: { ideal: 3072 } }).catch(() => undefined);
      await waitForSize(this.video, 600);
      const canvas = document.createElement('canvas');
      canvas.width = this.video.videoWidth;
      canvas.height = this.video.videoHeight;
      const context = canvas.getContext('2d');
      if (!context || !canvas.width || !canvas.height) throw new Error('the camera gave no picture');
      context.drawImage(this.video, 0, 0);
      const blob = await new Promise<Blob | null>((resolve) => canvas.toBlob(resolve, 'image/jpeg', 0.95));
      if (!blob) throw new Error('the picture could not be encoded');
      return blob;
    } finally {
      await track.applyConstraints({ width: { ideal: live.long }, height: { ideal: live.short } }).catch(() => undefined);
      if (torch) await setTorch(track, false);
    }
  }
}

async function flashOffered(track: MediaStreamTrack | null): Promise<boolean> {
  if (!track) return false;
  const capabilities = (track.getCapabilities?.() ?? {}) as MediaTrackCapabilities & { torch?: boolean };
  if (capabilities.torch) return true;
  const ImageCapture = imageCaptureClass();
  if (!ImageCapture) return false;
  try {
    const photo = await new ImageCapture(track).getPhotoCapabilities();
    return (photo.fillLightMode ?? []).includes('flash');
  } catch {
    return false;
  }
}

async function setTorch(track: MediaStreamTrack, on: boolean): Promise<void> {
  await track.applyConstraints({ advanced: [{ torch: on } as MediaTrackConstraintSet] }).catch(() => undefined);
}

function waitForSize(video: HTMLVideoElement, timeout: number): Promise<void> {
  return new Promise((resolve) => {
    const done = () => {
      video.removeEventListener('resize', done);
      resolve();
    };
    video.addEventListener('resize', done);
    setTimeout(done, timeout);
  });
}

export class BrowserCaptureBackend implements CaptureBackend {
  private devices = new Map<string, BrowserDevice>();
  private cameras: CameraInfo[] | null = null;

  constructor(private readonly video: HTMLVideoElement) {}

  newSession(quality: FrameQuality): CaptureSession {
    this.cameras = null; // each attempt looks again
    return new BrowserSession(this.video, quality);
  }

  async defaultDevice(position: LensPosition): Promise<CaptureDevice | null> {
    this.cameras ??= await listCameras();
    const info = assignLenses(this.cameras)[position];
    if (!info) return null;
    let device = this.devices.get(info.deviceId);
    if (!device) {
      device = new BrowserDevice(info);
      this.devices.set(info.deviceId, device);
    }
    return device;
  }

  makeInput(device: CaptureDevice): CaptureInput {
    if (!device.id) throw new Error(`The camera ${device.label || ''} has no identifier`.replace('  ', ' '));
    return { device };
  }
}

// The cameras of the device, asking for the permission first when the browser hides them until then.
async function listCameras(): Promise<CameraInfo[]> {
  if (!navigator.mediaDevices?.getUserMedia) return [];
  const videoInputs = async () =>
    (await navigator.mediaDevices.enumerateDevices()).filter((d) => d.kind === 'videoinput');
  let inputs = await videoInputs();
  if (inputs.length === 0 || inputs.some((d) => d.deviceId === '')) {
    try {
      const stream = await navigator.mediaDevices.getUserMedia({ video: true, audio: false });
      stream.getTracks().forEach((t) => t.stop());
    } catch (error) {
      console.log(`No camera: ${String(error)}`);
      return [];
    }
    inputs = await videoInputs();
  }
  return inputs
    .filter((d) => d.deviceId !== '')
    .map((d) => {
      const capabilities = (d as InputDeviceInfo).getCapabilities?.() as MediaTrackCapabilities | undefined;
      return { deviceId: d.deviceId, label: d.label, facing: facingOf(capabilities?.facingMode, d.label) };
    });
}
