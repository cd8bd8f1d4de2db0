// The app's start: storage, the engine Worker, the camera, the main screen and its views.
import { BrowserCaptureBackend } from './capture/browser-capture';
import { Camera } from './capture/camera';
import { EngineClient, type WorkerLike } from './engine/client/engine-client';
import { setAnalyticsSink, StoredAnalytics } from './platform/analytics';
import { PageDefaults } from './platform/defaults';
import { BrowserPhotoLibrary } from './platform/photo-library';
import { decodePicture } from './platform/pictures';
import { SettingsController } from './platform/settings';
import { MemoryStorage, type KeyValueStorage } from './platform/storage';
import { ZorvexAlertVC } from './screens/alert-panel';
import { CameraIntefaceVC, noHooks, type MainScreenHooks } from './screens/camera-inteface-vc';
import { CameraControlsVC, EditControlsVC } from './screens/controls';
import { AlertPanelDom } from './screens/dom/alert-panel-dom';
import { ArrangeScreenDom } from './screens/dom/arrange-screen-dom';
import { LookDom } from './screens/dom/look-dom';
import { MainScreenDom } from './screens/dom/main-screen-dom';
import { elementAnchor, WalkthroughDom } from './screens/dom/walkthrough-dom';
import { buildMenu, openInNewTab } from './screens/dom/menu-setup';
import { EffectedImageView } from './screens/effected-image-view';
import { EffectsArrangeVC } from './screens/effects-arrange-vc';
import { ServerMessageLoader } from './screens/server-message';
import { Tours, type ArrangeAnchor, type MainScreenAnchor } from './screens/tours';
import { Walkthrough } from './screens/walkthrough';
import { LookController } from './screens/look-controller';

function browserStorage(): KeyValueStorage {
  try {
    const storage = window.localStorage;
    storage.setItem('zorvex.probe', '1');
    return storage;
  } catch {
    console.log('The browser keeps no storage for this page: nothing will be remembered');
    return new MemoryStorage();
  }
}

// Uniform in [0, bound) from the browser's crypto, without modulo bias.
function randomUniform(bound: number): number {
  if (bound < 2) return 0;
  const limit = 0x100000000 - (0x100000000 % bound);
  const word = new Uint32Array(1);
  for (;;) {
    crypto.getRandomValues(word);
    if (word[0]! < limit) return word[0]! % bound;
  }
}

