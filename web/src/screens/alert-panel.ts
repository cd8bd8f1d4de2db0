// The app's own alert panel: a heading, a rule, a body and up to two stacked buttons on a centred
// panel over everything. Panels stack: each new one goes on top, all are kept in `alerts` while they
// show, and they close in any order. A body can be shown once ever: the panel remembers it in the user
// defaults, under the body followed by "-defaultsKey". The panel decides; an AlertPanelView shows.
import type { PageDefaults } from '../platform/defaults';

export interface AlertPanelContent {
  heading: string;
  body: string;
  // Null: no such button.
  cancelTitle: string | null;
  actionTitle: string | null;
}

export interface AlertPanelView {
  // Puts the panel over everything with its entrance: the panel fades in over 0.25 s, then the rule
  // grows to full width and the buttons fade in over 0.5 s. The taps go to the two handlers; Escape
  // goes to `cancel`.
  show(content: AlertPanelContent, handlers: { cancel: () => void; action: () => void }): void;
  // Fades the panel out while it shrinks to half its size over 0.125 s, then takes it off the page.
  dismiss(done: () => void): void;
}

export interface AlertPanelEnvironment {
  defaults: Pick<PageDefaults, 'boolForKey' | 'setBool'>;
  makeView: () => AlertPanelView;
}

export const kEntranceSeconds = 0.25;
export const kRuleSeconds = 0.5;
export const kDismissSeconds = 0.125;

const onceKey = (body: string) => `${body}-defaultsKey`;

let environment: AlertPanelEnvironment | null = null;

export class ZorvexAlertVC {
  // The panels on show, oldest first; a panel stays here until its dismissal has ended.
  static readonly alerts: ZorvexAlertVC[] = [];

  static configure(env: AlertPanelEnvironment | null): void {
    environment = env;
  }

  // Shows a panel; null when `once` finds this body shown before. Button titles are always in capitals.
  static present(
    heading: string,
    body: string,
    cancelTitle: string | null,
    actionTitle: string | null,
    once: boolean,
    action: (() => void) | null,
    uppercase: boolean,
  ): ZorvexAlertVC | null {
    if (!environment) throw new Error('the alert panel has no environment');
    if (once) {
      if (environment.defaults.boolForKey(onceKey(body))) return null;
      environment.defaults.setBool(true, onceKey(body));
    }
    const panel = new ZorvexAlertVC(environment.makeView(), action);
    panel.content = {
      heading: uppercase ? heading.toUpperCase() : heading,
      body: uppercase ? body.toUpperCase() : body,
      cancelTitle: cancelTitle === null ? null : cancelTitle.toUpperCase(),
      actionTitle: actionTitle === null ? null : actionTitle.toUpperCase(),
    };
    panel.view.show(panel.content, { cancel: () => panel.cancelTapped(), action: () => panel.actionTapped() });
    ZorvexAlertVC.alerts.push(panel);
    return panel;
  }

  content: AlertPanelContent = { heading: '', body: '', cancelTitle: null, actionTitle: null };
  // Told once the panel has left the page, however it was closed.
  onDismissed: (() => void) | null = null;
  private dismissing = false;
  private acted = false;

  private constructor(
    readonly view: AlertPanelView,
    readonly buttonAction: (() => void) | null,
  ) {}

  cancelTapped(): void {
    this.dismiss();
  }

  // The dismissal starts after this turn; the action runs now, while the tap still counts as the
  // user's (a link it opens is not taken for a popup).
  actionTapped(): void {
    if (this.dismissing || this.acted) return;
    this.acted = true;
    queueMicrotask(() => this.dismiss());
    this.buttonAction?.();
  }

  dismiss(): void {
    if (this.dismissing) return;
    this.dismissing = true;
    this.view.dismiss(() => {
      const i = ZorvexAlertVC.alerts.indexOf(this);
      if (i >= 0) ZorvexAlertVC.alerts.splice(i, 1);
      this.onDismissed?.();
    });
  }
}
