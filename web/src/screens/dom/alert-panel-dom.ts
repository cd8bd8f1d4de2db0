// The alert panel in the page: a modal <dialog> over the whole window (so the page under it takes no
// input), with the panel centred in it. Each panel is its own dialog, so panels stack in the order
// they come; the focus goes into the newest and, when it closes, back to where it was.
import {
  kDismissSeconds,
  kEntranceSeconds,
  kRuleSeconds,
  type AlertPanelContent,
  type AlertPanelView,
} from '../alert-panel';
import './alert-panel.css';

let panelCount = 0;

export class AlertPanelDom implements AlertPanelView {
  private dialog: HTMLDialogElement | null = null;
  private returnFocus: Element | null = null;

  show(content: AlertPanelContent, handlers: { cancel: () => void; action: () => void }): void {
    const id = `zorvex-alert-${++panelCount}`;
    const dialog = document.createElement('dialog');
    dialog.className = 'zorvex-alert';
    dialog.setAttribute('role', 'alertdialog');
    dialog.setAttribute('aria-labelledby', `${id}-heading`);
    dialog.setAttribute('aria-describedby', `${id}-body`);
    const panel = document.createElement('div');
    panel.className = 'zorvex-alert-panel';
    panel.tabIndex = -1;
    const heading = document.createElement('h2');
    heading.id = `${id}-heading`;
    heading.className = 'zorvex-alert-heading';
    heading.textContent = content.heading;
    const rule = document.createElement('div');
    rule.className = 'zorvex-alert-rule';
    const body = document.createElement('p');
    body.id = `${id}-body`;
    body.className = 'zorvex-alert-body';
    body.textContent = content.body;
    const buttons = document.createElement('div');
    buttons.className = 'zorvex-alert-buttons';
    const button = (title: string, kind: string, run: () => void) => {
      const b = document.createElement('button');
      b.className = `zorvex-alert-button ${kind}`;
      b.textContent = title;
      b.addEventListener('click', run);
      buttons.append(b);
      return b;
    };
    const action = content.actionTitle === null ? null : button(content.actionTitle, 'action', handlers.action);
    const cancel = content.cancelTitle === null ? null : button(content.cancelTitle, 'cancel', handlers.cancel);
    panel.append(heading, rule, body, buttons);
    dialog.append(panel);

    // Escape asks the panel to close, as its cancel button does; the page's own keys never see a key
    // pressed on a panel.
    dialog.addEventListener('cancel', (event) => {
      event.preventDefault();
      handlers.cancel();
    });
    dialog.addEventListener('keydown', (event) => event.stopPropagation());
    // Closed by the browser itself (a second Escape in a row): off the page at once.
    dialog.addEventListener('close', () => this.remove());

    this.returnFocus = document.activeElement;
    this.dialog = dialog;
    document.body.append(dialog);
    dialog.showModal();
    (action ?? cancel ?? panel).focus();

    dialog.animate([{ opacity: 0 }, { opacity: 1 }], { duration: kEntranceSeconds * 1000, easing: 'ease-out' });
    const later = { duration: kRuleSeconds * 1000, delay: kEntranceSeconds * 1000, fill: 'backwards' as const, easing: 'ease-out' };
    rule.animate([{ transform: 'scaleX(0)' }, { transform: 'scaleX(1)' }], later);
    buttons.animate([{ opacity: 0 }, { opacity: 1 }], later);
  }

  dismiss(done: () => void): void {
    const dialog = this.dialog;
    if (!dialog || !dialog.isConnected) {
      done();
      return;
    }
    const fade = dialog.animate([{ opacity: 1, transform: 'scale(1)' }, { opacity: 0, transform: 'scale(0.5)' }], {
      duration: kDismissSeconds * 1000,
      easing: 'ease-in',
      fill: 'forwards',
    });
    let finished = false;
    const finish = () => {
      if (finished) return;
      finished = true;
      this.remove();
      done();
    };
    fade.finished.then(finish, finish);
    // A page in the background runs no animations: the panel goes all the same.
    setTimeout(finish, kDismissSeconds * 1000 + 100);
  }

  private remove(): void {
    const dialog = this.dialog;
    if (!dialog?.isConnected) return;
    const hadFocus = dialog.contains(document.activeElement);
    if (dialog.open) dialog.close();
    dialog.remove();
    if (!hadFocus && document.activeElement !== document.body && document.activeElement !== null) return;
    // The focus goes to the panel still on top, else back to where it was before this one.
    const top = [...document.querySelectorAll<HTMLDialogElement>('dialog.zorvex-alert[open]')].at(-1);
    const back = top?.querySelector<HTMLElement>('.zorvex-alert-button') ?? (this.returnFocus as HTMLElement | null);
    if (back?.isConnected) back.focus({ preventScroll: true });
  }
}