async function start(): Promise<void> {
  if ('serviceWorker' in navigator && import.meta.env.PROD) {
    navigator.serviceWorker.register('./sw.js').catch((error: unknown) => console.log(`No offline use: ${String(error)}`));
  }

  const storage = browserStorage();
  const defaults = new PageDefaults(storage);
  const analytics = new StoredAnalytics(storage);
  setAnalyticsSink(analytics);
  const settings = new SettingsController(defaults);
  ZorvexAlertVC.configure({ defaults, makeView: () => new AlertPanelDom() });

  const engine = new EngineClient(
    () =>
      new Worker(new URL('./engine/worker/engine.worker.ts', import.meta.url), { type: 'module' }) as unknown as WorkerLike,
    defaults,
    analytics,
    window.devicePixelRatio || 1,
  );
  // The buttons get their pictures while the engine starts.
  const dom = new MainScreenDom();
  const init = await engine.start();
  document.getElementById('starting')?.classList.add('gone');

  const canvas = dom.picture;
  const library = new BrowserPhotoLibrary(
    (title, action) =>
      new Promise((resolve) => {
        const panel = ZorvexAlertVC.present(title, 'The picture is ready.', 'Cancel', action, false, () => resolve(true), false);
        if (panel) panel.onDismissed = () => resolve(false);
      }),
  );
  const imageView = new EffectedImageView(engine, canvas, library, decodePicture);
  const cameraControlsVC = new CameraControlsVC(dom);
  const editControlsVC = new EditControlsVC();
  const video = document.getElementById('camera-video') as HTMLVideoElement;
  const backend = new BrowserCaptureBackend(video);

  // The Arrange screen slides in over the main screen, which lends it the picture and stops its live
  // frames meanwhile, and slides out again.
  const arrangeDom = new ArrangeScreenDom(canvas);
  const fxArrange2 = new EffectsArrangeVC({
    view: arrangeDom,
    engine,
    settings,
    startWalkthrough: () => hooks.startWalkthrough('arrange'),
    pop: () => {
      if (!arrangeDom.isPresented) return;
      fxArrange2.viewWillDisappear();
      vc.viewWillAppear();
      arrangeDom.dismiss(() => vc.viewDidAppear(settings.launchCount()));
    },
  });
  const openArrangeScreen = () => {
    if (arrangeDom.isShown) return;
    arrangeDom.present();
    fxArrange2.sizeChanged(window.innerWidth, window.innerHeight);
    fxArrange2.viewWillAppear();
    vc.viewDidDisappear();
    setTimeout(() => fxArrange2.viewDidAppear(), 300);
  };
  const messages = new ServerMessageLoader({
    origin: window.location.origin,
    fetch: (url) => fetch(url, { cache: 'no-store' }),
    random: () => crypto.getRandomValues(new Uint32Array(1))[0]!,
    open: openInNewTab,
  });
  // The tours point at the controls by the names of the screens' fields.
  const anchors: Record<MainScreenAnchor | ArrangeAnchor, string> = {
    randomEffectsButton: '#random-effects',
    randomParamsButton: '#random-params',
    blendButton: '#blend',
    showEffectsArrangeButton: '#effects-arrange',
    alphaSlider: '#alpha-slider',
    libraryButton: '#library',
    activityIndicatorHolder: '#top', // the middle of the picture
    utilityControlsHolder: '.utility-row',
    doneButton: '#done',
    tableView: '#arrange-list',
  };
  const anchor = (name: MainScreenAnchor | ArrangeAnchor) => elementAnchor(() => document.querySelector(anchors[name]));
  const walkthroughDom = new WalkthroughDom();
  const walkthrough = new Walkthrough(walkthroughDom, storage);
  walkthroughDom.connect(walkthrough);
  const tours = new Tours({ walkthrough, mode: () => vc.mode, mainAnchor: anchor, arrangeAnchor: anchor });
  const hooks: MainScreenHooks = {
    ...noHooks,
    startWalkthrough: (tour) => tours.startWalkthrough(tour),
    openArrangeScreen,
    openMenu: () => menu.open(),
    loadServerMessage: () => void messages.loadServerMessage(),
    pictureLoaded: (file) => void looks.pictureLoaded(file),
  };

  const vc = new CameraIntefaceVC({
    view: dom,
    imageView,
    settings,
    cameraControlsVC,
    editControlsVC,
    fxArrange2,
    makeCamera: () => new Camera(backend, defaults, settings, true),
    randomizeEffects: async () => {
      await engine.request({ type: 'editEffects', edit: { op: 'randomize' } });
    },
    randomUniform,
    hooks,
  });
  engine.onRestarted = () => void imageView.restore();
  const { menu } = buildMenu({ main: vc, defaults, settings, analytics, storage });

  // Looks: the offer of a picked picture's look, "Copy link", the seed, and links that carry a look.
  const lookDom = new LookDom(document.getElementById('top')!, document.getElementById('main-stack')!, document.getElementById('alpha-slider') as HTMLInputElement);
  const looks = new LookController(engine, imageView, vc, lookDom, () => `${location.origin}${location.pathname}${location.search}`);
  lookDom.connect(looks);
  imageView.onControlSeed = (seed) => looks.seedChanged(seed);

  dom.connect(vc, cameraControlsVC, editControlsVC);
  arrangeDom.connect(fxArrange2);
  vc.viewDidLoad();
  vc.sizeChanged(window.innerWidth, window.innerHeight);
  vc.viewWillAppear();
  vc.viewDidAppear(init.launchCount);
  looks.seedChanged(imageView.controlSeed);

  // A link with a look asks once the greeting (if any) is answered, and the fragment is then dropped.
  const openLink = () => {
    const fragment = location.hash;
    if (!fragment.startsWith('#look=')) return;
    history.replaceState(null, '', `${location.pathname}${location.search}`);
    const ask = () => (ZorvexAlertVC.alerts.length > 0 ? setTimeout(ask, 300) : void looks.linkOpened(fragment));
    ask();
  };
  openLink();
  window.addEventListener('hashchange', openLink);

  // A new size of the window: the new arrangement, then a layout and a display at the new size.
  const relayout = () => {
    vc.sizeChanged(window.innerWidth, window.innerHeight);
    if (arrangeDom.isShown) fxArrange2.sizeChanged(window.innerWidth, window.innerHeight);
    requestAnimationFrame(() => {
      if (canvas.fit()) void imageView.render(true);
    });
  };
  new ResizeObserver(relayout).observe(dom.canvas);
  window.addEventListener('resize', relayout);
  // The main screen appears again with the page, unless the Arrange screen or the menu covers it.
  document.addEventListener('visibilitychange', () => {
    if (document.hidden) vc.viewDidDisappear();
    else if (!arrangeDom.isShown && !menu.isOpen) vc.viewWillAppear();
  });

  // For the end-to-end tests and the browser benchmark.
  Object.assign(window, { zorvex: { engine, vc, fxArrange2, imageView, canvas, analytics, defaults, settings, menu, walkthrough, looks } });
}

start().catch((error: unknown) => {
  console.error(error);
  const starting = document.getElementById('starting');
  if (starting) starting.textContent = `Zorvex could not start: ${error instanceof Error ? error.message : String(error)}`;
});
