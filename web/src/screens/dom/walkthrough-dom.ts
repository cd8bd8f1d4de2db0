// The walkthrough in the page: a layer over everything but the alert panels, dimmed around a cut-out
// that follows the step's control, and the bubble with its arrow. The bubble is a dialog that takes
// the focus while the tour runs and gives it back after; taps, Enter, Space and → go on, Escape ends.
import type { Anchor, BubbleStyle, Size, StepLayout, Walkthrough, WalkthroughSettings, WalkthroughView } from '../walkthrough';
import './walkthrough.css';

// A control of the page as a step's anchor; one hidden or not laid out has no place.
export function elementAnchor(find: () => Element | null): Anchor {
  return {
    rect() {
      const e = find();
      if (!e) return null;
      const r = e.getBoundingClientRect();
      return r.width > 0 && r.height > 0 ? { x: r.left, y: r.top, width: r.width, height: r.height } : null;
    },
  };
}

export class WalkthroughDom implements WalkthroughView {
  private readonly layer: HTMLElement;
  private readonly hole: HTMLElement;
  private readonly bubble: HTMLElement;
  private readonly text: HTMLElement;
  private readonly count: HTMLElement;
  private readonly arrow: HTMLElement;
  private readonly skip: HTMLButtonElement;
  private returnFocus: Element | null = null;
  private runner: Walkthrough | null = null;

  constructor() {
    const layer = document.createElement('div');
    layer.className = 'walkthrough';
    layer.hidden = true;
    layer.innerHTML = `
      <div class="walkthrough-hole"></div>
      <div class="walkthrough-bubble" role="dialog" aria-modal="true" aria-labelledby="walkthrough-text" tabindex="-1">
        <p id="walkthrough-text" class="walkthrough-text"></p>
        <div class="walkthrough-footer">
          <span class="walkthrough-count"></span>
          <button class="walkthrough-skip" type="button">Skip tour</button>
        </div>
        <div class="walkthrough-arrow" aria-hidden="true"></div>
      </div>`;
    document.body.append(layer);
    this.layer = layer;
    this.hole = layer.querySelector('.walkthrough-hole')!;
    this.bubble = layer.querySelector('.walkthrough-bubble')!;
    this.text = layer.querySelector('.walkthrough-text')!;
    this.count = layer.querySelector('.walkthrough-count')!;
    this.arrow = layer.querySelector('.walkthrough-arrow')!;
    this.skip = layer.querySelector('.walkthrough-skip')!;
  }

  // ----- WalkthroughView -----

  viewport(): Size {
    return { width: window.innerWidth, height: window.innerHeight };
  }

  measureBubble(text: string, maxWidth: number, style: BubbleStyle): Size {
    this.applyStyle(style);
    const b = this.bubble;
    const shown = !this.layer.hidden;
    this.layer.hidden = false;
    b.style.transition = 'none';
    b.style.width = 'max-content';
    b.style.maxWidth = `${maxWidth}px`;
    const previous = this.text.textContent;
    this.text.textContent = text;
    const r = b.getBoundingClientRect();
    this.text.textContent = previous;
    b.style.width = '';
    b.style.transition = '';
    this.layer.hidden = !shown;
    return { width: Math.ceil(r.width), height: Math.ceil(r.height) };
  }

