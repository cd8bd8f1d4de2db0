// The Arrange screen in the page's DOM: the holder of the lent picture, the table and its header, the
// save panel, and the user's taps, drags, keys and swipes, which go to the EffectsArrangeVC.
//
// A row moves by its grip (≡) with a finger or the mouse, or, with the mouse, by dragging the row
// itself; the other rows make room while it moves, and the list scrolls near its edges. From the
// keyboard the rows take the focus one at a time (↑ ↓ Home End go from row to row), Space or Enter
// switches the focused row, Alt+↑ and Alt+↓ move it one place, and Delete (or Backspace) on a preset
// asks to delete it. Escape closes the question, the panel or the screen. A swipe to the right goes
// back, as Done does.
import type { Axis } from '../camera-inteface-vc';
import type { ArrangeRow, EffectsArrangeVC, EffectsArrangeView, SystemAlertOptions } from '../effects-arrange-vc';
import { icons } from './icons';
import type { PictureCanvas } from './main-screen-dom';
import { SystemAlert } from './system-alert';

const kDragSlop = 8; // pixels a mouse moves a row vertically before the row follows it
const kSwipeDistance = 80; // pixels to the right that go back
const kSwipeMilliseconds = 700;
const kEdgeScroll = 48; // pixels from the list's edge where a drag scrolls it
const kPanelFadeMilliseconds = 250;
const kSlideMilliseconds = 300;

function element<T extends HTMLElement>(id: string): T {
  const e = document.getElementById(id);
  if (!e) throw new Error(`the page has no #${id}`);
  return e as T;
}

interface Drag {
  row: HTMLLIElement;
  pointerId: number;
  from: number;
  to: number;
  startY: number;
  lastY: number;
  startScroll: number;
  height: number;
  frame: number;
}

interface Press {
  row: HTMLLIElement | null;
  pointerId: number;
  x: number;
  y: number;
  time: number;
}

export class ArrangeScreenDom implements EffectsArrangeView {
  readonly screen = element<HTMLElement>('arrange');
  private readonly main = element<HTMLElement>('main-stack');
  private readonly holder = element<HTMLElement>('arrange-picture');
  private readonly activity = element<HTMLElement>('arrange-activity');
  private readonly list = element<HTMLElement>('arrange-list');
  private readonly rows = element<HTMLUListElement>('arrange-rows');
  private readonly header = element<HTMLElement>('arrange-header');
  private readonly panel = element<HTMLElement>('save-panel');
  private readonly field = element<HTMLInputElement>('preset-name');
  private vc: EffectsArrangeVC | null = null;
  private drag: Drag | null = null;
  private press: Press | null = null; // a pointer down on a row: a tap, a drag or a swipe to come
  private swallowClick = false;
  private focusIndex = 0;
  private panelToken = 0;

  constructor(private readonly picture: PictureCanvas) {
    element('arrange-random').innerHTML = `${icons.dice}<span>Randomize</span>`;
  }

  // ----- EffectsArrangeView -----

  setSavePresetTitle(title: string): void {
    element('save-preset').textContent = title;
  }
  setHeader(text: string): void {
    this.header.textContent = text;
  }

  reloadRows(rows: readonly ArrangeRow[]): void {
    this.endDrag(false); // the rows it was among are gone
    const hadFocus = this.rows.contains(document.activeElement);
    this.rows.replaceChildren(...rows.map((row) => this.makeRow(row)));
    this.focusIndex = Math.min(this.focusIndex, Math.max(0, rows.length - 1));
    this.rove();
    if (hadFocus) this.toggleAt(this.focusIndex)?.focus();
  }

  holdPicture(): void {
    this.holder.prepend(this.picture.canvas);
    this.picture.fit();
  }
  setBusy(busy: boolean): void {
    this.activity.hidden = !busy;
  }

