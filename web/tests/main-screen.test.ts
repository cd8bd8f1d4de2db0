// The main screen's logic against a recording view, a fake camera and a fake engine: modes, the frame
// gate, both randomise actions, the blend picker with its "Random" row, the tools by their tags, undo
// and redo, save and the last picture saved, the info messages and busy.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { Camera } from '../src/capture/camera';
import type { FlattenLook, RawPicture } from '../src/engine/shared/protocol';
import { setAnalyticsSink } from '../src/platform/analytics';
import { PictureError } from '../src/platform/picture-check';
import { PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { CameraIntefaceVC, Mode, type Alert, type MainScreenView } from '../src/screens/camera-inteface-vc';
import { CameraControlsVC, EditControlsVC, type CameraControlsView } from '../src/screens/controls';
import type { EffectedImageView, PhotoLibrary } from '../src/screens/effected-image-view';
import type { EffectsArrangeVC } from '../src/screens/effects-arrange-vc';
import { FakeEngine, picture, recordingView, settle, type Recording } from './fakes';

class FakeCamera {
  useFrameProcessingCallbacks = true;
  hasCamera = true;
  delegate: unknown = null;
  start = vi.fn((done?: () => void) => done?.());
  takePhoto = vi.fn();
}

const library = { save: vi.fn(async () => undefined), share: vi.fn(async () => undefined) };
const randomizeEffects = vi.fn(async () => undefined);
const arrange = { viewDidLoad: vi.fn(), delegate: null, effectedImageView: null };
const editControls = new EditControlsVC();
let engine: FakeEngine;
let ui: Recording<MainScreenView & CameraControlsView>;
let camera: FakeCamera;
let imageView: EffectedImageView;
let vc: CameraIntefaceVC;
let events: string[];
let nextRandom: number;
let decode: (file: Blob) => Promise<RawPicture>;
let undoRedo: [boolean, boolean];
const look: FlattenLook = { effects: ['GRABOID'], seed: '42', flicker: 9, half: false };

beforeEach(() => {
  vi.useFakeTimers();
  vi.clearAllMocks();
  events = [];
  nextRandom = 5;
  setAnalyticsSink({ logEvent: (name) => events.push(name) });
  // Every request finds in this one reply what it reads.
  engine = new FakeEngine(() => ({ ok: true, picture: picture(), seed: '42', file: new Blob(['jpeg']), look }));
  undoRedo = [false, false];
  ui = recordingView<MainScreenView & CameraControlsView>({ setEditHistory: (u, r) => (undoRedo = [u, r]) });
  camera = new FakeCamera();
  decode = async () => picture(40, 30);
  imageView = engine.imageView(library as unknown as PhotoLibrary, (file) => decode(file));
  const defaults = new PageDefaults(new MemoryStorage());
  defaults.setBool(true, 'zz.kvt.zorvex.kHasShownIntroMessageBaby'); // no tours in the way
  defaults.setBool(true, 'zz.kvt.zorvex.hasShownEditControlsKey');
  vc = new CameraIntefaceVC({
    view: ui.view,
    imageView,
    settings: new SettingsController(defaults),
    cameraControlsVC: new CameraControlsVC(ui.view),
    editControlsVC: editControls,
    fxArrange2: arrange as unknown as EffectsArrangeVC,
    makeCamera: () => camera as unknown as Camera,
    randomizeEffects,
    randomUniform: () => nextRandom,
    log: () => undefined,
  });
  vc.viewDidLoad();
});

afterEach(() => {
  vi.useRealTimers();
  setAnalyticsSink(null);
});

describe('start, modes and the frame gate', () => {
  it('rolls the controls before the first frame, starts the camera and is busy until a frame shows', async () => {
    expect(engine.requests[0]?.type).toBe('randomizeControls');
    expect(camera.delegate).toBe(vc);
    expect(camera.start).toHaveBeenCalledTimes(1);
    expect(ui.last.setBusy).toBe(true);
    vc.cameraDidOutputFrame(picture());
    await settle();
    expect(ui.last.setBusy).toBe(false);
    expect(engine.of('render')[0]?.frame?.width).toBe(8);
  });

  it('goes to edit mode with the photo, shutting the gate; the way back opens it after 0.2 s', async () => {
    vc.shutterPressed();
    expect(camera.takePhoto).toHaveBeenCalledTimes(1);
    vc.cameraDidTakePhoto(new Blob(['photo']));
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    expect([vc.mode, ui.last.slideControls]).toEqual([Mode.edit, Mode.edit]);
    await settle();
    expect(engine.of('setOriginal').at(-1)).toMatchObject({ correct: true, picture: { width: 40, height: 30 } });
    expect(engine.of('render').at(-1)?.skipEffects).toBe(false);
    // A live frame that slipped past the gate leaves the photo being edited alone.
    const originals = engine.of('setOriginal').length;
    vc.cameraDidOutputFrame(picture(12, 9));
    await settle();
    expect(engine.of('setOriginal')).toHaveLength(originals);
    expect(engine.of('render').at(-1)?.frame ?? null).toBeNull();

    vc.donePressed();
    expect(events).toContain('button_backToCam');
    expect([vc.mode, ui.last.setBusy]).toEqual([Mode.photo, true]);
    expect(engine.of('setOriginal').at(-1)?.picture).toBeNull();
    await vi.advanceTimersByTimeAsync(199);
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    await vi.advanceTimersByTimeAsync(1);
    expect([camera.useFrameProcessingCallbacks, ui.last.setBusy]).toEqual([true, false]);
  });

  it('takes no photo without a camera, and shows the label when none comes', () => {
    camera.hasCamera = false;
    vc.shutterPressed();
    expect(camera.takePhoto).not.toHaveBeenCalled();
    vc.cameraFoundNoDevices();
    expect([ui.last.setBusy, ui.last.setNoDevicesLabelHidden]).toEqual([false, false]);
  });

  it('loads a library picture into edit mode, and says why it refuses a file', async () => {
    vc.libraryPressed();
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    expect(ui.calls.presentImagePicker).toBe(1);
    vc.imagePickerControllerDidCancel();
    expect(camera.useFrameProcessingCallbacks).toBe(true);

    vc.libraryPressed();
    await vc.libraryImagePicked(new File(['x'], 'cat.jpg'));
    expect([vc.mode, ui.last.setInfoText]).toEqual([Mode.edit, 'IMAGE LOADED']);

    const refusals: [() => Promise<RawPicture>, string][] = [
      [() => Promise.reject(new PictureError('not a picture')), 'NOT A PICTURE'],
      [async () => picture(4000, 15), 'TOO SMALL (AT LEAST 16 PIXELS A SIDE)'],
      [() => Promise.reject(new PictureError('too large')), 'TOO LARGE (AT MOST 100 MEGAPIXELS)'],
    ];
    vc.mode = Mode.photo;
    for (const [decoded, reason] of refusals) {
      decode = decoded;
      vc.libraryPressed();
      await vc.libraryImagePicked(new File(['x'], 'notes.txt'));
      expect([vc.mode, ui.last.setInfoText]).toEqual([Mode.photo, `CAN'T OPEN NOTES.TXT: ${reason}`]);
      expect(camera.useFrameProcessingCallbacks).toBe(true);
    }
    // The engine refuses what it can't work on.
    decode = async () => picture(40, 30);
    engine.answer = () => ({ ok: false });
    await vc.libraryImagePicked(new File(['x'], 'odd.png'));
    expect(ui.last.setInfoText).toBe("CAN'T OPEN ODD.PNG: DAMAGED");
  });

  it('stacks the areas in portrait and puts them side by side when wider than high', () => {
    const axes = [[390, 844], [844, 390], [500, 500]].map(([w, h]) => (vc.sizeChanged(w!, h!), ui.last.setMainAxis));
    expect(axes).toEqual(['vertical', 'horizontal', 'vertical']);
  });

  it('clears busy once the render that serves a frame is shown, while more frames keep coming', async () => {
    await settle();
    engine.hold = true;
    vc.cameraDidOutputFrame(picture(10, 10));
    for (const width of [11, 12, 13]) {
      vc.busy = true;
      vc.cameraDidOutputFrame(picture(width, 10)); // before the render under way is shown
      engine.release();
      await settle();
      expect(ui.last.setBusy).toBe(false);
    }
  });

  it('keeps one render in flight, and the newest frame wins', async () => {
    await settle();
    engine.hold = true;
    for (const width of [10, 11, 12, 13]) vc.cameraDidOutputFrame(picture(width, 10));
    expect(engine.of('render')).toHaveLength(1);
    engine.release();
    await settle();
    engine.release();
    await settle();
    expect(engine.of('render').map((r) => r.frame?.width)).toEqual([10, 13]);
    expect(imageView.isDrawing).toBe(false);
  });
});

describe('tools', () => {
  it('says what each control does, in capitals, and logs its button', () => {
    const cases: [() => void, string, string?][] = [
      [() => vc.shutterPressed(), 'TAKE PICTURE', 'button_shutter'],
      [() => vc.randomEffectsPressed(), 'RANDOM EFFECTS', 'button_randomEffects'],
      [() => vc.randomParamsPressed(), 'RANDOM PARAMETERS'], // the engine logs this one
      [() => vc.sliderChanged(0.29), 'OPACITY 29%'], // 28.999... in double precision
      [() => editControls.utlityButtonAction(5), 'PREPARING IMAGE...', 'button_export'],
    ];
    for (const [press, message, event] of cases) {
      press();
      expect([ui.last.setInfoText, event && events.at(-1)]).toEqual([message, event]);
    }
  });

  it('rolls the stack and the parameters, busy until done; with "Random" chosen the blend mode too', async () => {
    vc.randomEffectsPressed();
    expect([ui.last.setBusy, randomizeEffects.mock.calls.length]).toEqual([true, 1]);
    await settle();
    expect(ui.last.setBusy).toBe(false);
    vc.randomParamsPressed();
    expect([ui.last.setBusy, engine.of('randomizeControls').length]).toEqual([true, 2]);
    await settle();
    expect([ui.last.setBusy, imageView.controlSeed]).toEqual([false, '42']);

    vc.blendRowSelected(18);
    nextRandom = 7;
    vc.randomEffectsPressed();
    expect(imageView.blendIndex).toBe(7);
    expect([ui.last.setBlendButtonTitle, ui.last.selectBlendRow]).toEqual(['Blend:\nRandom', 18]);
  });

  it('lists the modes and "Random" in the picker; a mode row and the opacity change only the composition', async () => {
    const rows = ui.last.setBlendPickerRows as string[];
    expect([rows.length, rows[0], rows[5], rows[18]]).toEqual([19, 'Normal', 'Difference', 'Random']);
    vc.blendAction();
    expect(ui.last.setBlendPanelOpen).toBe(true);
    expect(events).toContain('button_blend');
    await settle();
    const renders = engine.of('render').length;
    vc.blendRowSelected(5);
    expect([ui.last.setBlendButtonTitle, ui.last.selectBlendRow]).toEqual(['Blend:\nDifference', 5]);
    expect(vc.shouldRandomizeBlendMode).toBe(false);
    await settle();
    expect(engine.of('display').at(-1)?.state.blendIndex).toBe(5);
    vc.sliderChanged(0.29);
    await settle();
    expect(engine.of('display').at(-1)?.state.alpha).toBe(0.29);
    expect(engine.of('render')).toHaveLength(renders);
    vc.closeBlendModes();
    expect(ui.last.setBlendPanelOpen).toBe(false);
  });

  it('the "Random" row renders anew; a rolled row 0 reads Random on the button', async () => {
    await settle();
    const renders = engine.of('render').length;
    nextRandom = 0;
    vc.blendRowSelected(18);
    expect([vc.shouldRandomizeBlendMode, ui.last.selectBlendRow]).toEqual([true, 18]);
    await settle();
    expect(engine.of('render')).toHaveLength(renders + 1);

    vc.shouldRandomizeBlendMode = false;
    vc.randomizeBlendMode(true, true);
    expect([ui.last.selectBlendRow, ui.last.setBlendButtonTitle]).toEqual([0, 'Blend:\nRandom']);
    nextRandom = 23; // taken modulo the 18 modes: Difference
    vc.randomizeBlendMode(true, true);
    expect(ui.last.setBlendButtonTitle).toBe('Blend:\nDifference');
  });

  it('runs the tools by their tags, each with its event; a turn without a picture leaves the spinner on', async () => {
    vc.busy = false;
    await vc.runUtility(0, null);
    expect([ui.last.setBusy, engine.of('rotate')]).toEqual([true, []]);

    vc.cameraDidTakePhoto(new Blob(['p']));
    await settle();
    const cases: [number, string, number, boolean][] = [
      [0, 'button_rotate_left', -90, false],
      [1, 'button_rotate_right', 90, false],
      [2, 'button_flip_horiz', 0, true],
      [3, 'button_flip_vert', 180, true],
    ];
    for (const [tag, event, degrees, mirrored] of cases) {
      editControls.utlityButtonAction(tag);
      await settle();
      expect(events.at(-1)).toBe(event);
      expect(engine.of('rotate').at(-1)).toMatchObject({ degrees, mirrored });
    }
    expect(() => editControls.utlityButtonAction(6)).toThrow();

    editControls.utlityButtonAction(5);
    await settle();
    expect([library.share.mock.calls.length, ui.last.setBusy]).toEqual([1, false]);
  });

  it('asks before flattening, and blocks the picture while it runs', async () => {
    editControls.utlityButtonAction(4);
    const alert = ui.last.showAlert as Alert;
    expect(alert).toMatchObject({
      title: 'FLATTEN',
      body: 'This will apply the current effects to the base image, effectively adding another layer.',
      cancel: 'Cancel',
      action: 'Flatten',
    });
    engine.hold = true;
    alert.onAction();
    await settle();
    expect([ui.last.setInfoText, ui.last.setPictureInteraction, ui.last.setBusy]).toEqual(['FLATTENING', false, true]);
    engine.release();
    await settle();
    expect([ui.last.setInfoText, ui.last.setPictureInteraction]).toEqual(['EFFECTS FLATTENED', true]);
    expect(events.filter((e) => e === 'button_flatten')).toHaveLength(2);
  });

  it('saves through the library and says so, once however often pressed meanwhile; a failed save says nothing more', async () => {
    engine.hold = true;
    vc.savePressed();
    expect([ui.last.setInfoText, events.at(-1)]).toEqual(['RENDERING', 'button_save']);
    vc.savePressed();
    editControls.utlityButtonAction(5);
    expect(engine.of('renderFinal')).toHaveLength(1);
    engine.release();
    await settle();
    expect([library.save.mock.calls.length, library.share.mock.calls.length]).toEqual([1, 0]);
    expect([ui.last.setInfoText, ui.last.setBusy]).toEqual(['SAVED TO PHOTOS', false]);
    engine.hold = false;

    library.save.mockRejectedValueOnce(new Error('cancelled'));
    vc.savePressed();
    await settle();
    expect([ui.last.setInfoText, library.save.mock.calls.length]).toEqual(['RENDERING', 2]);
  });

  it('shows the last picture saved on the library side, and opens it in edit mode again', async () => {
    expect(ui.last.setLastShot).toBeUndefined();
    vc.lastShotPressed();
    expect(vc.mode).toBe(Mode.photo);
    vc.savePressed();
    await settle();
    expect(ui.last.setLastShot).toBeInstanceOf(Blob);
    const decoded: Blob[] = [];
    decode = async (file) => (decoded.push(file), picture(40, 30));
    vc.lastShotPressed();
    await settle();
    expect([vc.mode, ui.last.setInfoText, camera.useFrameProcessingCallbacks]).toEqual([Mode.edit, 'IMAGE LOADED', false]);
    expect(await decoded[0]?.text()).toBe('jpeg'); // the file the library was given
  });

  it('takes turns, mirrors and flattens back and does them again, back to the still as it was taken', async () => {
    vc.cameraDidTakePhoto(new Blob(['photo']));
    await settle();
    expect(undoRedo).toEqual([false, false]);
    const since = (n: number) => engine.requests.slice(n).filter((r) => r.type !== 'render' && r.type !== 'display');

    editControls.utlityButtonAction(0); // a quarter turn left
    await settle();
    vc.blendRowSelected(5);
    editControls.utlityButtonAction(4);
    (ui.last.showAlert as Alert).onAction();
    await settle();
    editControls.utlityButtonAction(2); // mirrored left to right
    await settle();
    expect(undoRedo).toEqual([true, false]);

    let n = engine.requests.length;
    editControls.undoAction();
    await settle();
    expect(since(n)).toEqual([{ type: 'rotate', degrees: 0, mirrored: true }]);
    expect(undoRedo).toEqual([true, true]);

    // The flatten: the still again and the quarter turn; then the turn, the other way. Both asked at once.
    n = engine.requests.length;
    editControls.undoAction();
    editControls.undoAction();
    await settle();
    expect(since(n).map((r) => r.type)).toEqual(['setOriginal', 'rotate', 'rotate']);
    expect(since(n).slice(1)).toMatchObject([{ degrees: -90 }, { degrees: 90 }]);
    expect(engine.of('render').at(-1)?.skipEffects).toBe(false);
    expect([undoRedo, ui.last.setBusy]).toEqual([[false, true], false]);

    // Done again: the turn, and the flatten under the look and the blend mode it ran with.
    vc.blendRowSelected(2);
    n = engine.requests.length;
    vc.redoPressed();
    vc.redoPressed();
    await settle();
    expect(since(n)).toMatchObject([{ type: 'rotate', degrees: -90 }, { type: 'flatten', look, state: { blendIndex: 5 } }]);
    expect(undoRedo).toEqual([true, true]);
    // A new step drops the one left to redo; the camera has nothing to undo.
    editControls.utlityButtonAction(1);
    await settle();
    expect(undoRedo).toEqual([true, false]);
    vc.donePressed();
    expect(undoRedo).toEqual([false, false]);
  });
});

describe('info messages, panels and the Arrange screen', () => {
  it('takes a message away with the mode it was given in', async () => {
    vc.shutterPressed();
    expect([ui.last.setInfoText, ui.last.setInfoAlpha]).toEqual(['TAKE PICTURE', 1]);
    vc.cameraDidTakePhoto(new Blob(['p']));
    expect(ui.last.setInfoAlpha).toBe(0);
    await settle();
    editControls.utlityButtonAction(5);
    await settle();
    expect([ui.last.setInfoText, ui.last.setInfoAlpha]).toEqual(['PREPARING IMAGE...', 1]);
    vc.donePressed();
    expect(ui.last.setInfoAlpha).toBe(0);
    // A picture from the library says so in the mode it opens.
    await vc.libraryImagePicked(new File(['x'], 'cat.jpg'));
    expect([ui.last.setInfoText, ui.last.setInfoAlpha]).toEqual(['IMAGE LOADED', 1]);
  });

  it('shows each message in capitals for three seconds, a new one restarting the time', async () => {
    vc.showInfoMessage('Image Loaded');
    expect([ui.last.setInfoText, ui.last.setInfoAlpha]).toEqual(['IMAGE LOADED', 1]);
    await vi.advanceTimersByTimeAsync(2000);
    vc.showInfoMessage('Random Effects');
    await vi.advanceTimersByTimeAsync(2999);
    expect(ui.last.setInfoAlpha).toBe(1);
    await vi.advanceTimersByTimeAsync(1);
    expect(ui.last.setInfoAlpha).toBe(0);
  });

  it('shows the flash mode by its picture, keeping the last for other values', () => {
    const shown = [1, 0, -1, 3].map((mode) => (vc.cameraControlsVC!.cameraFlashModeChanged(mode), ui.last.setFlashImage));
    expect(shown).toEqual(['flash_on.png', 'flash_auto.png', 'flash_off.png', 'flash_off.png']);
  });

  // Opening it, by its button, is left to the end-to-end run.
  it('lends the picture to the Arrange screen, and takes it back with a new layout, then a run of the stack', async () => {
    expect(arrange).toMatchObject({ delegate: vc, effectedImageView: imageView });
    expect(arrange.viewDidLoad).toHaveBeenCalledTimes(1);
    await settle();
    const renders = engine.of('render').length;
    vc.arrangeWillClose();
    vc.arrangeDidChange();
    await settle();
    expect(ui.calls.reclaimPicture).toBe(1);
    expect(engine.of('render').slice(renders).map((r) => r.skipEffects)).toEqual([true, false]);
  });
});
