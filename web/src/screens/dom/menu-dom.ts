// The menu in the page's DOM: a screen that sweeps in from the left over the main screen, a bar with
// the way back, the pages, and their tabs (along the bottom on a phone, in the bar on a wide window).
// The back button, a swipe to the left, and Escape close it; ← → Home End go from tab to tab.
import aboutPage from '../../pages/about.html?raw';
import userGuide from 'virtual:userguide';
import type { StoredEvent } from '../../platform/analytics';
import type { KeptBackup } from '../../platform/defaults';
import { kMenuSlideSeconds, kMenuTabs, type MainMenuVC, type MainMenuView, type MenuTab } from '../main-menu-vc';
import type {
  LinksVC,
  LinksView,
  MailingListVC,
  MailingListView,
  MenuItem,
  QualitySwitch,
  SettingsVC,
  SettingsView,
  UsersGuideView,
} from '../menu-pages';
import { linkImages, menuIcons } from './menu-icons';
import './menu.css';

const kSwipeDistance = 80; // pixels to the left that close the menu
const kSwipeMilliseconds = 700;

function element<T extends HTMLElement>(id: string): T {
  const e = document.getElementById(id);
  if (!e) throw new Error(`the page has no #${id}`);
  return e as T;
}

const segmented = (name: QualitySwitch, label: string, segments: [string, string]) => `
  <fieldset class="segmented" id="${name}">
    <legend class="visually-hidden">${label}</legend>
    ${segments
      .map((s, i) => `<label><input type="radio" name="${name}" value="${i}" /><span>${s}</span></label>`)
      .join('')}
  </fieldset>`;

const pages: Record<MenuTab, string> = {
  settings: `
    <div class="menu-page-inner">
      <h2 class="page-title">Settings</h2>
      <div class="settings-group">
        <div class="settings-row">
          <div class="settings-label">Live frames<small>Low takes smaller frames from the camera: smoother on a slow phone.</small></div>
          ${segmented('frameQualitySwitch', 'Live frames', ['Normal', 'Low'])}
        </div>
        <div class="settings-row">
          <div class="settings-label">Saved pictures<small>Half saves at half the width and height: quicker, smaller files.</small></div>
          ${segmented('saveQualitySwitch', 'Saved pictures', ['Full', 'Half'])}
        </div>
      </div>
      <div class="settings-group">
        <div class="settings-row">
          <div class="settings-label">Tutorials<small>Show the guided tours again, each at its moment.</small></div>
          <button id="reset-tutorials" class="pill"></button>
        </div>
      </div>
      <div class="settings-group">
        <div class="settings-row">
          <div class="settings-label">Usage data<small id="usage-count"></small></div>
          <div class="row-buttons">
            <button id="usage-show" class="pill" aria-expanded="false" aria-controls="usage-list">Show</button>
            <button id="usage-clear" class="pill">Clear</button>
          </div>
        </div>
        <ol id="usage-list" class="usage-list" aria-label="Usage data, newest first" hidden></ol>
      </div>
      <div id="kept-copies" class="settings-group" hidden>
        <div class="settings-row">
          <div class="settings-label">Kept effect lists<small>A stored effect list that could not be read was kept on this device, so that nothing is lost. Save a copy to look at it or to give it to the command line.</small></div>
        </div>
        <ul id="kept-list" class="usage-list kept-list" aria-label="Kept effect lists, newest first"></ul>
      </div>
      <p id="version-label" class="version-label"></p>
    </div>`,
  guide: `<iframe id="guide-frame" class="page-frame guide-frame" title="The user's guide"></iframe>`,
  links: `
    <div class="menu-page-inner">
      <h2 class="page-title">Links</h2>
      <ul id="links-table" class="links-table"></ul>
    </div>`,
  about: `<iframe id="about-frame" class="page-frame about-frame" title="About Zorvex"></iframe>`,
  mailingList: `
    <div class="mailing-list">
      <iframe id="mailing-frame" class="page-frame mailing-frame" title="Mailing list sign-up"></iframe>
      <div id="mailing-busy" class="page-busy" hidden><div class="spinner" aria-label="Loading the sign-up page"></div></div>
      <div id="mailing-failure" class="page-failure" role="alert" hidden>
        <p id="mailing-failure-text"></p>
        <button id="mailing-retry" class="pill">${menuIcons.retry}<span>Try Again</span></button>
      </div>
    </div>`,
};