  setSavePanelVisible(visible: boolean, animated: boolean): void {
    const token = ++this.panelToken;
    const panel = this.panel;
    panel.style.transition = animated ? `opacity ${kPanelFadeMilliseconds}ms` : 'none';
    if (visible) {
      panel.style.opacity = '0';
      panel.hidden = false;
      void panel.offsetWidth; // the fade starts from 0
      panel.style.opacity = '1';
      this.field.focus();
      return;
    }
    panel.style.opacity = '0';
    if (!animated) panel.hidden = true;
    else setTimeout(() => token === this.panelToken && (panel.hidden = true), kPanelFadeMilliseconds);
  }
  presetName(): string {
    return this.field.value;
  }
  clearPresetName(): void {
    this.field.value = '';
  }
  resignPresetName(): void {
    this.field.blur();
  }
  presentAlert(alert: SystemAlertOptions): void {
    SystemAlert.present(alert);
  }
  setAxis(axis: Axis, tableWidth: number): void {
    this.screen.classList.toggle('vertical', axis === 'vertical');
    this.screen.classList.toggle('horizontal', axis === 'horizontal');
    this.screen.style.setProperty('--table-width', `${tableWidth}px`);
  }

  // ----- On and off the screen -----

  // On the page, sliding in, or sliding out.
  get isShown(): boolean {
    return !this.screen.hidden;
  }
  // On the page and not leaving it.
  get isPresented(): boolean {
    return this.screen.classList.contains('shown');
  }

  // Slides the screen in over the main screen, which stops taking input meanwhile.
  present(): void {
    this.screen.hidden = false;
    // The main screen and its blend panel take no input while covered (the panel is shut on return).
    this.main.inert = true;
    element('blend-picker-holder').inert = true;
    void this.screen.offsetWidth; // the slide starts from outside
    this.screen.classList.add('shown');
    this.toggleAt(this.focusIndex)?.focus({ preventScroll: true });
  }

  dismiss(done: () => void): void {
    this.screen.classList.remove('shown');
    this.main.inert = false;
    element('effects-arrange').focus({ preventScroll: true });
    setTimeout(() => {
      if (!this.screen.classList.contains('shown')) this.screen.hidden = true;
      done();
    }, kSlideMilliseconds);
  }

  // ----- Rows -----

  private makeRow(row: ArrangeRow): HTMLLIElement {
    const li = document.createElement('li');
    li.className = row.isActive ? 'arrange-row active' : 'arrange-row';
    const toggle = document.createElement('button');
    toggle.className = 'row-toggle';
    toggle.setAttribute('aria-pressed', String(row.isActive));
    toggle.textContent = row.name;
    if (row.deletable) {
      li.classList.add('preset');
      const ask = document.createElement('button');
      ask.className = 'row-delete';
      ask.tabIndex = -1;
      ask.setAttribute('aria-label', `Delete ${row.name}`);
      ask.innerHTML = icons.minus;
      const confirm = document.createElement('button');
      confirm.className = 'row-confirm';
      confirm.tabIndex = -1;
      confirm.textContent = 'Delete';
      li.append(ask, toggle, confirm);
    } else {
      li.append(toggle);
    }
    const grip = document.createElement('span');
    grip.className = 'row-grip';
    grip.setAttribute('aria-hidden', 'true');
    grip.innerHTML = icons.grip;
    li.append(grip);
    return li;
  }

  private rowElements(): HTMLLIElement[] {
    return [...this.rows.children] as HTMLLIElement[];
  }
  private toggleAt(index: number): HTMLButtonElement | null {
    return this.rows.children[index]?.querySelector<HTMLButtonElement>('.row-toggle') ?? null;
  }
  private indexOf(li: Element): number {
    return this.rowElements().indexOf(li as HTMLLIElement);
  }

  // One row at a time takes the focus by Tab; the arrows go from row to row.
  private rove(): void {
    this.rowElements().forEach((li, i) => (li.querySelector<HTMLButtonElement>('.row-toggle')!.tabIndex = i === this.focusIndex ? 0 : -1));
  }
  private focusRow(index: number): void {
    const n = this.rows.children.length;
    if (n === 0) return;
    this.focusIndex = Math.max(0, Math.min(n - 1, index));
    this.rove();
    this.toggleAt(this.focusIndex)?.focus();
  }

  private askDelete(li: HTMLLIElement | null): void {
    for (const other of this.rowElements()) if (other !== li) other.classList.remove('confirming');
    if (!li) return;
    li.classList.add('confirming');
    li.querySelector<HTMLButtonElement>('.row-confirm')?.focus();
  }

