// The platform's plain alert, as the page's modal dialog: a title, a message, a button that closes it
// and, when both its title and its completion are given, a second one that runs the completion.
import type { SystemAlertOptions } from '../effects-arrange-vc';

export const SystemAlert = {
  present(alert: SystemAlertOptions): void {
    const dialog = document.getElementById('system-alert') as HTMLDialogElement | null;
    if (!dialog) throw new Error('the page has no #system-alert');
    if (dialog.open) dialog.close();
    const title = dialog.querySelector('h2')!;
    title.textContent = alert.title;
    title.hidden = alert.title === '';
    dialog.querySelector('p')!.textContent = alert.message;
    const buttons = dialog.querySelector('.system-alert-buttons')!;
    buttons.replaceChildren();
    const add = (label: string, run?: () => void) => {
      const b = document.createElement('button');
      b.className = 'system-alert-button';
      b.textContent = label;
      b.addEventListener('click', () => {
        dialog.close();
        run?.();
      });
      buttons.append(b);
    };
    add(alert.cancelTitle);
    if (alert.otherButtonTitle !== undefined && alert.otherButtonCompletion)
      add(alert.otherButtonTitle, alert.otherButtonCompletion);
    dialog.showModal();
  },
};