  showStep(layout: StepLayout, text: string, index: number, count: number, animated: boolean, settings: WalkthroughSettings, style: BubbleStyle): void {
    const first = this.layer.hidden;
    if (first) {
      // Where the focus goes back to; a panel's button would be gone by then.
      const active = document.activeElement;
      this.returnFocus = active?.closest('dialog') ? null : active;
      this.layer.hidden = false;
    }
    this.applyStyle(style);
    const ms = settings.stepAnimationDuration * 1000;
    this.layer.style.setProperty('--walkthrough-step', `${animated ? ms : 0}ms`);
    this.layer.style.setProperty('--walkthrough-dim', `rgba(0, 0, 0, ${settings.presentationMode.alpha})`);
    const hole = layout.hole ?? { x: layout.bubble.x + layout.bubble.width / 2, y: layout.bubble.y + layout.bubble.height / 2, width: 0, height: 0 };
    Object.assign(this.hole.style, { left: `${hole.x}px`, top: `${hole.y}px`, width: `${hole.width}px`, height: `${hole.height}px` });
    this.hole.classList.toggle('none', layout.hole === null);
    const b = this.bubble;
    Object.assign(b.style, { left: `${layout.bubble.x}px`, top: `${layout.bubble.y}px`, width: `${layout.bubble.width}px`, maxWidth: '' });
    this.text.textContent = text;
    this.count.textContent = `${index + 1} / ${count}`;
    this.arrow.hidden = layout.arrow === null;
    if (layout.arrow) {
      this.arrow.dataset.edge = layout.arrow.edge;
      this.arrow.style.left = `${layout.arrow.x - style.arrowSize.width / 2}px`;
    }
    if (first) {
      this.layer.animate([{ opacity: 0 }, { opacity: 1 }], { duration: ms, easing: 'ease-out' });
    } else if (animated) {
      this.text.animate([{ opacity: 0 }, { opacity: 1 }], { duration: ms, easing: 'ease-out' });
    }
    this.takeFocus();
  }

  // The bubble takes the focus; while a panel still covers the page (the welcome that started the
  // tour is on its way out) it can't, so it tries again on the next frames.
  private takeFocus(tries = 60): void {
    if (this.layer.hidden || document.activeElement === this.bubble) return;
    this.bubble.focus({ preventScroll: true });
    if (document.activeElement !== this.bubble && tries > 0) requestAnimationFrame(() => this.takeFocus(tries - 1));
  }

  close(): void {
    this.layer.hidden = true;
    const back = this.returnFocus as HTMLElement | null;
    this.returnFocus = null;
    if (back?.isConnected && typeof back.focus === 'function') back.focus({ preventScroll: true });
  }

  // ----- Events -----

  connect(runner: Walkthrough): void {
    this.runner = runner;
    this.layer.addEventListener('click', (event) => {
      if ((event.target as Element).closest('.walkthrough-skip')) runner.end();
      else runner.next();
    });
    // While a tour runs the page's own keys wait; a panel over the tour keeps its keys.
    document.addEventListener(
      'keydown',
      (event) => {
        if (!runner.isRunning || (event.target as Element | null)?.closest?.('dialog')) return;
        const onSkip = event.target === this.skip;
        switch (event.key) {
          case 'Escape':
            runner.end();
            break;
          case 'Enter':
          case ' ':
            if (onSkip) runner.end();
            else runner.next();
            break;
          case 'ArrowRight':
            runner.next();
            break;
          case 'Tab':
            (onSkip ? this.bubble : this.skip).focus();
            break;
          default:
            if (event.ctrlKey || event.metaKey || event.altKey) return;
            break; // any other key is swallowed, so that no control under the tour acts
        }
        event.preventDefault();
        event.stopPropagation();
      },
      true,
    );
    window.addEventListener('resize', () => this.runner?.relayout());
  }

  private applyStyle(style: BubbleStyle): void {
    const b = this.bubble.style;
    b.color = style.textColor;
    b.background = style.backgroundColor;
    b.borderRadius = `${style.cornerRadius}px`;
    b.padding = `${style.textInsets.top}px ${style.textInsets.right}px ${style.textInsets.bottom}px ${style.textInsets.left}px`;
    b.boxShadow = style.shadowStyle ?? 'none';
    this.arrow.style.width = `${style.arrowSize.width}px`;
    this.arrow.style.height = `${style.arrowSize.height}px`;
    this.arrow.style.background = style.backgroundColor;
    this.layer.style.setProperty('--walkthrough-arrow-height', `${style.arrowSize.height}px`);
  }
}
