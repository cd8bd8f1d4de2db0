// The capture session's logic against a fake backend: the set-up order and its retries, the events,
// the flash cycle and its stored key, the frame gate, photos and the lens switch; then the browser's
// choice of lenses and frame sizes.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import { assignLenses, facingOf, frameSize, type CameraInfo } from '../src/capture/browser-capture';
import {
  Camera,
  captureFlashMode,
  type CaptureBackend,
  type CaptureDevice,
  type CaptureFlashMode,
  type CaptureSession,
  type LensPosition,
} from '../src/capture/camera';
import type { RawPicture } from '../src/engine/shared/protocol';
import { setAnalyticsSink } from '../src/platform/analytics';
import { PageDefaults } from '../src/platform/defaults';
import { FrameQuality, SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';

const device = (id: string, flash = false): CaptureDevice => ({ id, label: id, hasFlash: () => flash });

class FakeSession implements CaptureSession {
  isRunning = false;
  onFrame: ((grab: () => RawPicture | null) => void) | null = null;
  photoFlash: CaptureFlashMode | null | undefined;
  photo = Promise.resolve(new Blob([new Uint8Array(10)]));
  constructor(readonly quality: FrameQuality, readonly refuse: string[]) {}
  async addInput(input: { device: CaptureDevice }) { return !this.refuse.includes(input.device.id); }
  removeInput() {}
  setVideoOutput(onFrame: (grab: () => RawPicture | null) => void) { this.onFrame = onFrame; }
  activeFormatDimensions() { return { width: 1920, height: 1080 }; }
  async setPreset() {}
  addPhotoOutput() { return true; }
  async startRunning() {}
  stopRunning() {}
  capturePhoto(flash: CaptureFlashMode | null) {
    this.photoFlash = flash;
    return this.photo;
  }
}

class FakeBackend implements CaptureBackend {
  lenses: Record<LensPosition, CaptureDevice | null> = { back: device('back', true), front: device('front') };
  sessions: FakeSession[] = [];
  inputError: string | null = null;
  refuse: string[] = [];
  newSession(quality: FrameQuality) { this.sessions.push(new FakeSession(quality, this.refuse)); return this.sessions.at(-1)!; }
  async defaultDevice(position: LensPosition) { return this.lenses[position]; }
  makeInput(d: CaptureDevice) {
    if (this.inputError) throw new Error(this.inputError);
    return { device: d };
  }
}

let events: { name: string; parameters: Record<string, string> | null }[];
let defaults: PageDefaults;
let lines: string[];

beforeEach(() => {
  vi.useFakeTimers();
  events = [];
  setAnalyticsSink({ logEvent: (name, parameters) => events.push({ name, parameters }) });
  defaults = new PageDefaults(new MemoryStorage());
  lines = [];
});

afterEach(() => {
  vi.useRealTimers();
  setAnalyticsSink(null);
});

// A camera on a fake backend, its gate shut until its set-up opens it; its first attempt is under way.
function make(backend = new FakeBackend()) {
  const camera = new Camera(backend, defaults, new SettingsController(defaults), false, (line) => lines.push(line));
  const delegate = { cameraDidTakePhoto: vi.fn(), cameraDidOutputFrame: vi.fn(), cameraFoundNoDevices: vi.fn() };
  const ui = { cameraCapabilitiesChanged: vi.fn(), cameraFlashModeChanged: vi.fn() };
  Object.assign(camera, { delegate, uiDelegate: ui });
  return { camera, backend, delegate, ui };
}

// Made and started at once, as the main screen does, and left to settle.
async function started(change: Partial<FakeBackend> = {}) {
  const made = make(Object.assign(new FakeBackend(), change));
  made.camera.start();
  await vi.runAllTimersAsync();
  return { ...made, session: made.backend.sessions[0]! };
}

describe('set-up', () => {
  it('takes one attempt with both lenses, starts on the back lens and opens the gate; a start makes it a camera', async () => {
    const { camera, backend, delegate } = make();
    await vi.runAllTimersAsync();
    expect(backend.sessions).toHaveLength(1);
    expect(camera.currentDevice?.id).toBe('back');
    expect(camera.useFrameProcessingCallbacks).toBe(true);
    expect(camera.resolution).toEqual({ width: 1920, height: 1080 });
    expect(delegate.cameraFoundNoDevices).not.toHaveBeenCalled();
    expect(camera.hasCamera).toBe(false);
    camera.start();
    await vi.runAllTimersAsync();
    expect(camera.hasCamera).toBe(true);
  });

  it('tries 21 times 0.1 s apart without a back lens, then gives up once and does nothing', async () => {
    const { camera, backend, delegate } = make(Object.assign(new FakeBackend(), { lenses: { back: null, front: device('front') } }));
    await vi.advanceTimersByTimeAsync(1000);
    expect(backend.sessions).toHaveLength(11);
    await vi.runAllTimersAsync();
    expect(backend.sessions).toHaveLength(21);
    expect(delegate.cameraFoundNoDevices).toHaveBeenCalledTimes(1);
    expect(events).toEqual([{ name: 'event_NO DEVICES FOUND MAX RETRES HIT', parameters: null }]);
    expect(camera.hasCamera).toBe(false);
    camera.takePhoto();
    camera.cycleFlash();
    camera.flipCamera();
    expect([camera.flashMode, camera.useFrameProcessingCallbacks]).toEqual([0, false]);
  });

  it('gives up as well without a front lens, and a start still says there is a camera', async () => {
    const { camera, backend, delegate } = await started({ lenses: { back: device('back'), front: null } });
    expect(backend.sessions).toHaveLength(21);
    expect(delegate.cameraFoundNoDevices).toHaveBeenCalledTimes(1);
    expect(camera.hasCamera).toBe(true);
  });

  it('logs the inputs it cannot make or add, at each attempt', async () => {
    await started({ inputError: 'The camera is busy' });
    expect(events[0]).toEqual({ name: 'event_CANNOT CREATE INPUTS', parameters: { ERROR: 'The camera is busy' } });
    expect(lines[0]).toBe('The camera is busy');
    expect(events.filter((e) => e.name === 'event_CANNOT CREATE INPUTS')).toHaveLength(21);

    events = [];
    await started({ refuse: ['back', 'front'] });
    expect(events.filter((e) => e.name === 'event_CANNOT ADD INPUTS')).toHaveLength(21);
    expect(events.at(-1)?.name).toBe('event_NO DEVICES FOUND MAX RETRES HIT');
  });

  it('falls back to the front lens when the session refuses the back one, and halves for low quality', async () => {
    defaults.setInteger(1, '__FrameSettingKey__');
    const { camera, session } = await started({ refuse: ['back'] });
    expect(camera.currentDevice?.id).toBe('front');
    expect(camera.resolution).toEqual({ width: 960, height: 540 });
    expect(session.quality).toBe(FrameQuality.low);
  });
});

describe('flash, frames, photos and lenses', () => {
  it('cycles the flash off, auto, on under its stored key and publishes each mode', async () => {
    const { camera, ui } = await started();
    const stored = [1, 2, 3].map(() => (camera.cycleFlash(), defaults.integerForKey('kFlashModeKey')));
    expect(stored).toEqual([1, -1, 0]);
    expect(ui.cameraFlashModeChanged.mock.calls.map((c) => c[0]).slice(-3)).toEqual([1, -1, 0]);
  });

  it('takes a stored flash mode of 5 as it stands, captures with it as off, and cycles it to -1', async () => {
    defaults.setInteger(5, 'kFlashModeKey');
    const { camera, session } = await started();
    expect(camera.flashMode).toBe(5);
    camera.takePhoto();
    expect(session.photoFlash).toBe(0);
    camera.cycleFlash();
    expect(camera.flashMode).toBe(-1);
    expect([-1, 0, 1].map(captureFlashMode)).toEqual([0, 2, 1]);
  });

  it('ignores a frame whole while the gate is shut', async () => {
    const { camera, delegate, session } = await started();
    const frame: RawPicture = { width: 2, height: 2, data: new ArrayBuffer(16) };
    const grab = vi.fn(() => frame);
    camera.useFrameProcessingCallbacks = false;
    session.onFrame?.(grab);
    expect(grab).not.toHaveBeenCalled();
    camera.useFrameProcessingCallbacks = true;
    session.onFrame?.(grab);
    expect(delegate.cameraDidOutputFrame).toHaveBeenCalledWith(frame);
    session.onFrame?.(() => null);
    expect(lines).toEqual(['error creating image']);
  });

  it('hands a photo to the delegate, and only prints a failed one', async () => {
    const { camera, delegate, session } = await started();
    camera.takePhoto();
    await vi.runAllTimersAsync();
    expect(delegate.cameraDidTakePhoto).toHaveBeenCalledTimes(1);
    expect(session.photoFlash).toBe(2); // the back lens has a flash; the mode is auto

    session.photo = Promise.reject(new Error('no light'));
    camera.takePhoto();
    await vi.runAllTimersAsync();
    expect(lines).toContain('Photo error : no light');
    expect(delegate.cameraDidTakePhoto).toHaveBeenCalledTimes(1);
  });

  it('publishes what the lenses offer once set up, before any switch; one camera for both has nothing to flip to', async () => {
    const { ui } = await started();
    expect(ui.cameraCapabilitiesChanged).toHaveBeenCalledWith(true, true); // the back lens has a flash
    const only = device('only', true);
    const single = await started({ lenses: { back: only, front: only } });
    expect(single.ui.cameraCapabilitiesChanged).toHaveBeenLastCalledWith(false, true);
    await single.camera.switchCamera();
    expect(single.ui.cameraCapabilitiesChanged).toHaveBeenLastCalledWith(false, true);
  });

  it('switches lenses with the gate shut in between and publishes the new capabilities', async () => {
    const { camera, ui } = await started();
    const switching = camera.switchCamera();
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    await switching;
    expect([camera.currentDevice?.id, camera.useFrameProcessingCallbacks]).toEqual(['front', true]);
    expect(ui.cameraCapabilitiesChanged).toHaveBeenLastCalledWith(true, false);
    await camera.switchCamera();
    expect(camera.currentDevice?.id).toBe('back');
  });
});

describe('lenses and frame sizes in the browser', () => {
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
