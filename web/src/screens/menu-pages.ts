// The small pages of the menu: settings (the two qualities, the tutorials' reset, the version and the
// usage data kept on the device), links, the user's guide, and the mailing list's sign-up page. Each
// drives a view and touches no DOM.
import { kCompanion, kInstagram } from '../config';
import type { StoredEvent } from '../platform/analytics';
import type { KeptBackup, PageDefaults } from '../platform/defaults';
import { kFrameSettingKey, kSaveSettingKey, type SettingsController } from '../platform/settings';
import type { ZorvexAlertVC } from './alert-panel';
import type { MenuPage } from './main-menu-vc';

// ----- Settings -----

export type QualitySwitch = 'frameQualitySwitch' | 'saveQualitySwitch';

export interface SettingsView {
  // The selected segment of a switch: 0 the first (Normal, Full), 1 the second (Low, Half).
  setSegment(control: QualitySwitch, segment: number): void;
  setResetTitle(title: string): void;
  setVersion(text: string): void;
  setUsageCount(count: number): void;
  // The events kept, newest first; null folds the list away.
  setUsageList(events: readonly StoredEvent[] | null): void;
  // The stored effect lists that could not be read and were kept, newest first (none: no row).
  setKeptCopies(copies: readonly KeptBackup[]): void;
}

// The stored settings that could not be read, kept on the device rather than lost; a copy can be
// saved as a file (the same binary property list as the command line's defaults file).
export interface KeptCopies {
  list(): KeptBackup[];
  // The kept bytes under `key`, or null when they are gone.
  bytes(key: string): Uint8Array | null;
  save(name: string, bytes: Uint8Array): void;
}

// The events kept on the device, and a way to forget them.
export interface UsageData {
  events(): StoredEvent[];
  clear(): void;
}

export interface SettingsParts {
  view: SettingsView;
  defaults: Pick<PageDefaults, 'setInteger'>;
  settings: SettingsController;
  // The version of the app and the build's number.
  version: { short: string; build: string };
  usage: UsageData;
  kept?: KeptCopies;
  present: typeof ZorvexAlertVC.present;
}

export const kResetTitle = 'Reset Tutorials';
export const kResetDoneTitle = '☑️ DONE!';

export class SettingsVC implements MenuPage {
  private usageOpen = false;

  constructor(private readonly parts: SettingsParts) {}

  viewWillAppear(): void {
    const { view, settings, version } = this.parts;
    view.setSegment('frameQualitySwitch', settings.frameQuality());
    view.setSegment('saveQualitySwitch', settings.saveQuality());
    view.setResetTitle(kResetTitle);
    view.setVersion(`v${version.short}.${version.build}`);
    this.showUsage();
    view.setKeptCopies([...(this.parts.kept?.list() ?? [])].reverse());
  }

  // Saves the kept copy under `key` as a file named by the time it was kept.
  saveKeptCopy(key: string): void {
    const kept = this.parts.kept;
    const entry = kept?.list().find((e) => e.key === key);
    const bytes = kept?.bytes(key);
    if (!kept || !entry || !bytes) return;
    kept.save(`zorvex-defaults-${entry.time.replace(/[:.]/g, '-')}.plist`, bytes);
  }

  // Both switches' action: the selected segment is the stored value.
  resolutionAction(sender: QualitySwitch, segment: number): void {
    const key = sender === 'frameQualitySwitch' ? kFrameSettingKey : kSaveSettingKey;
    this.parts.defaults.setInteger(segment, key);
  }

  resetTutorialsActio(): void {
    this.parts.settings.resetTutorials();
    this.parts.view.setResetTitle(kResetDoneTitle);
  }

  toggleUsageList(): void {
    this.usageOpen = !this.usageOpen;
    this.showUsage();
  }

  // Asks first; nothing is forgotten without a yes.
  clearUsageData(): void {
    const count = this.parts.usage.events().length;
    if (count === 0) return;
    this.parts.present(
      'CLEAR USAGE DATA',
      `The ${count} event${count === 1 ? '' : 's'} kept on this device will be deleted.`,
      'Cancel',
      'Clear',
      false,
      () => {
        this.parts.usage.clear();
        this.showUsage();
      },
      false,
    );
  }

  private showUsage(): void {
    const events = this.parts.usage.events();
    this.parts.view.setUsageCount(events.length);
    this.parts.view.setUsageList(this.usageOpen ? [...events].reverse() : null);
  }
}

// ----- Links -----

export interface MenuItem {
  title: string;
  // Run when the row is tapped.
  completion: () => void;
  // The name of its picture.
  image: string | null;
  subTitle: string | null;
  // Where the row leads, for the link's own address (a new tab, a copied link).
  href: string;
}

