// The menu: the door from the main screen to the pages about the app. It sweeps in from the left over
// the main screen and goes out the same way (its back button, a swipe to the left, Escape); its pages
// are tabs. While it covers the main screen, the main screen's live frames stop; they start again when
// it leaves in photo mode, with the frame quality the settings page left.
export type MenuTab = 'settings' | 'guide' | 'links' | 'about' | 'mailingList';

export const kMenuTabs: readonly { tab: MenuTab; title: string }[] = [
  { tab: 'settings', title: 'Settings' },
  { tab: 'guide', title: 'Guide' },
  { tab: 'links', title: 'Links' },
  { tab: 'about', title: 'About' },
  { tab: 'mailingList', title: 'Mailing List' },
];

export const kMenuSlideSeconds = 0.1;

// A page of the menu, told when it comes into view.
export interface MenuPage {
  viewWillAppear(): void;
}

export interface MainMenuView {
  // Slides the menu in from the left (0.1 s, ease-in-ease-out) over the main screen.
  present(): void;
  // Slides it out to the left the same way; `done` when it is gone.
  dismiss(done: () => void): void;
  selectTab(tab: MenuTab): void;
}

// What the menu asks of the main screen it covers.
export interface CoveredScreen {
  viewWillAppear(): void;
  viewDidAppear(launchCount: number): void;
  viewDidDisappear(): void;
}

export interface MainMenuParts {
  view: MainMenuView;
  main: CoveredScreen;
  pages: Partial<Record<MenuTab, MenuPage>>;
  launchCount: () => number;
}

export class MainMenuVC {
  selectedTab: MenuTab = 'settings';
  isOpen = false;

  constructor(private readonly parts: MainMenuParts) {}

  // By the main screen's menu button (which logs "about").
  open(): void {
    if (this.isOpen) return;
    this.isOpen = true;
    this.parts.view.selectTab(this.selectedTab);
    this.parts.view.present();
    this.parts.pages[this.selectedTab]?.viewWillAppear();
    this.parts.main.viewDidDisappear();
  }

  backTapped(): void {
    this.closeMenu();
  }

  backGesture(): void {
    this.closeMenu();
  }

  // The main screen is told it appears as the menu starts to leave, and that it has appeared once the
  // menu is gone. A menu that is not open does nothing.
  closeMenu(): void {
    if (!this.isOpen) return;
    this.isOpen = false;
    const main = this.parts.main;
    main.viewWillAppear();
    this.parts.view.dismiss(() => main.viewDidAppear(this.parts.launchCount()));
  }

  selectTab(tab: MenuTab): void {
    if (tab === this.selectedTab) return;
    this.selectedTab = tab;
    this.parts.view.selectTab(tab);
    if (this.isOpen) this.parts.pages[tab]?.viewWillAppear();
  }
}
