// The menu over the main screen (its frame gate, the frame quality taking effect on the way back, the
// server message from the second launch on) and its pages: settings, links and the mailing list.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { Camera } from '../src/capture/camera';
import { kCompanion } from '../src/config';
import { setAnalyticsSink, StoredAnalytics } from '../src/platform/analytics';
import { keptBackupBytes, listKeptBackups, PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { CameraIntefaceVC, Mode, type MainScreenView } from '../src/screens/camera-inteface-vc';
import { MainMenuVC, type MainMenuView } from '../src/screens/main-menu-vc';
import {
  kOfflineText,
  kUnreachableText,
  LinksVC,
  MailingListVC,
  SettingsVC,
  type LinksView,
  type MailingListView,
  type MenuItem,
  type SettingsView,
} from '../src/screens/menu-pages';
import { FakeEngine, picture, recordingView, settle, type Recording } from './fakes';

const kIntro = 'zz.kvt.zorvex.kHasShownIntroMessageBaby';
const kEdit = 'zz.kvt.zorvex.hasShownEditControlsKey';
const kArrange = 'zz.kvt.zorvex.hasShownArrangeTutorialKey';

let storage: MemoryStorage;
let defaults: PageDefaults;
let settings: SettingsController;

beforeEach(() => {
  vi.useFakeTimers();
  storage = new MemoryStorage();
  defaults = new PageDefaults(storage);
  settings = new SettingsController(defaults);
});

afterEach(() => {
  vi.useRealTimers();
  setAnalyticsSink(null);
});

describe('the menu over the main screen', () => {
  let camera: { useFrameProcessingCallbacks: boolean; hasCamera: boolean; delegate: unknown; start: ReturnType<typeof vi.fn> };
  let main: CameraIntefaceVC;
  let menuView: Recording<MainMenuView>;
  let menu: MainMenuVC;
  let events: string[];
  let messageLoads: number;
  let pageAppearances: string[];
  let launchCount: number;
  let dismissals: number;

  beforeEach(() => {
    dismissals = 0;
    events = [];
    messageLoads = 0;
    pageAppearances = [];
    launchCount = 1;
    setAnalyticsSink({ logEvent: (name) => events.push(name) });
    defaults.setBool(true, kIntro);
    defaults.setBool(true, kEdit);
    camera = { useFrameProcessingCallbacks: true, hasCamera: true, delegate: null, start: vi.fn((done?: () => void) => done?.()) };
    const engine = new FakeEngine(() => ({ ok: true, picture: picture(), seed: '1' }));
    menuView = recordingView<MainMenuView>({ dismiss: (done: () => void) => void (++dismissals, setTimeout(done, 100)) });
    main = new CameraIntefaceVC({
      view: recordingView<MainScreenView>().view,
      imageView: engine.imageView(),
      settings,
      cameraControlsVC: null,
      editControlsVC: null,
      makeCamera: () => camera as unknown as Camera,
      randomizeEffects: async () => undefined,
      randomUniform: () => 0,
      hooks: {
        startWalkthrough: () => undefined,
        openArrangeScreen: () => undefined,
        loadServerMessage: () => void ++messageLoads,
        openMenu: () => menu.open(),
      },
      log: () => undefined,
    });
    const page = (name: string) => ({ viewWillAppear: () => void pageAppearances.push(name) });
    menu = new MainMenuVC({
      view: menuView.view,
      main,
      pages: { settings: page('settings'), links: page('links') },
      launchCount: () => launchCount,
    });
    main.viewDidLoad();
    main.viewWillAppear();
    main.viewDidAppear(launchCount);
  });

  it('shuts the frame gate while it covers the screen and opens it on the way back in photo mode', async () => {
    main.showMenu();
    expect(events).toEqual(['button_about']);
    expect([menu.isOpen, camera.useFrameProcessingCallbacks, menuView.calls.present]).toEqual([true, false, 1]);
    main.showMenu(); // open already: nothing more
    expect(menuView.calls.present).toBe(1);
    menu.backGesture();
    expect(camera.useFrameProcessingCallbacks).toBe(true);
    menu.backTapped(); // closed already: nothing more
    expect(dismissals).toBe(1);

    main.mode = Mode.edit;
    camera.useFrameProcessingCallbacks = false;
    main.showMenu();
    menu.closeMenu();
    expect(camera.useFrameProcessingCallbacks).toBe(false);
  });

  it('restarts the camera on the way back when the frame quality changed, not otherwise', () => {
    const settingsPage = new SettingsVC({
      view: recordingView<SettingsView>().view,
      defaults,
      settings,
      version: { short: '1.2.3', build: '45' },
      usage: new StoredAnalytics(storage),
      present: () => null,
    });
    main.showMenu();
    menu.closeMenu();
    expect(camera.start).toHaveBeenCalledTimes(1);
    main.showMenu();
    settingsPage.resolutionAction('frameQualitySwitch', 1);
    expect(camera.start).toHaveBeenCalledTimes(1); // nothing happens while the menu covers the screen
    menu.closeMenu();
    expect([camera.start.mock.calls.length, main.lastFrameQuality]).toEqual([2, 1]);
  });

  it('loads the server message when the screen has appeared, from the second launch on', async () => {
    expect(messageLoads).toBe(0); // the first launch
    launchCount = 2;
    main.showMenu();
    menu.closeMenu();
    expect(messageLoads).toBe(0);
    await vi.advanceTimersByTimeAsync(100); // the slide out ends
    expect(messageLoads).toBe(1);
  });

  it('keeps the last tab, and tells a page each time it comes into view', () => {
    main.showMenu();
    menu.selectTab('links');
    menu.selectTab('links');
    menu.closeMenu();
    main.showMenu();
    menu.selectTab('guide'); // a page with nothing to be told
    menu.selectTab('settings');
    expect(pageAppearances).toEqual(['settings', 'links', 'links', 'settings']);
    expect(menuView.last.selectTab).toBe('settings');
  });
});

describe('the settings page', () => {
  let ui: Recording<SettingsView>;
  let analytics: StoredAnalytics;
  let page: SettingsVC;
  let asked: { heading: string; action: (() => void) | null }[];
  const segments: Record<string, number> = {};

  beforeEach(() => {
    asked = [];
    ui = recordingView<SettingsView>({ setSegment: (control: string, segment: number) => void (segments[control] = segment) });
    analytics = new StoredAnalytics(storage, () => new Date('2030-01-02T03:04:05Z'));
    page = new SettingsVC({
      view: ui.view,
      defaults,
      settings,
      version: { short: '0.1.0', build: '86' },
      usage: analytics,
      present: (heading, _body, _cancel, _action, _once, action) => (asked.push({ heading, action }), null),
    });
  });

  it('shows the stored qualities and stores a change under the command line keys', () => {
    page.viewWillAppear();
    expect(segments).toEqual({ frameQualitySwitch: 0, saveQualitySwitch: 0 });
    expect(ui.last.setVersion).toBe('v0.1.0.86');
    page.resolutionAction('frameQualitySwitch', 1);
    page.resolutionAction('saveQualitySwitch', 1);
    expect([defaults.integerForKey('__FrameSettingKey__'), defaults.integerForKey('__SaveSettingKey__')]).toEqual([1, 1]);
    page.resolutionAction('saveQualitySwitch', 0);
    page.viewWillAppear();
    expect(segments).toEqual({ frameQualitySwitch: 1, saveQualitySwitch: 0 });
    defaults.setInteger(7, '__FrameSettingKey__'); // out of range reads as normal
    page.viewWillAppear();
    expect(segments.frameQualitySwitch).toBe(0);
  });

  it('resets the three tutorials, says so until the page appears again', () => {
    for (const key of [kIntro, kEdit, kArrange]) defaults.setBool(true, key);
    page.viewWillAppear();
    expect(ui.last.setResetTitle).toBe('Reset Tutorials');
    page.resetTutorialsActio();
    page.resetTutorialsActio();
    expect([settings.hasShownIntro(), settings.hasShownEditControls(), settings.hasShownArrangeTutorial()]).toEqual([false, false, false]);
    expect(ui.last.setResetTitle).toBe('☑️ DONE!');
    page.viewWillAppear();
    expect(ui.last.setResetTitle).toBe('Reset Tutorials');
  });

  it('counts the usage data kept, lists it newest first and clears it only when the user agrees', () => {
    for (const name of ['button_shutter', 'button_save']) analytics.logEvent(name, null);
    analytics.logEvent('event_CANNOT CREATE INPUTS', { ERROR: 'busy' });
    page.viewWillAppear();
    expect([ui.last.setUsageCount, ui.last.setUsageList]).toEqual([3, null]);
    page.toggleUsageList();
    const list = ui.last.setUsageList as { name: string; parameters: unknown }[];
    expect(list.map((e) => e.name)).toEqual(['event_CANNOT CREATE INPUTS', 'button_save', 'button_shutter']);
    expect(list[0]).toEqual({ time: '2030-01-02T03:04:05.000Z', name: 'event_CANNOT CREATE INPUTS', parameters: { ERROR: 'busy' } });
    page.clearUsageData();
    expect(analytics.events()).toHaveLength(3); // asked, not yet cleared
    asked[0]!.action!();
    expect([analytics.events().length, ui.last.setUsageCount, ui.last.setUsageList]).toEqual([0, 0, []]);
    page.clearUsageData(); // nothing to clear: no question
    expect(asked).toHaveLength(1);
  });

  it('shows the effect lists kept when stored ones could not be read, newest first, and saves their bytes', () => {
    const saved: { name: string; bytes: number[] }[] = [];
    const kept = {
      list: () => listKeptBackups(storage),
      bytes: (key: string) => keptBackupBytes(storage, key),
      save: (name: string, bytes: Uint8Array) => void saved.push({ name, bytes: [...bytes] }),
    };
    page = new SettingsVC({ view: ui.view, defaults, settings, version: { short: '0', build: '0' }, usage: analytics, kept, present: () => null });
    page.viewWillAppear();
    expect(ui.last.setKeptCopies).toEqual([]);
    storage.setItem('zorvex.defaults', 'YnBsaXN0'); // "bplist", as base64
    const first = new PageDefaults(storage).keepBackup('first')!;
    storage.setItem('zorvex.defaults', 'not base64!');
    const second = new PageDefaults(storage).keepBackup('second')!;
    page.viewWillAppear();
    const shown = ui.last.setKeptCopies as { key: string; reason: string }[];
    expect(shown.map((c) => [c.key, c.reason])).toEqual([[second, 'second'], [first, 'first']]);
    page.saveKeptCopy(first);
    page.saveKeptCopy(second);
    page.saveKeptCopy('zorvex.defaults.gone');
    expect(saved.map((f) => f.name.startsWith('zorvex-defaults-') && f.name.endsWith('.plist'))).toEqual([true, true]);
    expect(saved.map((f) => String.fromCharCode(...f.bytes))).toEqual(['bplist', 'not base64!']);
  });
});

describe('the links page', () => {
  let ui: Recording<LinksView>;
  let opened: string[];
  let lines: string[];
  let canOpen: boolean;
  let links: LinksVC;

  beforeEach(() => {
    ui = recordingView<LinksView>();
    opened = [];
    lines = [];
    canOpen = false;
    links = new LinksVC({ view: ui.view, open: (u) => opened.push(u), canOpenURL: () => canOpen, log: (l) => lines.push(l) });
    links.viewWillAppear();
  });

  it('lists the three rows with their texts and pictures', () => {
    const rows = ui.last.setRows as MenuItem[];
    expect(rows.map((r) => [r.title, r.image, r.subTitle])).toEqual([
      [kCompanion.title, 'icon.companion', kCompanion.subTitle],
      ['#ZORVEX', 'icon.instagram', 'See what other people are making on Instagram.'],
      [expect.stringMatching(/^@/), 'icon.instagram', 'Follow the creator of ZORVEX for app announcements and contests.'],
    ]);
    links.rowTapped(1);
    links.rowTapped(2);
    expect(opened).toEqual([rows[1]!.href, rows[2]!.href]);
  });

  it('opens the companion app where it can, and its store page in every case', () => {
    links.rowTapped(0);
    expect(lines).toEqual(["System can't open zorvexmotion://open"]);
    canOpen = true;
    links.rowTapped(0);
    expect(opened).toEqual([kCompanion.storePage, 'zorvexmotion://open', kCompanion.storePage]);

    const scheme = kCompanion.scheme;
    kCompanion.scheme = 'no scheme at all';
    try {
      links.rowTapped(0);
    } finally {
      kCompanion.scheme = scheme;
    }
    expect([lines.at(-1), opened.at(-1)]).toEqual(["Can't make url!", kCompanion.storePage]);
  });
});

describe('the mailing-list page', () => {
  let ui: Recording<MailingListView>;
  let online: boolean;
  let answers: ((ok: boolean) => void)[];
  let page: MailingListVC;

  beforeEach(() => {
    ui = recordingView<MailingListView>();
    online = true;
    answers = [];
    page = new MailingListVC({
      view: ui.view,
      url: 'https://example.test/zorvex/mailing-list.html',
      isOnline: () => online,
      probe: () => new Promise((resolve) => answers.push(resolve)),
    });
  });

  it('shows the page with the spinner until it has loaded, and loads it once', async () => {
    page.viewWillAppear();
    expect([ui.last.setBusy, ui.last.showFailure]).toEqual([true, null]);
    answers[0]!(true);
    await settle();
    expect(ui.last.load).toBe('https://example.test/zorvex/mailing-list.html');
    expect(ui.last.setBusy).toBe(true);
    page.webViewDidFinishNavigation();
    expect(ui.last.setBusy).toBe(false);
    page.viewWillAppear();
    expect(answers).toHaveLength(1);
  });

  it('puts a message in its place offline or when it does not answer, and tries again on the next visit', async () => {
    online = false;
    page.viewWillAppear();
    expect([ui.last.setBusy, ui.last.showFailure, answers.length]).toEqual([false, kOfflineText, 0]);
    online = true;
    page.viewWillAppear();
    answers[0]!(false);
    await settle();
    expect([ui.last.setBusy, ui.last.showFailure, ui.calls.load]).toEqual([false, kUnreachableText, undefined]);

    // A page that answered but could not be shown; then a late answer of an older attempt is ignored.
    void page.load();
    answers[1]!(true);
    await settle();
    page.webViewDidFailNavigation();
    expect(ui.last.showFailure).toBe(kUnreachableText);
    void page.load();
    void page.load();
    answers[2]!(true);
    await settle();
    expect(ui.calls.load).toBe(1);
  });
});
