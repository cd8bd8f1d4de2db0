// Our walkthrough: a tour is a list of steps, each a text bubble that may point at one control, over
// the dimmed screen with a cut-out around that control. A tap (or Enter, Space, →) goes to the next
// step, Escape ends the tour, and a step left alone goes on by itself after a while. The screen that
// provides a tour makes its steps when the tour starts. The runner decides; a WalkthroughView draws.
import type { KeyValueStorage } from '../platform/storage';

export interface Rect {
  x: number;
  y: number;
  width: number;
  height: number;
}

export interface Size {
  width: number;
  height: number;
}

// Something on the screen a step points at: where it is now, or null when it is not on show.
export interface Anchor {
  rect(): Rect | null;
}

// Where the bubble goes: beside the control (above or below it, pointing at it), or over its middle,
// for a control as large as the picture.
export enum TextLocation {
  beside = 0,
  over = 1,
}

export type Content = string;

export interface HighlightedItem {
  kind: 'highlighted';
  highlightedArea: Anchor;
  textLocation: TextLocation;
  content: Content;
  needsInteraction: boolean;
}

export interface StandaloneItem {
  kind: 'standalone';
  content: Content;
  needsInteraction: boolean;
}

export type WalkthroughItem = HighlightedItem | StandaloneItem;

export const highlighted = (highlightedArea: Anchor, textLocation: TextLocation, content: Content): HighlightedItem => ({
  kind: 'highlighted',
  highlightedArea,
  textLocation,
  content,
  needsInteraction: false,
});

export const standalone = (content: Content): StandaloneItem => ({ kind: 'standalone', content, needsInteraction: false });

// A screen that offers a tour; its steps are made when asked. `walkthroughId` names it in the
// walkthrough's memory of completed tours.
export interface WalkthroughProvider {
  readonly walkthroughId: string;
  walkthroughItems(): WalkthroughItem[];
}

// A screen's listener of the tour's progress.
export interface WalkthroughDelegate {
  walkthroughDidShowStep?(index: number): void;
}

export interface WalkthroughSettings {
  stepAnimationDuration: number; // seconds
  highlightingOffset: { x: number; y: number };
  automaticWalkthroughDelaySeconds: number;
  minLabelHorizontalMargin: number;
  preferredBubbleMaxLayoutWidth: number | null;
  presentationMode: { dimming: string; alpha: number };
}

export interface BubbleStyle {
  textColor: string;
  backgroundColor: string;
  shadowStyle: string | null;
  cornerRadius: number;
  textInsets: { top: number; left: number; bottom: number; right: number };
  yOffsetToHighlightedArea: number;
  arrowSize: Size;
}

// The settings and the bubble style all tours share, made on first use.
let sharedSettings: WalkthroughSettings | null = null;
let sharedStyle: BubbleStyle | null = null;

export const WalkthroughHelper = {
  get settings(): WalkthroughSettings {
    sharedSettings ??= {
      stepAnimationDuration: 0.5,
      highlightingOffset: { x: 0, y: 0 },
      automaticWalkthroughDelaySeconds: 10,
      minLabelHorizontalMargin: 20,
      preferredBubbleMaxLayoutWidth: null,
      presentationMode: { dimming: 'black', alpha: 0.74 },
    };
    return sharedSettings;
  },
  get style(): BubbleStyle {
    sharedStyle ??= {
      textColor: 'black',
      backgroundColor: 'white',
      shadowStyle: null,
      cornerRadius: 10,
      textInsets: { top: 30, left: 20, bottom: 30, right: 20 },
      yOffsetToHighlightedArea: -10,
      arrowSize: { width: 20, height: 20 },
    };
    return sharedStyle;
  },
};

// The widest a bubble grows when the settings set no width of their own.
export const kDefaultBubbleMaxWidth = 340;
// The least room kept between a bubble and the window's top and bottom edges.
export const kVerticalMargin = 8;