  private placeRow(li: HTMLLIElement, to: number): void {
    const others = this.rowElements().filter((r) => r !== li);
    this.rows.insertBefore(li, others[to] ?? null);
  }

  // The row goes one place up or down, and keeps the focus.
  private moveByKey(li: HTMLLIElement, delta: number): void {
    const from = this.indexOf(li);
    const to = from + delta;
    if (from < 0 || to < 0 || to >= this.rows.children.length) return;
    this.placeRow(li, to);
    this.focusRow(to);
    this.vc?.moveRow(from, to);
  }

  // ----- Drag -----

  private startDrag(li: HTMLLIElement, pointerId: number, y: number): void {
    const from = this.indexOf(li);
    if (from < 0) return;
    li.setPointerCapture(pointerId);
    this.askDelete(null);
    this.drag = {
      row: li,
      pointerId,
      from,
      to: from,
      startY: y,
      lastY: y,
      startScroll: this.list.scrollTop,
      height: li.getBoundingClientRect().height,
      frame: requestAnimationFrame(this.edgeScroll),
    };
    li.classList.add('dragging');
    this.rows.classList.add('reordering');
  }

  private dragTo(y: number): void {
    const d = this.drag!;
    d.lastY = y;
    const dy = y - d.startY + (this.list.scrollTop - d.startScroll);
    d.row.style.transform = `translateY(${dy}px)`;
    const rows = this.rowElements();
    const to = Math.max(0, Math.min(rows.length - 1, d.from + Math.round(dy / d.height)));
    if (to === d.to) return;
    d.to = to;
    rows.forEach((r, i) => {
      if (r === d.row) return;
      const shift = d.from < i && i <= to ? -d.height : to <= i && i < d.from ? d.height : 0;
      r.style.transform = shift ? `translateY(${shift}px)` : '';
    });
  }

  // Near the top or bottom of the list the list scrolls under the dragged row.
  private readonly edgeScroll = (): void => {
    const d = this.drag;
    if (!d) return;
    const box = this.list.getBoundingClientRect();
    const step = d.lastY < box.top + kEdgeScroll ? -8 : d.lastY > box.bottom - kEdgeScroll ? 8 : 0;
    if (step !== 0) {
      this.list.scrollTop += step;
      this.dragTo(d.lastY);
    }
    d.frame = requestAnimationFrame(this.edgeScroll);
  };

  // A drop moves the row even onto its own place: the preview is brought up to date all the same.
  private endDrag(drop: boolean): void {
    const d = this.drag;
    if (!d) return;
    this.drag = null;
    cancelAnimationFrame(d.frame);
    this.rows.classList.remove('reordering');
    for (const r of this.rowElements()) r.style.transform = '';
    d.row.classList.remove('dragging');
    if (!drop) return;
    this.placeRow(d.row, d.to);
    this.focusIndex = d.to;
    this.rove();
    this.vc?.moveRow(d.from, d.to);
  }

  // ----- Events -----

