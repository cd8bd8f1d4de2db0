// The look's controls on the page: a small bar over the picture in edit mode with the seed, "Copy
// link", and "Use this look" while a picked picture's look is on offer. Made here rather than in the
// page's markup, so that it stays one piece.
import { Mode } from '../camera-inteface-vc';
import type { LookController, LookView } from '../look-controller';
import './look.css';

export class LookDom implements LookView {
  readonly bar = document.createElement('div');
  private readonly seed = document.createElement('span');
  private readonly copy = document.createElement('button');
  private readonly use = document.createElement('button');

  constructor(
    private readonly holder: HTMLElement,
    private readonly main: HTMLElement,
    private readonly slider: HTMLInputElement | null,
  ) {
    this.bar.id = 'look-bar';
    this.bar.className = 'look-bar';
    this.seed.id = 'look-seed';
    this.seed.className = 'look-seed';
    this.seed.title = 'The seed of the control values';
    this.copy.id = 'copy-link';
    this.copy.className = 'look-button';
    this.copy.textContent = 'Copy link';
    this.copy.title = 'Copy a link that carries this look';
    this.use.id = 'use-look';
    this.use.className = 'look-button primary';
    this.use.textContent = 'Use this look';
    this.use.hidden = true;
    this.bar.append(this.seed, this.use, this.copy);
    this.holder.append(this.bar);
  }

  connect(controller: LookController): void {
    this.copy.addEventListener('click', () => void controller.copyLink());
    this.use.addEventListener('click', () => void controller.useOfferedLook());
    // The main screen marks its mode on its element.
    new MutationObserver(() => controller.modeChanged(this.main.dataset.mode === 'edit' ? Mode.edit : Mode.photo)).observe(
      this.main,
      { attributes: true, attributeFilter: ['data-mode'] },
    );
  }

  setOfferShown(shown: boolean): void {
    this.use.hidden = !shown;
  }
  setSeedText(text: string): void {
    this.seed.textContent = text;
  }
  setOpacity(value: number): void {
    if (this.slider) this.slider.value = String(value);
  }
  async copyText(text: string): Promise<boolean> {
    try {
      await navigator.clipboard.writeText(text);
      return true;
    } catch {
      return false;
    }
  }
  showLink(url: string): void {
    window.prompt('Copy this link', url);
  }
}