export interface StepLayout {
  // The cut-out of the dimming; null for a step with no control.
  hole: Rect | null;
  bubble: Rect;
  // The arrow on the bubble's top edge (the bubble below the control) or its bottom edge, at `x` from
  // the bubble's left; null when the bubble points at nothing.
  arrow: { edge: 'top' | 'bottom'; x: number } | null;
}

// The widest the bubble may be in a window this wide.
export function bubbleMaxWidth(viewport: Size, settings: WalkthroughSettings): number {
  const preferred = settings.preferredBubbleMaxLayoutWidth ?? kDefaultBubbleMaxWidth;
  return Math.max(0, Math.min(preferred, viewport.width - 2 * settings.minLabelHorizontalMargin));
}

const clamp = (v: number, lo: number, hi: number) => Math.max(lo, Math.min(hi, v));

// Where a step's cut-out, bubble and arrow go in the window, for a bubble of `bubble` size. The bubble
// stays inside the window; beside a control it goes below it when it fits there, else above, else on
// the side with more room.
export function layoutStep(
  item: WalkthroughItem,
  anchor: Rect | null,
  viewport: Size,
  bubble: Size,
  settings: WalkthroughSettings,
  style: BubbleStyle,
): StepLayout {
  const margin = settings.minLabelHorizontalMargin;
  const w = Math.min(bubble.width, Math.max(0, viewport.width - 2 * margin));
  const h = bubble.height;
  const clampX = (x: number) => clamp(x, margin, Math.max(margin, viewport.width - margin - w));
  const clampY = (y: number) => clamp(y, kVerticalMargin, Math.max(kVerticalMargin, viewport.height - kVerticalMargin - h));
  const centred = (): StepLayout => ({
    hole: null,
    bubble: { x: clampX((viewport.width - w) / 2), y: clampY((viewport.height - h) / 2), width: w, height: h },
    arrow: null,
  });
  if (item.kind === 'standalone' || !anchor) return centred();

  const { x: ox, y: oy } = settings.highlightingOffset;
  const hole = { x: anchor.x - ox, y: anchor.y - oy, width: anchor.width + 2 * ox, height: anchor.height + 2 * oy };
  const centreX = hole.x + hole.width / 2;
  if (item.textLocation === TextLocation.over) {
    const y = clampY(hole.y + (hole.height - h) / 2);
    return { hole, bubble: { x: clampX(centreX - w / 2), y, width: w, height: h }, arrow: null };
  }

  // The arrow's tip lies `yOffsetToHighlightedArea` past the control's edge; the bubble starts an
  // arrow's height further on.
  const reach = style.arrowSize.height + style.yOffsetToHighlightedArea;
  const belowY = hole.y + hole.height + reach;
  const aboveY = hole.y - reach - h;
  const fitsBelow = belowY + h <= viewport.height - kVerticalMargin;
  const fitsAbove = aboveY >= kVerticalMargin;
  const roomBelow = viewport.height - (hole.y + hole.height);
  const below = fitsBelow || (!fitsAbove && roomBelow >= hole.y);
  const x = clampX(centreX - w / 2);
  const y = clampY(below ? belowY : aboveY);
  const inset = style.cornerRadius + style.arrowSize.width / 2;
  const arrowX = clamp(centreX - x, inset, Math.max(inset, w - inset));
  return { hole, bubble: { x, y, width: w, height: h }, arrow: { edge: below ? 'top' : 'bottom', x: arrowX } };
}

export interface WalkthroughView {
  // The bubble's size for this text at most `maxWidth` wide, insets included.
  measureBubble(text: string, maxWidth: number, style: BubbleStyle): Size;
  viewport(): Size;
  // Puts up the dimming (on the first step) and shows the step; `animated` moves from the last one.
  showStep(layout: StepLayout, text: string, index: number, count: number, animated: boolean, settings: WalkthroughSettings, style: BubbleStyle): void;
  // Takes the tour off the screen.
  close(): void;
}

export interface Timers {
  set(run: () => void, ms: number): unknown;
  clear(handle: unknown): void;
}

