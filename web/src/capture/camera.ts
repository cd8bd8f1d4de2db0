// The capture session: finds the back and the front lens, builds the session in a fixed order with up
// to 21 attempts 0.1 s apart, starts it, switches lenses, holds the flash mode, and takes stills.
// Frames and photos go to a CameraDelegate, button state to a CameraUIDelegate. The hardware is behind
// CaptureBackend, so that all of this runs without a browser in the tests.
import type { RawPicture } from '../engine/shared/protocol';
import { AnalyticsHelper } from '../platform/analytics';
import type { PageDefaults } from '../platform/defaults';
import { FrameQuality, type SettingsController } from '../platform/settings';

export type LensPosition = 'back' | 'front';
// The platform's capture flash modes: off 0, on 1, auto 2.
export type CaptureFlashMode = 0 | 1 | 2;

export interface CaptureDevice {
  readonly id: string;
  readonly label: string;
  // Whether it offers a flash for stills or a torch.
  hasFlash(): boolean;
}

export interface CaptureInput {
  readonly device: CaptureDevice;
}

export interface CaptureSession {
  readonly isRunning: boolean;
  // Adds the input when the session can take it; false when it can't (the camera would not open).
  addInput(input: CaptureInput): Promise<boolean>;
  removeInput(input: CaptureInput): void;
  // The live output: `onFrame` is called for each frame with a way to get its picture, so that a
  // frame nobody wants is never read.
  setVideoOutput(onFrame: (grab: () => RawPicture | null) => void): void;
  // The size the lens in use delivers, in pixels.
  activeFormatDimensions(): { width: number; height: number } | null;
  setPreset(quality: FrameQuality): Promise<void>;
  addPhotoOutput(): boolean;
  startRunning(): Promise<void>;
  stopRunning(): void;
  // A still at full resolution, encoded; `flash` is null when the lens has no flash.
  capturePhoto(flash: CaptureFlashMode | null): Promise<Blob>;
}

export interface CaptureBackend {
  // A new session that will deliver frames of the given quality.
  newSession(quality: FrameQuality): CaptureSession;
  defaultDevice(position: LensPosition): Promise<CaptureDevice | null>;
  // Throws an Error whose message describes why the input can't be made.
  makeInput(device: CaptureDevice): CaptureInput;
}

export interface CameraDelegate {
  cameraDidTakePhoto(photo: Blob): void;
  cameraDidOutputFrame(frame: RawPicture): void;
  cameraFoundNoDevices(): void;
}

export interface CameraUIDelegate {
  cameraCapabilitiesChanged(canFlip: boolean, hasFlash: boolean): void;
  cameraFlashModeChanged(flashMode: number): void;
}

export const kFlashModeKey = 'kFlashModeKey';
export const kMaxSetupRetries = 19;
export const kRetryInterval = 100; // milliseconds

// The capture flash mode for a stored flash mode: -1 off, 0 auto, 1 on, anything else off.
export function captureFlashMode(flashMode: number): CaptureFlashMode {
  return flashMode === 0 ? 2 : flashMode === 1 ? 1 : 0;
}

export class Camera {
  useFrameProcessingCallbacks: boolean;
  flashMode = 0;
  readonly flashModeKey = kFlashModeKey;
  captureSession: CaptureSession | null = null;
  hasCamera = false;
  inputAttemptCount = 0;
  currentDevice: CaptureDevice | null = null;
  frontCam: CaptureDevice | null = null;
  backCam: CaptureDevice | null = null;
  frontInput: CaptureInput | null = null;
  backInput: CaptureInput | null = null;
  resolution: { width: number; height: number } | null = null;
  time = 0; // frames processed; nothing reads it
  delegate: CameraDelegate | null = null;
  uiDelegate: CameraUIDelegate | null = null;
  // Settles when the latest set-up attempt (and its retries) has come to an end.
  setupDone: Promise<void>;

  private finishSetup: () => void = () => undefined;

  constructor(
    private readonly backend: CaptureBackend,
    private readonly defaults: PageDefaults,
    private readonly settings: SettingsController,
    useFrameProcessingCallbacks: boolean,
    private readonly log: (line: string) => void = (line) => console.log(line),
  ) {
    this.useFrameProcessingCallbacks = useFrameProcessingCallbacks;
    this.setupDone = new Promise((resolve) => (this.finishSetup = resolve));
    void this.attemptSetup();
  }

  async attemptSetup(): Promise<void> {
    const device = await this.configureSession();
    if (device) {
      // The flip and flash buttons learn what this device offers as soon as it is known.
      this.publishCapabilities();
      this.setFlash(this.defaults.integerForKey(this.flashModeKey));
      this.useFrameProcessingCallbacks = true;
      this.finishSetup();
      return;
    }
    if (this.inputAttemptCount > kMaxSetupRetries) {
      AnalyticsHelper.logEvent('NO DEVICES FOUND MAX RETRES HIT');
      this.delegate?.cameraFoundNoDevices();
      this.finishSetup();
      return;
    }
    setTimeout(() => {
      this.inputAttemptCount += 1;
      void this.attemptSetup();
    }, kRetryInterval);
  }

