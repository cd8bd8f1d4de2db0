// The capture session's logic against a fake backend: the set-up order and its retries, the events,
// the flash cycle and its stored key, the frame gate, photos and the lens switch.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import { assignLenses, facingOf, frameSize, type CameraInfo } from '../src/capture/browser-capture';
import {
  Camera,
  captureFlashMode,
  type CaptureBackend,
  type CaptureDevice,
  type CaptureFlashMode,
  type CaptureInput,
  type CaptureSession,
} from '../src/capture/camera';
import type { RawPicture } from '../src/engine/shared/protocol';
import { setAnalyticsSink } from '../src/platform/analytics';
import { PageDefaults } from '../src/platform/defaults';
import { FrameQuality, SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';

const device = (id: string, flash = false): CaptureDevice => ({ id, label: id, hasFlash: () => flash });

class FakeSession implements CaptureSession {
  isRunning = false;
  inputs: CaptureInput[] = [];
  onFrame: ((grab: () => RawPicture | null) => void) | null = null;
  photoFlash: CaptureFlashMode | null | undefined;
  refuse = new Set<string>();
  constructor(readonly quality: FrameQuality) {}
  async addInput(input: CaptureInput) {
    if (this.refuse.has(input.device.id)) return false;
    this.inputs.push(input);
    return true;
  }
  removeInput(input: CaptureInput) { this.inputs = this.inputs.filter((i) => i !== input); }
  setVideoOutput(onFrame: (grab: () => RawPicture | null) => void) {
    this.onFrame = onFrame;
  }
  activeFormatDimensions() { return { width: 1920, height: 1080 }; }
  async setPreset() {}
  addPhotoOutput() { return true; }
  async startRunning() { this.isRunning = true; }
  stopRunning() { this.isRunning = false; }
  photo: Promise<Blob> = Promise.resolve(new Blob([new Uint8Array(10)]));
  capturePhoto(flash: CaptureFlashMode | null) {
    this.photoFlash = flash;
    return this.photo;
  }
}

class FakeBackend implements CaptureBackend {
  back: CaptureDevice | null = device('back', true);
  front: CaptureDevice | null = device('front');
  sessions: FakeSession[] = [];
  inputError: string | null = null;
  refuse: string[] = [];
  newSession(quality: FrameQuality) {
    const s = new FakeSession(quality);
    this.refuse.forEach((r) => s.refuse.add(r));
    this.sessions.push(s);
    return s;
  }
  async defaultDevice(position: 'back' | 'front') { return position === 'back' ? this.back : this.front; }
  makeInput(d: CaptureDevice): CaptureInput {
    if (this.inputError) throw new Error(this.inputError);
    return { device: d };
  }
}

let events: { name: string; parameters: Record<string, string> | null }[];
let defaults: PageDefaults;
let settings: SettingsController;
let lines: string[];

beforeEach(() => {
  vi.useFakeTimers();
  events = [];
  setAnalyticsSink({ logEvent: (name, parameters) => events.push({ name, parameters }) });
  defaults = new PageDefaults(new MemoryStorage());
  settings = new SettingsController(defaults);
  lines = [];
});

afterEach(() => {
  vi.useRealTimers();
  setAnalyticsSink(null);
});

function makeCamera(backend: FakeBackend) {
  const camera = new Camera(backend, defaults, settings, true, (line) => lines.push(line));
  const delegate = { cameraDidTakePhoto: vi.fn(), cameraDidOutputFrame: vi.fn(), cameraFoundNoDevices: vi.fn() };
  const ui = { cameraCapabilitiesChanged: vi.fn(), cameraFlashModeChanged: vi.fn() };
  camera.delegate = delegate;
  camera.uiDelegate = ui;
  return { camera, delegate, ui };
}

async function setUp(backend: FakeBackend) {
  const made = makeCamera(backend);
  await vi.runAllTimersAsync();
  await made.camera.setupDone;
  return made;
}

describe('set-up', () => {
  it('takes one attempt with both lenses and starts on the back lens', async () => {
    const backend = new FakeBackend();
    const { camera, delegate } = await setUp(backend);
    expect(backend.sessions).toHaveLength(1);
    expect(camera.inputAttemptCount).toBe(0);
    expect(camera.currentDevice?.id).toBe('back');
    expect(camera.useFrameProcessingCallbacks).toBe(true);
    expect(camera.resolution).toEqual({ width: 1920, height: 1080 });
    expect(delegate.cameraFoundNoDevices).not.toHaveBeenCalled();
    expect(camera.hasCamera).toBe(false); // until start
    camera.start();
    await vi.runAllTimersAsync();
    expect(camera.hasCamera).toBe(true);
  });

  it('tries 21 times 0.1 s apart without a back lens, then gives up once', async () => {
    const backend = new FakeBackend();
    backend.back = null;
    const { camera, delegate } = makeCamera(backend);
    await vi.advanceTimersByTimeAsync(1000);
    expect(backend.sessions.length).toBe(11);
    await vi.runAllTimersAsync();
    expect(backend.sessions).toHaveLength(21);
    expect(camera.inputAttemptCount).toBe(20);
    expect(delegate.cameraFoundNoDevices).toHaveBeenCalledTimes(1);
    expect(events).toEqual([{ name: 'event_NO DEVICES FOUND MAX RETRES HIT', parameters: null }]);
    expect(camera.hasCamera).toBe(false);
    camera.takePhoto();
    camera.cycleFlash();
    camera.flipCamera();
    expect(camera.flashMode).toBe(0);
  });

  it('with the front lens missing also gives up, and a start still says there is a camera', async () => {
    const backend = new FakeBackend();
    backend.front = null;
    const { camera, delegate } = makeCamera(backend);
    camera.start();
    await vi.runAllTimersAsync();
    expect(backend.sessions).toHaveLength(21);
    expect(delegate.cameraFoundNoDevices).toHaveBeenCalledTimes(1);
    expect(camera.hasCamera).toBe(true);
  });

  it('logs the inputs it cannot make or add', async () => {
    const backend = new FakeBackend();
    backend.inputError = 'The camera is busy';
    await setUp(backend);
    expect(events[0]).toEqual({ name: 'event_CANNOT CREATE INPUTS', parameters: { ERROR: 'The camera is busy' } });
    expect(lines[0]).toBe('The camera is busy');
    expect(events.filter((e) => e.name === 'event_CANNOT CREATE INPUTS')).toHaveLength(21);

    events = [];
    const refused = new FakeBackend();
    refused.refuse = ['back', 'front'];
    await setUp(refused);
    expect(events.filter((e) => e.name === 'event_CANNOT ADD INPUTS')).toHaveLength(21);
    expect(events.at(-1)?.name).toBe('event_NO DEVICES FOUND MAX RETRES HIT');
  });

  it('falls back to the front lens when the session refuses the back one, and halves for low quality', async () => {
    defaults.setInteger(1, '__FrameSettingKey__');
    const backend = new FakeBackend();
    backend.refuse = ['back'];
    const { camera } = await setUp(backend);
    expect(camera.currentDevice?.id).toBe('front');
    expect(camera.resolution).toEqual({ width: 960, height: 540 });
    expect(backend.sessions[0]?.quality).toBe(FrameQuality.low);
  });
});

describe('flash', () => {
  it('cycles off, auto, on under its stored key and publishes each mode', async () => {
    const { camera, ui } = await setUp(new FakeBackend());
    camera.start();
    await vi.runAllTimersAsync();
    const seen: number[] = [];
    for (let i = 0; i < 3; ++i) {
      camera.cycleFlash();
      seen.push(defaults.integerForKey('kFlashModeKey'));
    }
    expect(seen).toEqual([1, -1, 0]);
    expect(ui.cameraFlashModeChanged.mock.calls.map((c) => c[0]).slice(-3)).toEqual([1, -1, 0]);
  });

  it('takes a stored value of 5 as it stands, captures with it as off, and cycles it to -1', async () => {
    defaults.setInteger(5, 'kFlashModeKey');
    const backend = new FakeBackend();
    const { camera } = await setUp(backend);
    camera.start();
    await vi.runAllTimersAsync();
    expect(camera.flashMode).toBe(5);
    camera.takePhoto();
    expect(backend.sessions[0]?.photoFlash).toBe(0);
    camera.cycleFlash();
    expect(camera.flashMode).toBe(-1);
    expect([captureFlashMode(-1), captureFlashMode(0), captureFlashMode(1)]).toEqual([0, 2, 1]);
  });
});

describe('frames and photos', () => {
  const frame: RawPicture = { width: 2, height: 2, data: new ArrayBuffer(16) };

  it('ignores a frame whole while the gate is shut', async () => {
    const backend = new FakeBackend();
    const { camera, delegate } = await setUp(backend);
    const session = backend.sessions[0]!;
    const grab = vi.fn(() => frame);
    camera.useFrameProcessingCallbacks = false;
    session.onFrame?.(grab);
    expect(grab).not.toHaveBeenCalled();
    expect(camera.time).toBe(0);
    camera.useFrameProcessingCallbacks = true;
    session.onFrame?.(grab);
    expect(delegate.cameraDidOutputFrame).toHaveBeenCalledWith(frame);
    session.onFrame?.(() => null);
    expect(lines).toEqual(['error creating image']);
    expect(camera.time).toBe(2);
  });

  it('hands a photo to the delegate, and only prints a failed one', async () => {
    const backend = new FakeBackend();
    const { camera, delegate } = await setUp(backend);
    camera.start();
    await vi.runAllTimersAsync();
    camera.takePhoto();
    await vi.runAllTimersAsync();
    expect(delegate.cameraDidTakePhoto).toHaveBeenCalledTimes(1);
    expect(backend.sessions[0]?.photoFlash).toBe(2); // the back lens has a flash; the mode is auto

    backend.sessions[0]!.photo = Promise.reject(new Error('no light'));
    camera.takePhoto();
    await vi.runAllTimersAsync();
    expect(lines).toContain('Photo error : no light');
    expect(delegate.cameraDidTakePhoto).toHaveBeenCalledTimes(1);
  });

  it('switches lenses with the gate shut in between and publishes the new capabilities', async () => {
    const backend = new FakeBackend();
    const { camera, ui } = await setUp(backend);
    camera.start();
    await vi.runAllTimersAsync();
    const switching = camera.switchCamera();
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    await switching;
    expect(camera.currentDevice?.id).toBe('front');
    expect(camera.useFrameProcessingCallbacks).toBe(true);
    expect(ui.cameraCapabilitiesChanged).toHaveBeenLastCalledWith(true, false);
    await camera.switchCamera();
    expect(camera.currentDevice?.id).toBe('back');
  });
});

describe('lenses in the browser', () => {
  const cam = (deviceId: string, facing: CameraInfo['facing']): CameraInfo => ({ deviceId, label: deviceId, facing });

  it('takes facing cameras first, then unknown ones in order, and one camera as both', () => {
    expect(assignLenses([cam('u', 'front'), cam('e', 'back')])).toMatchObject({ back: { deviceId: 'e' }, front: { deviceId: 'u' } });
    expect(assignLenses([cam('a', 'unknown'), cam('b', 'unknown')])).toMatchObject({ back: { deviceId: 'a' }, front: { deviceId: 'b' } });
    expect(assignLenses([cam('u', 'front'), cam('x', 'unknown')])).toMatchObject({ back: { deviceId: 'x' }, front: { deviceId: 'u' } });
    expect(assignLenses([cam('w', 'unknown')])).toMatchObject({ back: { deviceId: 'w' }, front: { deviceId: 'w' } });
    expect(assignLenses([])).toEqual({ back: null, front: null });
  });

  it('reads the facing from capabilities, else the label', () => {
    expect(facingOf(['environment'], 'x')).toBe('back');
    expect(facingOf(['user'], 'camera2 0, facing back')).toBe('front');
    expect(facingOf(undefined, 'Back Camera')).toBe('back');
    expect(facingOf([], 'FaceTime HD Camera')).toBe('front');
    expect(facingOf(undefined, 'Integrated Webcam')).toBe('unknown');
  });

  it('reads frames at 480x360 or 192x144, upright as the video is, never larger', () => {
    expect(frameSize(1280, 720, FrameQuality.normal)).toEqual({ width: 480, height: 270 });
    expect(frameSize(640, 480, FrameQuality.normal)).toEqual({ width: 480, height: 360 });
    expect(frameSize(480, 640, FrameQuality.normal)).toEqual({ width: 360, height: 480 });
    expect(frameSize(640, 480, FrameQuality.low)).toEqual({ width: 192, height: 144 });
    expect(frameSize(320, 240, FrameQuality.normal)).toEqual({ width: 320, height: 240 });
  });
});