export class MenuDom implements MainMenuView {
  readonly screen: HTMLElement;
  private vc: MainMenuVC | null = null;
  private swipe: { x: number; y: number; time: number; pointerId: number } | null = null;
  private slideToken = 0;

  constructor() {
    const screen = document.createElement('section');
    screen.id = 'menu';
    screen.className = 'menu';
    screen.hidden = true;
    screen.setAttribute('aria-label', 'Menu');
    screen.innerHTML = `
      <header class="menu-bar">
        <button id="menu-back" class="menu-back" aria-keyshortcuts="Escape" title="Back to the camera (Esc)">${menuIcons.back}<span>Camera</span></button>
        <span class="menu-brand" aria-hidden="true">ZORVEX</span>
      </header>
      <div class="menu-pages">
        ${kMenuTabs
          .map(
            ({ tab }) =>
              `<section id="menu-page-${tab}" class="menu-page" role="tabpanel" aria-labelledby="menu-tab-${tab}" hidden>${pages[tab]}</section>`,
          )
          .join('')}
      </div>
      <nav class="menu-tabs" role="tablist" aria-label="Menu pages">
        ${kMenuTabs
          .map(
            ({ tab, title }) =>
              `<button id="menu-tab-${tab}" class="menu-tab" role="tab" aria-controls="menu-page-${tab}" aria-selected="false" tabindex="-1" data-tab="${tab}">${menuIcons[tab]}<span>${title}</span></button>`,
          )
          .join('')}
      </nav>`;
    document.body.append(screen);
    this.screen = screen;
  }

  // ----- MainMenuView -----

  get isShown(): boolean {
    return !this.screen.hidden;
  }

  present(): void {
    ++this.slideToken;
    this.screen.style.setProperty('--menu-slide', `${kMenuSlideSeconds}s`);
    this.screen.hidden = false;
    // The main screen and its blend panel take no input while covered.
    element('main-stack').inert = true;
    element('blend-picker-holder').inert = true;
    void this.screen.offsetWidth; // the slide starts from outside
    this.screen.classList.add('shown');
    this.selectedTab()?.focus({ preventScroll: true });
  }

  dismiss(done: () => void): void {
    const token = ++this.slideToken;
    this.screen.classList.remove('shown');
    element('main-stack').inert = false;
    element('menu-button').focus({ preventScroll: true });
    setTimeout(() => {
      if (token === this.slideToken) this.screen.hidden = true;
      done();
    }, kMenuSlideSeconds * 1000 + 20);
  }

  selectTab(tab: MenuTab): void {
    for (const { tab: t } of kMenuTabs) {
      const selected = t === tab;
      const button = element(`menu-tab-${t}`);
      button.setAttribute('aria-selected', String(selected));
      button.tabIndex = selected ? 0 : -1;
      element(`menu-page-${t}`).hidden = !selected;
    }
  }

  private selectedTab(): HTMLElement | null {
    return this.screen.querySelector<HTMLElement>('.menu-tab[aria-selected="true"]');
  }

  // ----- Events -----

  connect(vc: MainMenuVC): void {
    this.vc = vc;
    element('menu-back').addEventListener('click', () => vc.backTapped());
    const tabs = [...this.screen.querySelectorAll<HTMLButtonElement>('.menu-tab')];
    for (const b of tabs) b.addEventListener('click', () => vc.selectTab(b.dataset.tab as MenuTab));
    element('menu-tab-settings').parentElement!.addEventListener('keydown', (event) => {
      const i = tabs.indexOf(event.target as HTMLButtonElement);
      if (i < 0) return;
      const to =
        event.key === 'ArrowRight' ? (i + 1) % tabs.length
        : event.key === 'ArrowLeft' ? (i + tabs.length - 1) % tabs.length
        : event.key === 'Home' ? 0
        : event.key === 'End' ? tabs.length - 1
        : -1;
      if (to < 0) return;
      event.preventDefault();
      vc.selectTab(tabs[to]!.dataset.tab as MenuTab);
      tabs[to]!.focus();
    });
    this.listen(window);
  }