  async configureSession(): Promise<CaptureDevice | null> {
    this.captureSession?.stopRunning();
    const session = this.backend.newSession(this.settings.frameQuality());
    this.captureSession = session;
    const back = await this.backend.defaultDevice('back');
    if (!back) {
      this.hasCamera = false;
      return null;
    }
    const front = await this.backend.defaultDevice('front');
    if (!front) return null;
    this.frontCam = front;
    this.backCam = back;
    try {
      this.frontInput = this.backend.makeInput(front);
      this.backInput = this.backend.makeInput(back);
    } catch (error) {
      const description = error instanceof Error ? error.message : String(error);
      this.log(description);
      AnalyticsHelper.logEvent('CANNOT CREATE INPUTS', { ERROR: description });
    }
    if (!this.backInput || !this.frontInput) return null;
    if (await session.addInput(this.backInput)) {
      this.currentDevice = back;
    } else if (await session.addInput(this.frontInput)) {
      this.currentDevice = front;
    } else {
      AnalyticsHelper.logEvent('CANNOT ADD INPUTS');
      return null;
    }
    session.setVideoOutput((grab) => this.captureOutput(grab));
    if (!this.currentDevice) return null;
    const quality = this.settings.frameQuality();
    const dimensions = session.activeFormatDimensions();
    if (dimensions) {
      const q = quality === FrameQuality.low ? 0.5 : 1.0;
      this.resolution = { width: dimensions.width * q, height: dimensions.height * q };
    }
    await session.setPreset(quality);
    session.addPhotoOutput();
    await session.startRunning();
    this.flashMode = this.defaults.integerForKey(this.flashModeKey);
    return this.currentDevice;
  }

  // Starts the session; the completion runs once it is running.
  start(completion?: () => void): void {
    const session = this.captureSession;
    if (!session) throw new Error('the camera has no session');
    void (async () => {
      await session.setPreset(this.settings.frameQuality());
      await session.startRunning();
      this.hasCamera = true;
      // The browser can't know the buttons' state from a layout file: publish it once started.
      if (this.currentDevice) this.publishCapabilities();
      completion?.();
    })();
    this.setFlash(this.flashMode);
  }

  stop(): void {
    const session = this.captureSession;
    if (!session) throw new Error('the camera has no session');
    if (session.isRunning) session.stopRunning();
  }

  async applyFrameQuality(quality: FrameQuality): Promise<void> {
    const session = this.captureSession;
    if (!session) throw new Error('the camera has no session');
    await session.setPreset(quality);
  }

  // One live frame: ignored whole while the gate is shut.
  captureOutput(grab: () => RawPicture | null): void {
    if (!this.useFrameProcessingCallbacks) return;
    this.time += 1;
    const image = grab();
    if (!image) {
      this.log('error creating image');
      return;
    }
    this.delegate?.cameraDidOutputFrame(image);
  }

  takePhoto(): void {
    if (!this.hasCamera) return;
    const session = this.captureSession;
    if (!session) return;
    const flash = this.currentDevice?.hasFlash() ? captureFlashMode(this.flashMode) : null;
    session.capturePhoto(flash).then(
      (photo) => this.didFinishProcessingPhoto(photo, null),
      (error: unknown) => this.didFinishProcessingPhoto(null, error instanceof Error ? error : new Error(String(error))),
    );
  }

  didFinishProcessingPhoto(photo: Blob | null, error: Error | null): void {
    if (error) {
      this.log(`Photo error : ${error.message}`);
      return;
    }
    if (!photo || photo.size === 0) return;
    this.delegate?.cameraDidTakePhoto(photo);
  }

  async switchCamera(): Promise<void> {
    const session = this.captureSession;
    if (!this.frontInput || !this.backInput || !session) return;
    const toBack = this.currentDevice !== null && this.currentDevice === this.frontCam;
    const newDevice = toBack ? this.backCam : this.frontCam;
    const newInput = toBack ? this.backInput : this.frontInput;
    const oldInput = toBack ? this.frontInput : this.backInput;
    this.useFrameProcessingCallbacks = false;
    session.removeInput(oldInput);
    if (!(await session.addInput(newInput))) await session.addInput(oldInput);
    this.currentDevice = newDevice;
    this.publishCapabilities();
    this.setFlash(this.flashMode);
    this.useFrameProcessingCallbacks = true;
  }

  // A device with one camera uses it as both lenses, and has nothing to flip to.
  publishCapabilities(): void {
    const canFlip = this.frontCam !== null && this.backCam !== null && this.frontCam !== this.backCam;
    if (this.currentDevice) this.uiDelegate?.cameraCapabilitiesChanged(canFlip, this.currentDevice.hasFlash());
  }

  flipCamera(): void {
    if (this.hasCamera) void this.switchCamera();
  }

  setFlash(mode: number): void {
    this.flashMode = mode;
    if (this.currentDevice) {
      this.uiDelegate?.cameraFlashModeChanged(this.flashMode);
      this.defaults.setInteger(this.flashMode, this.flashModeKey);
    }
  }

  cycleFlash(): void {
    if (!this.hasCamera) return;
    this.flashMode += 1;
    if (this.flashMode > 1) this.flashMode = -1;
    this.setFlash(this.flashMode);
  }
}
