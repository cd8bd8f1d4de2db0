// The menu and its pages, made and wired together for the page: the settings page over the defaults
// and the analytics kept on the device, the user's guide, the links, the about page and the mailing
// list.
import { kMailingListPath } from '../../config';
import type { StoredAnalytics } from '../../platform/analytics';
import { keptBackupBytes, listKeptBackups, type PageDefaults } from '../../platform/defaults';
import { download } from '../../platform/photo-library';
import type { SettingsController } from '../../platform/settings';
import type { KeyValueStorage } from '../../platform/storage';
import { kAppVersion } from '../../version';
import { ZorvexAlertVC } from '../alert-panel';
import { MainMenuVC, type CoveredScreen } from '../main-menu-vc';
import { LinksVC, MailingListVC, SettingsVC, UsersGuideVC } from '../menu-pages';
import { AboutDom, LinksDom, MailingListDom, MenuDom, SettingsDom, UsersGuideDom } from './menu-dom';

export interface MenuSetup {
  main: CoveredScreen;
  defaults: PageDefaults;
  settings: SettingsController;
  analytics: StoredAnalytics;
  storage: KeyValueStorage;
}

// Opens a link in a new tab that can't reach back into the app.
export function openInNewTab(url: string): void {
  window.open(url, '_blank', 'noopener');
}

// Whether the page at `url` answers, within 15 s.
async function answers(url: string): Promise<boolean> {
  const abort = new AbortController();
  const timer = setTimeout(() => abort.abort(), 15_000);
  try {
    return (await fetch(url, { cache: 'no-store', signal: abort.signal })).ok;
  } catch {
    return false;
  } finally {
    clearTimeout(timer);
  }
}

export function buildMenu({ main, defaults, settings, analytics, storage }: MenuSetup): { menu: MainMenuVC; dom: MenuDom } {
  const dom = new MenuDom();

  const settingsDom = new SettingsDom();
  const settingsVC = new SettingsVC({
    view: settingsDom,
    defaults,
    settings,
    version: kAppVersion,
    usage: analytics,
    kept: {
      list: () => listKeptBackups(storage),
      bytes: (key) => keptBackupBytes(storage, key),
      save: (name, bytes) => download(new File([new Uint8Array(bytes)], name, { type: 'application/x-plist' })),
    },
    present: ZorvexAlertVC.present,
  });
  settingsDom.connect(settingsVC);

  const linksDom = new LinksDom();
  // A browser can't ask whether an app takes a URL scheme: the store page is the way.
  const linksVC = new LinksVC({ view: linksDom, open: openInNewTab, canOpenURL: () => false });
  linksDom.connect(linksVC);
  linksVC.viewDidLoad();

  new AboutDom().load();

  const mailingDom = new MailingListDom();
  const mailingVC = new MailingListVC({
    view: mailingDom,
    url: new URL(kMailingListPath, window.location.origin).href,
    isOnline: () => navigator.onLine,
    probe: answers,
  });
  mailingDom.connect(mailingVC);
  const guideVC = new UsersGuideVC(new UsersGuideDom());

  for (const id of ['about-frame', 'guide-frame', 'mailing-frame']) dom.followFrame(document.getElementById(id) as HTMLIFrameElement);

  const menu = new MainMenuVC({
    view: dom,
    main,
    pages: { settings: settingsVC, guide: guideVC, links: linksVC, mailingList: mailingVC },
    launchCount: () => settings.launchCount(),
  });
  dom.connect(menu);
  return { menu, dom };
}