export interface LinksView {
  setRows(rows: readonly MenuItem[]): void;
}

export interface LinksParts {
  view: LinksView;
  // Opens a link in a new tab.
  open: (url: string) => void;
  // Whether something on the device takes this address (an installed app for its scheme).
  canOpenURL: (url: string) => boolean;
  log?: (line: string) => void;
}

function makeURL(text: string): string | null {
  try {
    return new URL(text).href;
  } catch {
    return null;
  }
}

export class LinksVC implements MenuPage {
  config: MenuItem[] | null = null;
  private readonly log: (line: string) => void;

  constructor(private readonly parts: LinksParts) {
    this.log = parts.log ?? ((line) => console.log(line));
  }

  viewDidLoad(): void {
    const { open } = this.parts;
    this.config = [
      {
        title: kCompanion.title,
        image: 'icon.companion',
        subTitle: kCompanion.subTitle,
        href: kCompanion.storePage,
        completion: () => this.openCompanion(),
      },
      {
        title: kInstagram.tagTitle,
        image: 'icon.instagram',
        subTitle: 'See what other people are making on Instagram.',
        href: kInstagram.tagPage,
        completion: () => open(kInstagram.tagPage),
      },
      {
        title: kInstagram.authorHandle,
        image: 'icon.instagram',
        subTitle: 'Follow the creator of ZORVEX for app announcements and contests.',
        href: kInstagram.authorPage,
        completion: () => open(kInstagram.authorPage),
      },
    ];
    this.parts.view.setRows(this.config);
  }

  viewWillAppear(): void {
    if (!this.config) this.viewDidLoad();
  }

  rowTapped(row: number): void {
    this.config?.[row]?.completion();
  }

  // The companion app where it is installed, and its store page in any case.
  private openCompanion(): void {
    const url = makeURL(kCompanion.scheme);
    if (url === null) this.log("Can't make url!");
    else if (this.parts.canOpenURL(url)) this.parts.open(url);
    else this.log(`System can't open ${url}`);
    this.parts.open(kCompanion.storePage);
  }
}

// ----- The user's guide -----

export interface UsersGuideView {
  load(): void;
  scrollToTop(animated: boolean): void;
}

// The guide is loaded when it first comes into view, and shown from its top each time.
export class UsersGuideVC implements MenuPage {
  private loaded = false;

  constructor(private readonly view: UsersGuideView) {}

  viewWillAppear(): void {
    if (!this.loaded) {
      this.loaded = true;
      this.view.load();
    }
    this.view.scrollToTop(true);
  }
}

// ----- Mailing list -----

export interface MailingListView {
  setBusy(busy: boolean): void;
  // Shows the page at `url` in the page's frame.
  load(url: string): void;
  // A message in place of the page, with a way to try again; null takes it away.
  showFailure(text: string | null): void;
}

export interface MailingListParts {
  view: MailingListView;
  url: string;
  isOnline: () => boolean;
  // Whether the page answers.
  probe: (url: string) => Promise<boolean>;
}

export const kOfflineText = "You're offline. The sign-up page needs the network: connect, then try again.";
export const kUnreachableText = "The sign-up page can't be reached right now. Try again in a while.";

export class MailingListVC implements MenuPage {
  state: 'idle' | 'loading' | 'loaded' | 'failed' = 'idle';
  private attempt = 0;

  constructor(private readonly parts: MailingListParts) {}

  // The page is loaded on its first appearance, and again on a later one after a failure.
  viewWillAppear(): void {
    if (this.state === 'idle' || this.state === 'failed') void this.load();
  }

  async load(): Promise<void> {
    const attempt = ++this.attempt;
    const { view } = this.parts;
    this.state = 'loading';
    view.showFailure(null);
    view.setBusy(true);
    if (!this.parts.isOnline()) {
      this.fail(kOfflineText);
      return;
    }
    const ok = await this.parts.probe(this.parts.url).catch(() => false);
    if (attempt !== this.attempt) return;
    if (ok) view.load(this.parts.url);
    else this.fail(kUnreachableText);
  }

  webViewDidFinishNavigation(): void {
    if (this.state !== 'loading') return;
    this.state = 'loaded';
    this.parts.view.setBusy(false);
  }

  webViewDidFailNavigation(): void {
    if (this.state === 'loading') this.fail(kUnreachableText);
  }

  private fail(text: string): void {
    this.state = 'failed';
    this.parts.view.setBusy(false);
    this.parts.view.showFailure(text);
  }
}