const browserTimers: Timers = {
  set: (run, ms) => setTimeout(run, ms),
  clear: (handle) => clearTimeout(handle as ReturnType<typeof setTimeout>),
};

export interface StartOptions {
  withSettings: WalkthroughSettings;
  style: BubbleStyle;
  delegate: WalkthroughDelegate | null;
  showEvenIfItHasAlreadyBeenCompleted: boolean;
  completion: (() => void) | null;
}

interface Run {
  provider: WalkthroughProvider;
  items: WalkthroughItem[];
  options: StartOptions;
  index: number;
}

export const kCompletedToursKey = 'zorvex.walkthroughs.completed';

export class Walkthrough {
  private run: Run | null = null;
  private readonly waiting: { provider: WalkthroughProvider; options: StartOptions }[] = [];
  private timer: unknown = null;

  constructor(
    private readonly view: WalkthroughView,
    private readonly memory: KeyValueStorage,
    private readonly timers: Timers = browserTimers,
  ) {}

  get isRunning(): boolean {
    return this.run !== null;
  }

  get currentIndex(): number | null {
    return this.run?.index ?? null;
  }

  // Starts the provider's tour; one asked for while another runs follows it. A tour completed before
  // is shown again only when asked to. False when nothing is shown.
  startWalkthrough(provider: WalkthroughProvider, options: StartOptions): boolean {
    if (!options.showEvenIfItHasAlreadyBeenCompleted && this.completed().includes(provider.walkthroughId)) return false;
    if (this.run) {
      this.waiting.push({ provider, options });
      return true;
    }
    const items = provider.walkthroughItems();
    if (items.length === 0) return false;
    this.run = { provider, items, options, index: 0 };
    this.show(false);
    return true;
  }

  // The next step, or the end after the last.
  next(): void {
    const run = this.run;
    if (!run) return;
    if (run.index + 1 >= run.items.length) {
      this.finish();
      return;
    }
    run.index += 1;
    this.show(true);
  }

  // Escape: the tour ends where it stands.
  end(): void {
    if (this.run) this.finish();
  }

  // The window changed: the step is laid out anew where its control now is.
  relayout(): void {
    if (this.run) this.show(false, false);
  }

  private show(animated: boolean, restartTimer = true): void {
    const run = this.run!;
    const item = run.items[run.index]!;
    const { withSettings: settings, style } = run.options;
    const viewport = this.view.viewport();
    const size = this.view.measureBubble(item.content, bubbleMaxWidth(viewport, settings), style);
    const anchor = item.kind === 'highlighted' ? item.highlightedArea.rect() : null;
    const layout = layoutStep(item, anchor, viewport, size, settings, style);
    this.view.showStep(layout, item.content, run.index, run.items.length, animated, settings, style);
    if (!restartTimer) return;
    run.options.delegate?.walkthroughDidShowStep?.(run.index);
    if (this.timer !== null) this.timers.clear(this.timer);
    this.timer = this.timers.set(() => {
      this.timer = null;
      this.next();
    }, settings.automaticWalkthroughDelaySeconds * 1000);
  }

  private finish(): void {
    const run = this.run!;
    this.run = null;
    if (this.timer !== null) this.timers.clear(this.timer);
    this.timer = null;
    this.view.close();
    this.remember(run.provider.walkthroughId);
    run.options.completion?.();
    const next = this.waiting.shift();
    if (next) this.startWalkthrough(next.provider, next.options);
  }

  private completed(): string[] {
    try {
      const parsed: unknown = JSON.parse(this.memory.getItem(kCompletedToursKey) ?? '[]');
      return Array.isArray(parsed) ? parsed.filter((x): x is string => typeof x === 'string') : [];
    } catch {
      return [];
    }
  }

  private remember(id: string): void {
    const done = this.completed();
    if (done.includes(id)) return;
    try {
      this.memory.setItem(kCompletedToursKey, JSON.stringify([...done, id]));
    } catch {
      // A full storage forgets the tour; the flags of the settings decide anyway.
    }
  }
}