  // The swipe and Escape, in the page and in the pages' frames of our own origin.
  listen(target: Window): void {
    target.addEventListener('keydown', (event) => {
      if (!this.isShown || event.key !== 'Escape' || event.defaultPrevented) return;
      // A panel over the menu takes its own Escape.
      if ((event.target as Element | null)?.closest?.('dialog')) return;
      event.preventDefault();
      event.stopPropagation();
      this.vc?.backGesture();
    }, true);
    target.addEventListener('pointerdown', (event) => {
      if (!event.isPrimary || event.button !== 0 || !this.isShown) return;
      if (target === window && !this.screen.contains(event.target as Node)) return;
      this.swipe = { x: event.clientX, y: event.clientY, time: event.timeStamp, pointerId: event.pointerId };
    });
    target.addEventListener('pointerup', (event) => {
      const s = this.swipe;
      this.swipe = null;
      if (!s || event.pointerId !== s.pointerId) return;
      const dx = event.clientX - s.x;
      const dy = event.clientY - s.y;
      if (-dx >= kSwipeDistance && Math.abs(dy) <= -dx / 2 && event.timeStamp - s.time <= kSwipeMilliseconds) this.vc?.backGesture();
    });
    target.addEventListener('pointercancel', () => (this.swipe = null));
  }

  // A frame of our own origin gets the same swipe and Escape once it has loaded.
  followFrame(frame: HTMLIFrameElement): void {
    frame.addEventListener('load', () => {
      try {
        const w = frame.contentWindow;
        if (w && w.document) this.listen(w as Window & typeof globalThis);
      } catch {
        // Another origin's page keeps its events to itself.
      }
    });
  }
}

// A moment (ISO 8601) as the reader's own date and time.
function timeElement(iso: string): HTMLTimeElement {
  const time = document.createElement('time');
  time.dateTime = iso;
  const date = new Date(iso);
  time.textContent = Number.isNaN(date.getTime()) ? iso : date.toLocaleString();
  return time;
}

export class SettingsDom implements SettingsView {
  setSegment(control: QualitySwitch, segment: number): void {
    const input = document.querySelector<HTMLInputElement>(`input[name="${control}"][value="${segment}"]`);
    if (input) input.checked = true;
  }
  setResetTitle(title: string): void {
    element('reset-tutorials').textContent = title;
  }
  setVersion(text: string): void {
    element('version-label').textContent = text;
  }
  setUsageCount(count: number): void {
    element('usage-count').textContent =
      count === 0
        ? 'No events are kept on this device. Nothing leaves it.'
        : `${count} event${count === 1 ? ' is' : 's are'} kept on this device, the latest 1000 at most. Nothing leaves it.`;
    element<HTMLButtonElement>('usage-show').disabled = count === 0;
    element<HTMLButtonElement>('usage-clear').disabled = count === 0;
  }
  setUsageList(events: readonly StoredEvent[] | null): void {
    const list = element('usage-list');
    const show = element('usage-show');
    show.setAttribute('aria-expanded', String(events !== null));
    show.textContent = events === null ? 'Show' : 'Hide';
    list.hidden = events === null || events.length === 0;
    list.replaceChildren(
      ...(events ?? []).map((e) => {
        const li = document.createElement('li');
        const time = timeElement(e.time);
        const name = document.createElement('span');
        name.className = 'usage-name';
        name.textContent = e.name;
        li.append(time, name);
        if (e.parameters && Object.keys(e.parameters).length > 0) {
          const params = document.createElement('span');
          params.className = 'usage-params';
          params.textContent = Object.entries(e.parameters)
            .map(([k, v]) => `${k}: ${v}`)
            .join(', ');
          li.append(params);
        }
        return li;
      }),
    );
  }

  setKeptCopies(copies: readonly KeptBackup[]): void {
    element('kept-copies').hidden = copies.length === 0;
    element('kept-list').replaceChildren(
      ...copies.map((c) => {
        const li = document.createElement('li');
        const time = timeElement(c.time);
        const reason = document.createElement('span');
        reason.className = 'usage-params';
        reason.textContent = c.reason;
        const save = document.createElement('button');
        save.className = 'pill';
        save.textContent = 'Save';
        save.dataset.key = c.key;
        save.setAttribute('aria-label', `Save the effect list kept ${time.textContent}`);
        li.append(time, reason, save);
        return li;
      }),
    );
  }

