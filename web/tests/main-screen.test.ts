// The main screen's logic against fake views and a fake engine: modes, the frame gate, both randomise
// actions, the blend picker with its "Random" row, the tools by their tags, the info messages and
// busy.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { Camera } from '../src/capture/camera';
import type { EngineClient } from '../src/engine/client/engine-client';
import type { EngineRequest, RawPicture } from '../src/engine/shared/protocol';
import { setAnalyticsSink } from '../src/platform/analytics';
import { PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { CameraIntefaceVC, Mode, noHooks, opacityPercent, type Alert, type MainScreenView } from '../src/screens/camera-inteface-vc';
import { CameraControlsVC, EditControlsVC, type CameraControlsView } from '../src/screens/controls';
import { EffectedImageView, type PhotoLibrary } from '../src/screens/effected-image-view';
import type { EffectsArrangeVC } from '../src/screens/effects-arrange-vc';

const picture = (width = 8, height = 6): RawPicture => ({ width, height, data: new ArrayBuffer(width * height * 4) });

// Answers each request as the engine would; a request can be held to see what happens meanwhile.
class FakeEngine {
  requests: EngineRequest[] = [];
  held: (() => void)[] = [];
  hold = false;
  original: { width: number; height: number } | null = null;
  request(r: EngineRequest): Promise<unknown> {
    this.requests.push(r);
    const answer = (): unknown => {
      switch (r.type) {
        case 'setOriginal':
          this.original = r.picture ? { width: r.picture.width, height: r.picture.height } : null;
          return { ok: r.picture !== null, width: 0, height: 0 };
        case 'render':
        case 'display':
          return { picture: picture() };
        case 'randomizeControls':
          return { picture: picture(), seed: '42' };
        case 'rotate':
          return { ok: this.original !== null };
        case 'flatten':
          return { ok: true, picture: picture() };
        case 'renderFinal':
          return { file: new Blob(['jpeg']), picture: null };
        default:
          return {};
      }
    };
    if (!this.hold) return Promise.resolve(answer());
    return new Promise((resolve) => this.held.push(() => resolve(answer())));
  }
  release() {
    const held = this.held;
    this.held = [];
    held.forEach((h) => h());
  }
  of<T extends EngineRequest['type']>(type: T) {
    return this.requests.filter((r) => r.type === type) as Extract<EngineRequest, { type: T }>[];
  }
}

class FakeView implements MainScreenView, CameraControlsView {
  busy = false;
  info = '';
  infoAlpha = 0;
  slid: Mode = Mode.photo;
  blendOpen = false;
  rows: readonly string[] = [];
  selectedRow = 0;
  blendTitle = '';
  interaction = true;
  alerts: Alert[] = [];
  pickerOpen = false;
  axis = '';
  flashImage = '';
  noDevicesHidden = true;
  reclaimed = 0;
  setBusy(b: boolean) { this.busy = b; }
  setInfoText(t: string) { this.info = t; }
  setInfoAlpha(a: number) { this.infoAlpha = a; }
  slideControls(m: Mode) { this.slid = m; }
  setBlendPanelOpen(o: boolean) { this.blendOpen = o; }
  setBlendPickerRows(r: readonly string[]) { this.rows = r; }
  selectBlendRow(r: number) { this.selectedRow = r; }
  setBlendButtonTitle(t: string) { this.blendTitle = t; }
  setButtonTitles() {}
  setPictureInteraction(e: boolean) { this.interaction = e; }
  setMainAxis(a: string) { this.axis = a; }
  presentImagePicker() { this.pickerOpen = true; }
  dismissImagePicker() { this.pickerOpen = false; }
  showAlert(a: Alert) { this.alerts.push(a); }
  reclaimPicture() { this.reclaimed += 1; }
  setFlipEnabled() {}
  setFlashEnabled() {}
  setFlashImage(i: string) { this.flashImage = i; }
  setNoDevicesLabelHidden(h: boolean) { this.noDevicesHidden = h; }
}

class FakeCamera {
  useFrameProcessingCallbacks = true;
  hasCamera = true;
  delegate: unknown = null;
  uiDelegate: unknown = null;
  photos = 0;
  start = vi.fn((done?: () => void) => done?.());
  takePhoto() { this.photos += 1; }
  flipCamera = vi.fn();
  cycleFlash = vi.fn();
}

let engine: FakeEngine;
let view: FakeView;
let camera: FakeCamera;
let imageView: EffectedImageView;
let vc: CameraIntefaceVC;
let events: string[];
let lines: string[];
let library: { save: ReturnType<typeof vi.fn>; share: ReturnType<typeof vi.fn> };
let shown: number;
let nextRandom: number;
let randomizeEffects: ReturnType<typeof vi.fn>;
const editControls = new EditControlsVC();

beforeEach(() => {
  vi.useFakeTimers();
  events = [];
  lines = [];
  shown = 0;
  nextRandom = 5;
  setAnalyticsSink({ logEvent: (name) => events.push(name) });
  engine = new FakeEngine();
  view = new FakeView();
  camera = new FakeCamera();
  library = { save: vi.fn(async () => undefined), share: vi.fn(async () => undefined) };
  imageView = new EffectedImageView(
    engine as unknown as EngineClient,
    { layoutSize: () => ({ width: 100, height: 80 }), displaySize: () => ({ width: 200, height: 160 }), show: () => void (shown += 1) },
    library as unknown as PhotoLibrary,
    async () => picture(40, 30),
  );
  randomizeEffects = vi.fn(async () => undefined);
  const defaults = new PageDefaults(new MemoryStorage());
  defaults.setBool(true, 'zz.kvt.zorvex.kHasShownIntroMessageBaby');
  defaults.setBool(true, 'zz.kvt.zorvex.hasShownEditControlsKey');
  vc = new CameraIntefaceVC({
    view,
    imageView,
    settings: new SettingsController(defaults),
    cameraControlsVC: new CameraControlsVC(view),
    editControlsVC: editControls,
    makeCamera: () => camera as unknown as Camera,
    randomizeEffects,
    randomUniform: () => nextRandom,
    log: (line) => lines.push(line),
  });
  vc.viewDidLoad();
});

afterEach(() => {
  vi.useRealTimers();
  setAnalyticsSink(null);
});

const settle = () => vi.advanceTimersByTimeAsync(0);

describe('start and modes', () => {
  it('rolls the controls before the first frame, sets the camera up and is busy until a frame shows', async () => {
    expect(engine.requests[0]?.type).toBe('randomizeControls');
    expect(camera.delegate).toBe(vc);
    expect(camera.start).toHaveBeenCalledTimes(1);
    expect(view.busy).toBe(true);
    vc.cameraDidOutputFrame(picture());
    await settle();
    expect(view.busy).toBe(false);
    expect(engine.of('render')[0]?.frame?.width).toBe(8);
  });

  it('goes to edit mode with the photo, shutting the gate; the way back opens it after 0.2 s', async () => {
    vc.shutterPressed();
    expect(view.info).toBe('TAKE PICTURE');
    expect(events).toContain('button_shutter');
    expect(camera.photos).toBe(1);
    vc.cameraDidTakePhoto(new Blob(['photo']));
    expect(lines.filter((l) => l.startsWith('Did take photo'))).toHaveLength(2);
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    expect(vc.mode).toBe(Mode.edit);
    expect(view.slid).toBe(Mode.edit);
    await settle();
    expect(engine.of('setOriginal').at(-1)).toMatchObject({ correct: true, picture: { width: 40, height: 30 } });
    expect(engine.of('render').at(-1)?.skipEffects).toBe(false);

    vc.donePressed();
    expect(events).toContain('button_backToCam');
    expect(vc.mode).toBe(Mode.photo);
    expect(view.busy).toBe(true);
    expect(engine.of('setOriginal').at(-1)?.picture).toBeNull();
    await vi.advanceTimersByTimeAsync(199);
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    await vi.advanceTimersByTimeAsync(1);
    expect(camera.useFrameProcessingCallbacks).toBe(true);
    expect(view.busy).toBe(false);
  });

  it('does nothing at the shutter without a camera, and shows the label when none comes', () => {
    camera.hasCamera = false;
    vc.shutterPressed();
    expect(camera.photos).toBe(0);
    vc.cameraFoundNoDevices();
    expect(view.busy).toBe(false);
    expect(view.noDevicesHidden).toBe(false);
  });

  it('loads a library picture into edit mode, and refuses a file that is none', async () => {
    vc.libraryPressed();
    expect(camera.useFrameProcessingCallbacks).toBe(false);
    expect(view.pickerOpen).toBe(true);
    vc.imagePickerControllerDidCancel();
    expect(camera.useFrameProcessingCallbacks).toBe(true);

    vc.libraryPressed();
    await vc.libraryImagePicked(new File(['x'], 'cat.jpg'));
    expect(vc.mode).toBe(Mode.edit);
    expect(view.info).toBe('IMAGE LOADED');

    engine.request = async () => ({ ok: false, width: 0, height: 0 });
    vc.mode = Mode.photo;
    vc.libraryPressed();
    await vc.libraryImagePicked(new File(['x'], 'notes.txt'));
    expect(view.info).toBe("CAN'T OPEN NOTES.TXT");
    expect(vc.mode).toBe(Mode.photo);
    expect(camera.useFrameProcessingCallbacks).toBe(true);
  });

  it('stacks the areas in portrait and puts them side by side when wider than high', () => {
    vc.sizeChanged(390, 844);
    expect(view.axis).toBe('vertical');
    vc.sizeChanged(844, 390);
    expect(view.axis).toBe('horizontal');
    vc.sizeChanged(500, 500);
    expect(view.axis).toBe('vertical');
  });
});

describe('frame gate', () => {
  it('keeps one render in flight, and the newest frame wins', async () => {
    await settle();
    engine.hold = true;
    const frames = [picture(10, 10), picture(11, 10), picture(12, 10), picture(13, 10)];
    vc.cameraDidOutputFrame(frames[0]!);
    vc.cameraDidOutputFrame(frames[1]!);
    vc.cameraDidOutputFrame(frames[2]!);
    vc.cameraDidOutputFrame(frames[3]!);
    expect(engine.of('render')).toHaveLength(1);
    engine.release();
    await settle();
    expect(engine.of('render').map((r) => r.frame?.width)).toEqual([10, 13]);
    engine.release();
    await settle();
    expect(imageView.isDrawing).toBe(false);
    expect(engine.of('render')).toHaveLength(2);
  });

  it('holding the picture redraws it with the effects hidden and renders nothing', async () => {
    await settle();
    const renders = engine.of('render').length;
    vc.pictureTouched(true);
    expect(engine.of('display').at(-1)?.state.hideEffects).toBe(true);
    vc.pictureTouched(false);
    await settle();
    expect(engine.of('display').at(-1)?.state.hideEffects).toBe(false);
    expect(engine.of('render')).toHaveLength(renders);
  });
});

describe('tools', () => {
  it('rolls the stack, and with Random on the blend mode too', async () => {
    vc.randomEffectsPressed();
    expect(view.busy).toBe(true);
    expect(view.info).toBe('RANDOM EFFECTS');
    expect(events).toContain('button_randomEffects');
    expect(randomizeEffects).toHaveBeenCalledTimes(1);
    await settle();
    expect(view.busy).toBe(false);

    vc.blendRowSelected(18);
    nextRandom = 7;
    vc.randomEffectsPressed();
    expect(imageView.blendIndex).toBe(7);
    expect(view.blendTitle).toBe('Blend:\nRandom');
    expect(view.selectedRow).toBe(18);
  });

  it('rolls the parameters in the engine and says so at once', async () => {
    const before = engine.of('randomizeControls').length;
    vc.randomParamsPressed();
    expect(view.info).toBe('RANDOM PARAMETERS');
    expect(engine.of('randomizeControls')).toHaveLength(before + 1);
    await settle();
    expect(view.busy).toBe(false);
    expect(imageView.controlSeed).toBe('42');
  });

  it('lists the modes and "Random" in the picker, and a mode row changes only the composition', async () => {
    expect(view.rows).toHaveLength(19);
    expect(view.rows[0]).toBe('Normal');
    expect(view.rows[18]).toBe('Random');
    vc.blendAction();
    expect(view.blendOpen).toBe(true);
    expect(events).toContain('button_blend');
    await settle();
    const renders = engine.of('render').length;
    vc.blendRowSelected(5);
    expect(view.blendTitle).toBe('Blend:\nDifference');
    expect(vc.shouldRandomizeBlendMode).toBe(false);
    await settle();
    expect(engine.of('display').at(-1)?.state.blendIndex).toBe(5);
    expect(engine.of('render')).toHaveLength(renders);
    vc.closeBlendModes();
    expect(view.blendOpen).toBe(false);
  });

  it('the "Random" row renders anew; a rolled row 0 reads Random on the button', async () => {
    await settle();
    const renders = engine.of('render').length;
    nextRandom = 0;
    vc.blendRowSelected(18);
    expect(vc.shouldRandomizeBlendMode).toBe(true);
    expect(view.selectedRow).toBe(18);
    await settle();
    expect(engine.of('render')).toHaveLength(renders + 1);

    vc.shouldRandomizeBlendMode = false;
    vc.randomizeBlendMode(true, true);
    expect(view.selectedRow).toBe(0);
    expect(view.blendTitle).toBe('Blend:\nRandom');
    nextRandom = 23; // taken modulo the 18 modes: Difference
    vc.randomizeBlendMode(true, true);
    expect(view.blendTitle).toBe('Blend:\nDifference');
  });

  it('shows the opacity as a whole percentage in single precision and applies it by a redraw', async () => {
    vc.sliderChanged(0.29);
    expect(view.info).toBe('OPACITY 29%');
    expect(imageView.layerAlpha).toBe(0.29);
    await settle();
    expect(engine.of('display').at(-1)?.state.alpha).toBe(0.29);
    expect(opacityPercent(1)).toBe(100);
    expect(opacityPercent(0)).toBe(0);
  });

  it('runs the tools by their tags, each with its event', async () => {
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
    expect(view.info).toBe('PREPARING IMAGE...');
    await settle();
    expect(library.share).toHaveBeenCalledTimes(1);
    expect(view.busy).toBe(false);
  });

  it('leaves the spinner running for a turn with no picture', async () => {
    await settle();
    const rotations = engine.of('rotate').length;
    await vc.runUtility(0, null);
    expect(view.busy).toBe(true);
    expect(engine.of('rotate')).toHaveLength(rotations);
  });

  it('asks before flattening, and blocks the picture while it runs', async () => {
    editControls.utlityButtonAction(4);
    const alert = view.alerts.at(-1)!;
    expect(alert).toMatchObject({
      title: 'FLATTEN',
      body: 'This will apply the current effects to the base image, effectively adding another layer.',
      cancel: 'Cancel',
      action: 'Flatten',
    });
    engine.hold = true;
    alert.onAction();
    expect(view.info).toBe('FLATTENING');
    expect(view.interaction).toBe(false);
    expect(view.busy).toBe(true);
    engine.release();
    await settle();
    expect(view.info).toBe('EFFECTS FLATTENED');
    expect(view.interaction).toBe(true);
    expect(events.filter((e) => e === 'button_flatten')).toHaveLength(2);
  });

  it('saves through the library and says so; a failed save says nothing more', async () => {
    vc.savePressed();
    expect(view.info).toBe('RENDERING');
    await settle();
    expect(library.save).toHaveBeenCalledTimes(1);
    expect(view.info).toBe('SAVED TO PHOTOS');
    expect(view.busy).toBe(false);

    library.save.mockRejectedValueOnce(new Error('cancelled'));
    vc.savePressed();
    await settle();
    expect(view.info).toBe('RENDERING');
  });
});

describe('the Arrange screen', () => {
  it('opens through its hook, and gets the picture back with a new layout, then a run of the stack', async () => {
    const opened = vi.fn();
    const arrange = { viewDidLoad: vi.fn(), delegate: null, effectedImageView: null };
    const main = new CameraIntefaceVC({
      view,
      imageView,
      settings: new SettingsController(new PageDefaults(new MemoryStorage())),
      cameraControlsVC: null,
      editControlsVC: null,
      fxArrange2: arrange as unknown as EffectsArrangeVC,
      makeCamera: () => camera as unknown as Camera,
      randomizeEffects,
      randomUniform: () => 0,
      hooks: { ...noHooks, openArrangeScreen: opened },
    });
    main.viewDidLoad();
    expect(arrange).toMatchObject({ delegate: main, effectedImageView: imageView });
    expect(arrange.viewDidLoad).toHaveBeenCalledTimes(1);
    main.showEffectsArrage();
    expect(events).toContain('button_effectsArrange');
    expect(opened).toHaveBeenCalledTimes(1);
    await settle();
    const renders = engine.of('render').length;
    main.arrangeWillClose();
    main.arrangeDidChange();
    await settle();
    expect(view.reclaimed).toBe(1);
    expect(engine.of('render').slice(renders).map((r) => r.skipEffects)).toEqual([true, false]);
  });
});

describe('info messages', () => {
  it('shows each in capitals for three seconds, a new one restarting the time', async () => {
    vc.showInfoMessage('Image Loaded');
    expect(view.info).toBe('IMAGE LOADED');
    expect(view.infoAlpha).toBe(1);
    await vi.advanceTimersByTimeAsync(2000);
    vc.showInfoMessage('Random Effects');
    await vi.advanceTimersByTimeAsync(2999);
    expect(view.infoAlpha).toBe(1);
    await vi.advanceTimersByTimeAsync(1);
    expect(view.infoAlpha).toBe(0);
  });
});

describe('panels', () => {
  it('shows the flash mode by its picture, keeping the last for other values', () => {
    const controls = new CameraControlsVC(view);
    controls.cameraFlashModeChanged(1);
    expect(view.flashImage).toBe('flash_on.png');
    controls.cameraFlashModeChanged(-1);
    expect(view.flashImage).toBe('flash_off.png');
    controls.cameraFlashModeChanged(3);
    expect(view.flashImage).toBe('flash_off.png');
    controls.shutterAction(); // no delegate: nothing
    expect(() => new EditControlsVC().saveAction()).toThrow();
  });
});
