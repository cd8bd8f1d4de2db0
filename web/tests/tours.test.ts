// The guided tours: where a step's bubble goes at phone and desktop sizes, the walkthrough's steps,
// its automatic advance and its memory, and when each of the three tours starts and which flag it
// writes, with the main screen, the Arrange screen and the settings page's reset.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { Camera } from '../src/capture/camera';
import { PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { CameraIntefaceVC, Mode, type Alert, type MainScreenView } from '../src/screens/camera-inteface-vc';
import { EffectsArrangeVC, type EffectsArrangeView } from '../src/screens/effects-arrange-vc';
import { SettingsVC, type SettingsView } from '../src/screens/menu-pages';
import { Tours } from '../src/screens/tours';
import {
  kCompletedToursKey,
  layoutStep,
  standalone,
  highlighted,
  TextLocation,
  Walkthrough,
  WalkthroughHelper,
  type Rect,
  type Size,
  type StepLayout,
  type WalkthroughView,
} from '../src/screens/walkthrough';
import { FakeEngine, picture, recordingView, settle, type Recording } from './fakes';

const settings = WalkthroughHelper.settings;
const style = WalkthroughHelper.style;
const inside = (r: Rect, v: Size) => r.x >= 0 && r.y >= 0 && r.x + r.width <= v.width && r.y + r.height <= v.height;

describe('where a bubble goes', () => {
  const viewports: Size[] = [
    { width: 390, height: 844 }, // a phone held upright
    { width: 844, height: 390 }, // turned
    { width: 1280, height: 800 }, // a desktop window
  ];
  const bubble = { width: 300, height: 150 };

  it('puts the bubble beside its control, inside the window, with the arrow at the control', () => {
    for (const v of viewports) {
      const anchors: Rect[] = [
        { x: 8, y: 10, width: 80, height: 44 }, // top left corner
        { x: v.width - 60, y: v.height / 2, width: 52, height: 44 }, // right edge, middle
        { x: v.width / 2 - 40, y: v.height - 60, width: 80, height: 48 }, // bottom
        { x: 10, y: v.height * 0.45, width: v.width - 20, height: 28 }, // a slider across the window
      ];
      for (const a of anchors) {
        const item = highlighted({ rect: () => a }, TextLocation.beside, 'text');
        const { hole, bubble: b, arrow } = layoutStep(item, a, v, bubble, settings, style);
        const label = `${JSON.stringify(v)} ${JSON.stringify(a)}`;
        expect(hole, label).toEqual(a);
        expect(inside(b, v), label).toBe(true);
        expect(b.x >= 20 && b.x + b.width <= v.width - 20, label).toBe(true);
        // The arrow's tip is over the control, 10 points into it, on the side facing the bubble.
        const tipX = b.x + arrow!.x;
        expect(tipX >= a.x && tipX <= a.x + a.width, label).toBe(true);
        const tipY = arrow!.edge === 'top' ? b.y - style.arrowSize.height : b.y + b.height + style.arrowSize.height;
        expect(tipY, label).toBe(arrow!.edge === 'top' ? a.y + a.height - 10 : a.y + 10);
      }
    }
  });

  it('centres a step with no control, and one over a large control on its middle, without an arrow', () => {
    const v = viewports[2]!;
    const alone = layoutStep(standalone('hi'), null, v, bubble, settings, style);
    expect(alone).toEqual({ hole: null, bubble: { x: 490, y: 325, width: 300, height: 150 }, arrow: null });
    const picture = { x: 0, y: 0, width: 905, height: 800 };
    const over = layoutStep(highlighted({ rect: () => picture }, TextLocation.over, ''), picture, v, bubble, settings, style);
    expect(over).toEqual({ hole: picture, bubble: { x: 302.5, y: 325, width: 300, height: 150 }, arrow: null });
    // A control that is not on show: the bubble stands alone.
    expect(layoutStep(highlighted({ rect: () => null }, 0, ''), null, v, bubble, settings, style).hole).toBeNull();
  });

  it('narrows a bubble to the window less its margins', () => {
    const tiny = { width: 280, height: 500 };
    const { bubble: b } = layoutStep(standalone(''), null, tiny, { width: 340, height: 200 }, settings, style);
    expect([b.x, b.width]).toEqual([20, 240]);
  });
});

// A view that keeps what it is shown; every bubble measures 200 x 100.
class FakeWalkthroughView implements WalkthroughView {
  texts: string[] = [];
  layouts: StepLayout[] = [];
  closed = 0;
  measureBubble(): Size {
    return { width: 200, height: 100 };
  }
  viewport(): Size {
    return { width: 390, height: 844 };
  }
  showStep(layout: StepLayout, text: string): void {
    this.layouts.push(layout);
    this.texts.push(text);
  }
  close(): void {
    this.closed += 1;
  }
}

describe('the walkthrough', () => {
  let view: FakeWalkthroughView;
  let memory: MemoryStorage;
  let walkthrough: Walkthrough;
  const provider = (id: string, texts: string[]) => ({ walkthroughId: id, walkthroughItems: () => texts.map((t) => standalone(t)) });
  const options = (showEven: boolean, completion: () => void = () => undefined) => ({
    withSettings: settings,
    style,
    delegate: null,
    showEvenIfItHasAlreadyBeenCompleted: showEven,
    completion,
  });

  beforeEach(() => {
    vi.useFakeTimers();
    view = new FakeWalkthroughView();
    memory = new MemoryStorage();
    walkthrough = new Walkthrough(view, memory);
  });
  afterEach(() => vi.useRealTimers());

  it('shows each step in turn, goes on by itself after 10 s, and tells the end once', () => {
    const done = vi.fn();
    walkthrough.startWalkthrough(provider('a', ['one', 'two', 'three']), options(true, done));
    walkthrough.next();
    vi.advanceTimersByTime(9999);
    expect(view.texts).toEqual(['one', 'two']);
    vi.advanceTimersByTime(1);
    expect(view.texts).toEqual(['one', 'two', 'three']);
    walkthrough.next();
    walkthrough.next();
    vi.advanceTimersByTime(20000);
    expect([done.mock.calls.length, view.closed, walkthrough.isRunning]).toEqual([1, 1, false]);
  });

  it('ends where it stands on Escape, and runs a tour asked for meanwhile after it', () => {
    const done: string[] = [];
    walkthrough.startWalkthrough(provider('a', ['a1', 'a2']), options(true, () => done.push('a')));
    walkthrough.startWalkthrough(provider('b', ['b1']), options(true, () => done.push('b')));
    walkthrough.end();
    expect([view.texts, done]).toEqual([['a1', 'b1'], ['a']]);
    walkthrough.end();
    walkthrough.end();
    expect(done).toEqual(['a', 'b']);
  });

  it('remembers completed tours, and shows one again only when asked to', () => {
    memory.setItem(kCompletedToursKey, '["a"]');
    expect(walkthrough.startWalkthrough(provider('a', ['x']), options(false))).toBe(false);
    expect(walkthrough.startWalkthrough(provider('a', ['x']), options(true))).toBe(true);
    walkthrough.end();
    expect(walkthrough.startWalkthrough(provider('b', ['y']), options(false))).toBe(true);
    walkthrough.end();
    expect(JSON.parse(memory.getItem(kCompletedToursKey)!)).toEqual(['a', 'b']);
    memory.setItem(kCompletedToursKey, 'not json');
    expect(walkthrough.startWalkthrough(provider('a', ['x']), options(false))).toBe(true);
  });
});

describe('when the tours start', () => {
  const kIntro = 'zz.kvt.zorvex.kHasShownIntroMessageBaby';
  const kEdit = 'zz.kvt.zorvex.hasShownEditControlsKey';
  const kArrange = 'zz.kvt.zorvex.hasShownArrangeTutorialKey';
  const photoTexts = [
    'Tap here to randomize BOTH the active effects and their parameters',
    'Tap here to randomize ONLY effect parameters',
    'Select a blend mode to control how the filtered image combines with the original image',
    'Tap here to access the effects stack, allowing you to arrange and activate filters at will',
    'Adjust the alpha (opacity) of the effected image with this slider',
    'ZORVEX will show you a live camera feed by default, but you may load an image from your Photo Library here',
  ];
  const editTexts = [
    'Tap the image to momentariy see the original image underneath',
    'You may change effects and blending after the image is captured',
    "Tap 'Camera' to go back to the camera or load another image",
  ];
  const arrangeTexts = [
    'Use this screen to activate and arrange the effects.\n\nThe order does matter, effects applied from top-to-bottom.',
    'You may also arrange the effects by lightly dragging from the right side',
    'All available built-in and user-saved effects presets will be shown in this table.  Tap one of the rows to activate it',
  ];

  let defaults: PageDefaults;
  let flags: SettingsController;
  let view: FakeWalkthroughView;
  let memory: MemoryStorage;
  let walkthrough: Walkthrough;
  let ui: Recording<MainScreenView>;
  let main: CameraIntefaceVC;
  let arrange: EffectsArrangeVC;
  let lines: string[];
  let anchored: string[];

  // Runs the tour on show to its end; the texts it showed, from the step on show.
  const runTour = () => {
    if (!walkthrough.isRunning) return [];
    const from = view.texts.length - 1;
    while (walkthrough.isRunning) walkthrough.next();
    return view.texts.slice(from);
  };
  const flagValues = () => [flags.hasShownIntro(), flags.hasShownEditControls(), flags.hasShownArrangeTutorial()];

  beforeEach(() => {
    vi.useFakeTimers();
    defaults = new PageDefaults(new MemoryStorage());
    flags = new SettingsController(defaults);
    view = new FakeWalkthroughView();
    memory = new MemoryStorage();
    walkthrough = new Walkthrough(view, memory);
    lines = [];
    anchored = [];
    const engine = new FakeEngine(() => ({ ok: true, picture: picture(), seed: '1', rows: [] }));
    ui = recordingView<MainScreenView>();
    const anchor = (name: string) => ({ rect: () => (anchored.push(name), { x: 10, y: 10, width: 40, height: 40 }) });
    const tours: Tours = new Tours({
      walkthrough,
      mode: () => main.mode,
      mainAnchor: anchor,
      arrangeAnchor: anchor,
      log: (line) => lines.push(line),
    });
    const camera = { useFrameProcessingCallbacks: true, hasCamera: true, start: vi.fn(), takePhoto: vi.fn() };
    arrange = new EffectsArrangeVC({
      view: recordingView<EffectsArrangeView>().view,
      engine: engine.client,
      settings: flags,
      pop: () => undefined,
      startWalkthrough: () => tours.startWalkthrough('arrange'),
      log: () => undefined,
    });
    main = new CameraIntefaceVC({
      view: ui.view,
      imageView: engine.imageView(),
      settings: flags,
      cameraControlsVC: null,
      editControlsVC: null,
      fxArrange2: arrange,
      makeCamera: () => camera as unknown as Camera,
      randomizeEffects: async () => undefined,
      randomUniform: () => 0,
      hooks: {
        startWalkthrough: (tour) => tours.startWalkthrough(tour),
        loadServerMessage: () => undefined,
        openArrangeScreen: () => undefined,
        openMenu: () => undefined,
      },
      log: () => undefined,
    });
    main.viewDidLoad();
    main.viewWillAppear();
  });
  afterEach(() => vi.useRealTimers());

  it('greets a new user on the main screen in photo mode; "Ok" starts the camera tour', () => {
    main.viewDidAppear(1);
    const welcome = ui.last.showAlert as Alert;
    expect(welcome).toMatchObject({ title: 'WELCOME TO ZORVEX', body: "Let's do a quick tutorial.", cancel: null, action: 'Ok' });
    expect(flagValues()).toEqual([true, false, false]); // written before the alert
    expect(walkthrough.isRunning).toBe(false);
    welcome.onAction();
    expect(runTour()).toEqual(photoTexts);
    expect(anchored).toEqual([
      'randomEffectsButton',
      'randomParamsButton',
      'blendButton',
      'showEffectsArrangeButton',
      'alphaSlider',
      'libraryButton',
    ]);
    expect(lines).toEqual(['Walkthrough Complete']);
    main.viewDidAppear(2); // shown: no welcome again
    expect(ui.calls.showAlert).toBe(1);
  });

  it('starts the edit tour at the end of the slide to edit mode, once, and on appearing in edit mode', async () => {
    defaults.setBool(true, kIntro);
    main.cameraDidTakePhoto(new Blob(['photo']));
    await vi.advanceTimersByTimeAsync(199);
    expect(walkthrough.isRunning).toBe(false);
    await vi.advanceTimersByTimeAsync(1);
    expect(flags.hasShownEditControls()).toBe(true);
    expect(runTour()).toEqual(editTexts);
    expect(anchored).toEqual(['activityIndicatorHolder', 'utilityControlsHolder', 'doneButton']);

    main.backToCamera();
    main.cameraDidTakePhoto(new Blob(['photo']));
    await vi.advanceTimersByTimeAsync(300);
    main.viewDidAppear(1);
    expect(walkthrough.isRunning).toBe(false);

    defaults.setBool(false, kEdit);
    main.viewDidAppear(1); // back on the main screen in edit mode
    expect(flags.hasShownEditControls()).toBe(true);
    expect(runTour()).toEqual(editTexts);
  });

  it('starts the camera tour at the end of the way back to photo mode while the intro flag is off', async () => {
    defaults.setBool(true, kEdit);
    main.mode = Mode.edit;
    main.backToCamera();
    await vi.advanceTimersByTimeAsync(200);
    expect(flags.hasShownIntro()).toBe(true);
    expect(runTour()).toEqual(photoTexts);
  });

  it('starts the Arrange tour when the screen has come on, then writes its flag', () => {
    let flagWhenStarted: boolean | null = null;
    const start = walkthrough.startWalkthrough.bind(walkthrough);
    walkthrough.startWalkthrough = (p, o) => ((flagWhenStarted = flags.hasShownArrangeTutorial()), start(p, o));
    arrange.viewDidAppear();
    expect([flagWhenStarted, flags.hasShownArrangeTutorial()]).toEqual([false, true]);
    expect(runTour()).toEqual(arrangeTexts);
    expect(view.layouts.slice(-3).map((l) => l.hole === null)).toEqual([true, true, false]);
    arrange.viewDidAppear();
    expect(walkthrough.isRunning).toBe(false);
  });

  it('runs all three again after the settings page resets the tutorials, the camera tour even if remembered', async () => {
    for (const key of [kIntro, kEdit, kArrange]) defaults.setBool(true, key);
    const page = new SettingsVC({
      view: recordingView<SettingsView>().view,
      defaults,
      settings: flags,
      version: { short: '0', build: '0' },
      usage: { events: () => [], clear: () => undefined },
      present: () => null,
    });
    page.resetTutorialsActio();
    memory.setItem(kCompletedToursKey, '["mainScreen","effectsArrange"]');
    main.viewDidAppear(3);
    (ui.last.showAlert as Alert).onAction();
    expect(runTour()).toEqual(photoTexts); // the walkthrough's memory of it does not stop it
    arrange.viewDidAppear();
    expect(runTour()).toEqual(arrangeTexts);
    main.cameraDidTakePhoto(new Blob(['photo']));
    await settle();
    await vi.advanceTimersByTimeAsync(200);
    expect(runTour()).toEqual(editTexts);
    expect(lines).toEqual(['Walkthrough Complete', 'Walkthrough Complete', 'Walkthrough Complete']);
  });
});