  connect(vc: SettingsVC): void {
    element('kept-list').addEventListener('click', (event) => {
      const key = (event.target as HTMLElement).closest<HTMLElement>('button[data-key]')?.dataset.key;
      if (key) vc.saveKeptCopy(key);
    });
    for (const name of ['frameQualitySwitch', 'saveQualitySwitch'] as const) {
      element(name).addEventListener('change', (event) => {
        const input = event.target as HTMLInputElement;
        vc.resolutionAction(name, Number(input.value));
      });
    }
    element('reset-tutorials').addEventListener('click', () => vc.resetTutorialsActio());
    element('usage-show').addEventListener('click', () => vc.toggleUsageList());
    element('usage-clear').addEventListener('click', () => vc.clearUsageData());
  }
}

export class LinksDom implements LinksView {
  private readonly table = element<HTMLUListElement>('links-table');

  setRows(rows: readonly MenuItem[]): void {
    this.table.replaceChildren(
      ...rows.map((row, i) => {
        const li = document.createElement('li');
        const a = document.createElement('a');
        a.className = 'link-cell';
        a.href = row.href;
        a.target = '_blank';
        a.rel = 'noopener';
        a.dataset.row = String(i);
        const icon = document.createElement('span');
        icon.className = 'link-icon';
        icon.innerHTML = (row.image && linkImages[row.image]) || '';
        const text = document.createElement('span');
        text.className = 'link-text';
        const title = document.createElement('span');
        title.className = 'link-title';
        title.textContent = row.title;
        const sub = document.createElement('span');
        sub.className = 'link-subtitle';
        sub.textContent = row.subTitle ?? '';
        text.append(title, sub);
        const chevron = document.createElement('span');
        chevron.className = 'link-chevron';
        chevron.innerHTML = menuIcons.chevron;
        a.append(icon, text, chevron);
        li.append(a);
        return li;
      }),
    );
  }

  // A tap runs the row's completion, which opens what the row leads to.
  connect(vc: LinksVC): void {
    this.table.addEventListener('click', (event) => {
      const a = (event.target as HTMLElement).closest<HTMLAnchorElement>('.link-cell');
      if (!a) return;
      event.preventDefault();
      vc.rowTapped(Number(a.dataset.row));
    });
  }
}

export class AboutDom {
  // Our own page, as text, over the page's dark background.
  load(): void {
    element<HTMLIFrameElement>('about-frame').srcdoc = aboutPage;
  }
}

export class UsersGuideDom implements UsersGuideView {
  private readonly frame = element<HTMLIFrameElement>('guide-frame');

  // Our own page, made by the build with its pictures, over a light background.
  load(): void {
    this.frame.srcdoc = userGuide;
  }
  scrollToTop(animated: boolean): void {
    this.frame.contentWindow?.scrollTo({ top: 0, behavior: animated ? 'smooth' : 'instant' });
  }
}

export class MailingListDom implements MailingListView {
  private readonly frame = element<HTMLIFrameElement>('mailing-frame');

  setBusy(busy: boolean): void {
    element('mailing-busy').hidden = !busy;
  }
  load(url: string): void {
    this.frame.hidden = false;
    this.frame.src = url;
  }
  showFailure(text: string | null): void {
    element('mailing-failure').hidden = text === null;
    element('mailing-failure-text').textContent = text ?? '';
    if (text !== null) {
      this.frame.hidden = true;
      this.frame.removeAttribute('src');
    }
  }

  // A page of our own origin that loaded can be read; the browser's error page can't.
  connect(vc: MailingListVC): void {
    this.frame.addEventListener('load', () => {
      if (!this.frame.getAttribute('src')) return;
      let readable = false;
      try {
        readable = this.frame.contentDocument !== null && this.frame.contentDocument.URL !== 'about:blank';
      } catch {
        readable = false;
      }
      if (readable) vc.webViewDidFinishNavigation();
      else vc.webViewDidFailNavigation();
    });
    element('mailing-retry').addEventListener('click', () => void vc.load());
  }
}