  connect(vc: EffectsArrangeVC): void {
    this.vc = vc;
    const on = (id: string, action: () => void) => element(id).addEventListener('click', action);
    on('arrange-done', () => vc.close());
    on('arrange-random', () => vc.randomize());
    on('save-preset', () => vc.showSavePanel(true));
    on('save-cancel', () => vc.showSavePanel(false));
    on('save-confirm', () => vc.savePreset());
    this.field.addEventListener('keydown', (event) => {
      if (event.key === 'Enter' && !event.isComposing) {
        event.preventDefault();
        vc.textFieldShouldReturn();
      } else if (event.key === 'Escape') {
        event.stopPropagation();
        vc.showSavePanel(false);
      }
    });

    this.rows.addEventListener('click', (event) => {
      const target = event.target as HTMLElement;
      const li = target.closest<HTMLLIElement>('.arrange-row');
      if (!li || this.swallowClick) return;
      if (target.closest('.row-delete')) {
        if (li.classList.contains('confirming')) this.askDelete(null);
        else this.askDelete(li);
      } else if (target.closest('.row-confirm')) {
        this.focusIndex = Math.max(0, this.indexOf(li) - 1);
        vc.deleteRow(this.indexOf(li));
      } else {
        this.askDelete(null);
        this.focusIndex = this.indexOf(li);
        vc.tapRow(this.indexOf(li));
      }
    });
    this.rows.addEventListener('focusin', (event) => {
      const li = (event.target as HTMLElement).closest<HTMLLIElement>('.arrange-row');
      if (li && (event.target as HTMLElement).classList.contains('row-toggle')) {
        this.focusIndex = this.indexOf(li);
        this.rove();
      }
    });
    this.rows.addEventListener('keydown', (event) => this.rowKey(event));
    this.screen.addEventListener('keydown', (event) => {
      event.stopPropagation(); // the main screen's keys are not for this one
      if (event.key !== 'Escape' || event.defaultPrevented) return;
      event.preventDefault();
      const asking = this.rows.querySelector<HTMLLIElement>('.confirming');
      if (asking) {
        this.askDelete(null);
        this.focusRow(this.indexOf(asking));
      } else if (!this.panel.hidden) vc.showSavePanel(false);
      else vc.close();
    });

    // Taps, drags and swipes from one pointer.
    this.screen.addEventListener('pointerdown', (event) => {
      if (!event.isPrimary || event.button !== 0 || this.drag) return;
      const target = event.target as HTMLElement;
      if (target.closest('.save-panel, input')) return;
      const li = target.closest<HTMLLIElement>('.arrange-row');
      if (li && target.closest('.row-grip')) {
        event.preventDefault();
        this.startDrag(li, event.pointerId, event.clientY);
        return;
      }
      this.press = { row: li, pointerId: event.pointerId, x: event.clientX, y: event.clientY, time: event.timeStamp };
    });
    this.screen.addEventListener('pointermove', (event) => {
      if (this.drag && event.pointerId === this.drag.pointerId) {
        this.dragTo(event.clientY);
        return;
      }
      const p = this.press;
      if (!p || event.pointerId !== p.pointerId || !p.row || event.pointerType !== 'mouse') return;
      const dx = event.clientX - p.x;
      const dy = event.clientY - p.y;
      if (Math.abs(dy) > kDragSlop && Math.abs(dy) > Math.abs(dx)) {
        this.press = null;
        this.swallowClick = true;
        this.startDrag(p.row, event.pointerId, p.y);
        this.dragTo(event.clientY);
      }
    });
    this.screen.addEventListener('pointerup', (event) => {
      if (this.drag && event.pointerId === this.drag.pointerId) {
        this.swallowClick = true;
        this.endDrag(true);
      } else if (this.press && event.pointerId === this.press.pointerId) {
        const p = this.press;
        const dx = event.clientX - p.x;
        const dy = event.clientY - p.y;
        if (dx >= kSwipeDistance && Math.abs(dy) <= dx / 2 && event.timeStamp - p.time <= kSwipeMilliseconds) {
          this.swallowClick = true;
          vc.back();
        }
      }
      this.press = null;
      // The click that follows a drag or a swipe is not a tap.
      setTimeout(() => (this.swallowClick = false), 0);
    });
    this.screen.addEventListener('pointercancel', (event) => {
      if (this.drag && event.pointerId === this.drag.pointerId) this.endDrag(false);
      this.press = null;
    });
  }

  private rowKey(event: KeyboardEvent): void {
    const target = event.target as HTMLElement;
    const li = target.closest<HTMLLIElement>('.arrange-row');
    if (!li || event.ctrlKey || event.metaKey) return;
    const index = this.indexOf(li);
    switch (event.key) {
      case 'ArrowUp':
      case 'ArrowDown': {
        const delta = event.key === 'ArrowUp' ? -1 : 1;
        if (event.altKey) this.moveByKey(li, delta);
        else this.focusRow(index + delta);
        break;
      }
      case 'Home':
        this.focusRow(0);
        break;
      case 'End':
        this.focusRow(this.rows.children.length - 1);
        break;
      case 'Delete':
      case 'Backspace':
        if (!li.classList.contains('preset')) return;
        this.askDelete(li);
        break;
      default:
        return;
    }
    event.preventDefault();
  }
}
