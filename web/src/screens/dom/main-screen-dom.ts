// The main screen's views in the page's DOM: what the controllers tell them is shown here, and the
// user's presses, touches and keys go back to the controllers.
import type { RawPicture, Size } from '../../engine/shared/protocol';
import { ZorvexAlertVC } from '../alert-panel';
import type { Alert, Axis, CameraIntefaceVC, MainScreenView } from '../camera-inteface-vc';
import { Mode } from '../camera-inteface-vc';
import type { CameraControlsVC, CameraControlsView, EditControlsVC } from '../controls';
import type { PictureDisplay } from '../effected-image-view';
import { flashIcons, icons } from './icons';
import { menuIcons } from './menu-icons';

function element<T extends HTMLElement>(id: string): T {
  const e = document.getElementById(id);
  if (!e) throw new Error(`the page has no #${id}`);
  return e as T;
}

export class PictureCanvas implements PictureDisplay {
  framesShown = 0;
  private readonly context: CanvasRenderingContext2D;

  constructor(readonly canvas: HTMLCanvasElement) {
    const context = canvas.getContext('2d', { alpha: false });
    if (!context) throw new Error('the browser gives no 2D canvas');
    this.context = context;
    this.fit();
  }

  // Sizes the canvas's pixels to its place on the page; true when they changed.
  fit(): boolean {
    const rect = this.canvas.getBoundingClientRect();
    const scale = window.devicePixelRatio || 1;
    const width = Math.max(1, Math.round(rect.width * scale));
    const height = Math.max(1, Math.round(rect.height * scale));
    if (width === this.canvas.width && height === this.canvas.height) return false;
    this.canvas.width = width;
    this.canvas.height = height;
    return true;
  }

  layoutSize(): Size {
    const rect = this.canvas.getBoundingClientRect();
    return { width: rect.width, height: rect.height };
  }

  displaySize(): Size {
    return { width: this.canvas.width, height: this.canvas.height };
  }

  show(picture: RawPicture): void {
    if (picture.width !== this.canvas.width || picture.height !== this.canvas.height) {
      // Composed for a size the canvas has since left: drawn scaled until the next one comes.
      createImageBitmap(new ImageData(new Uint8ClampedArray(picture.data), picture.width, picture.height)).then(
        (bitmap) => this.context.drawImage(bitmap, 0, 0, this.canvas.width, this.canvas.height),
        () => undefined,
      );
    } else {
      this.context.putImageData(new ImageData(new Uint8ClampedArray(picture.data), picture.width, picture.height), 0, 0);
    }
    this.framesShown += 1;
  }
}

export class MainScreenDom implements MainScreenView, CameraControlsView {
  private readonly main = element<HTMLElement>('main-stack');
  private readonly info = element<HTMLElement>('info-label');
  private readonly activity = element<HTMLElement>('activity');
  private readonly bottomControls = element<HTMLElement>('bottom-controls');
  private readonly blendHolder = element<HTMLElement>('blend-picker-holder');
  private readonly blendBackdrop = element<HTMLElement>('blend-backdrop');
  private readonly blendPicker = element<HTMLElement>('blend-picker');
  private readonly blendButton = element<HTMLButtonElement>('blend');
  private readonly picker = element<HTMLInputElement>('image-picker');
  private readonly flipButton = element<HTMLButtonElement>('flip');
  private readonly flashButton = element<HTMLButtonElement>('flash');
  private readonly noDevices = element<HTMLElement>('no-devices');
  private readonly lastShot = element<HTMLButtonElement>('last-shot');
  private readonly undoButton = element<HTMLButtonElement>('undo');
  private readonly redoButton = element<HTMLButtonElement>('redo');
  private lastShotFile: Blob | null = null;
  readonly canvas = element<HTMLCanvasElement>('picture');
  readonly picture = new PictureCanvas(this.canvas);
  private blendRows: HTMLButtonElement[] = [];
  private selectedRow = 0;

  constructor() {
    element('library').innerHTML = icons.library;
    element('menu-button').innerHTML = menuIcons.menu;
    this.flipButton.innerHTML = icons.flip;
    this.flashButton.innerHTML = icons.flash_auto;
    element('done').innerHTML = icons.done;
    this.undoButton.innerHTML = icons.undo;
    this.redoButton.innerHTML = icons.redo;
    element('blend-close').innerHTML = icons.close;
    const utility = [icons.rotateLeft, icons.rotateRight, icons.flipH, icons.flipV, icons.flatten, icons.export];
    document.querySelectorAll<HTMLButtonElement>('.utility').forEach((b) => (b.innerHTML = utility[Number(b.dataset.tag)] ?? ''));
    element('save').textContent = 'SAVE\nIMAGE';
  }

  // ----- MainScreenView -----

  setBusy(busy: boolean): void {
    this.activity.hidden = !busy;
    this.main.setAttribute('aria-busy', String(busy));
  }
  setInfoText(text: string): void {
    this.info.textContent = text;
  }
  setInfoAlpha(alpha: number): void {
    this.info.style.opacity = String(alpha);
  }
  slideControls(mode: Mode): void {
    this.bottomControls.classList.toggle('edit', mode === Mode.edit);
    this.main.dataset.mode = mode === Mode.edit ? 'edit' : 'photo';
    // Only the panel on show takes the keyboard's focus.
    element('camera-controls').inert = mode === Mode.edit;
    element('edit-controls').inert = mode !== Mode.edit;
  }
  setBlendPanelOpen(open: boolean): void {
    this.blendHolder.classList.toggle('open', open);
    this.blendHolder.setAttribute('aria-hidden', String(!open));
    this.blendHolder.inert = !open;
    this.blendBackdrop.hidden = !open;
    if (open) this.blendRows[this.selectedRow]?.focus();
  }
  setBlendPickerRows(rows: readonly string[]): void {
    this.blendPicker.replaceChildren();
    this.blendRows = rows.map((title, row) => {
      const b = document.createElement('button');
      b.className = row === rows.length - 1 ? 'blend-row random' : 'blend-row';
      b.textContent = title;
      b.setAttribute('role', 'option');
      b.dataset.row = String(row);
      this.blendPicker.append(b);
      return b;
    });
    this.selectBlendRow(0);
  }
  selectBlendRow(row: number): void {
    this.selectedRow = row;
    this.blendRows.forEach((b, i) => b.setAttribute('aria-selected', String(i === row)));
  }
  private get blendOpen(): boolean {
    return this.blendHolder.classList.contains('open');
  }
  // Arrow keys in the open panel: left and right one row, up and down one line of its grid.
  private moveInBlendPicker(key: string): boolean {
    const rows = this.blendRows;
    const focused = rows.indexOf(document.activeElement as HTMLButtonElement);
    const from = focused >= 0 ? focused : this.selectedRow;
    const top = rows[0]?.offsetTop;
    const columns = Math.max(1, rows.filter((b) => b.offsetTop === top).length);
    const steps: Record<string, number> = { ArrowLeft: -1, ArrowRight: 1, ArrowUp: -columns, ArrowDown: columns };
    let to: number;
    if (key === 'Home') to = 0;
    else if (key === 'End') to = rows.length - 1;
    else if (key in steps) to = Math.min(rows.length - 1, Math.max(0, from + steps[key]!));
    else return false;
    rows[to]?.focus();
    rows[to]?.scrollIntoView({ block: 'nearest' });
    return true;
  }
  setBlendButtonTitle(title: string): void {
    this.blendButton.textContent = title;
  }
  setButtonTitles(t: { randomEffects: string; randomParams: string; blend: string; effectsArrange: string }): void {
    element('random-effects').textContent = t.randomEffects;
    element('random-params').textContent = t.randomParams;
    this.blendButton.textContent = t.blend;
    element('effects-arrange').textContent = t.effectsArrange;
  }
  setPictureInteraction(enabled: boolean): void {
    this.canvas.classList.toggle('no-touch', !enabled);
  }
  setEditHistory(canUndo: boolean, canRedo: boolean): void {
    this.undoButton.disabled = !canUndo;
    this.redoButton.disabled = !canRedo;
  }
  setMainAxis(axis: Axis, bottomSize: number): void {
    this.main.classList.toggle('vertical', axis === 'vertical');
    this.main.classList.toggle('horizontal', axis === 'horizontal');
    this.main.style.setProperty('--bottom-size', `${bottomSize}px`);
  }
  presentImagePicker(): void {
    this.picker.value = '';
    this.picker.click();
  }
  dismissImagePicker(): void {
    this.picker.value = '';
  }
  reclaimPicture(): void {
    element('top').prepend(this.canvas);
    this.picture.fit();
  }
  // The app's confirmations go through its alert panel.
  showAlert(alert: Alert): void {
    ZorvexAlertVC.present(alert.title, alert.body, alert.cancel, alert.action, false, alert.onAction, false);
  }

  // ----- CameraControlsView -----

  setFlipEnabled(enabled: boolean): void {
    this.flipButton.disabled = !enabled;
  }
  setFlashEnabled(enabled: boolean): void {
    this.flashButton.disabled = !enabled;
  }
  setFlashImage(image: string): void {
    this.flashButton.innerHTML = flashIcons[image] ?? '';
    this.flashButton.dataset.image = image;
    this.flashButton.setAttribute('aria-label', `Flash: ${image.replace('flash_', '').replace('.png', '')}`);
  }
  setNoDevicesLabelHidden(hidden: boolean): void {
    this.noDevices.hidden = hidden;
  }
  // A small copy of the picture, drawn once, on the button.
  setLastShot(file: Blob | null): void {
    this.lastShotFile = file;
    this.lastShot.hidden = file === null;
    if (!file) return;
    const side = Math.round(48 * (window.devicePixelRatio || 1));
    void createImageBitmap(file).then(
      async (full) => {
        const scale = side / Math.min(full.width, full.height);
        const small = await createImageBitmap(full, { resizeWidth: Math.max(1, Math.round(full.width * scale)), resizeHeight: Math.max(1, Math.round(full.height * scale)), resizeQuality: 'medium' });
        full.close();
        if (this.lastShotFile !== file) return small.close();
        const canvas = document.createElement('canvas');
        canvas.width = canvas.height = side;
        canvas.getContext('2d')?.drawImage(small, (side - small.width) / 2, (side - small.height) / 2);
        small.close();
        this.lastShot.replaceChildren(canvas);
      },
      (error: unknown) => console.log(`No thumbnail of the last picture: ${String(error)}`),
    );
  }

  // ----- Events -----

  connect(vc: CameraIntefaceVC, cameraControls: CameraControlsVC, editControls: EditControlsVC): void {
    const on = (id: string, action: () => void) => element(id).addEventListener('click', action);
    on('random-effects', () => vc.rollEffects());
    on('random-params', () => vc.rollParams());
    on('blend', () => vc.blendAction());
    on('effects-arrange', () => vc.showEffectsArrage());
    on('blend-close', () => vc.closeBlendModes());
    on('shutter', () => cameraControls.shutterAction());
    on('flip', () => cameraControls.flipAction());
    on('flash', () => cameraControls.flashAction());
    on('library', () => cameraControls.libraryAction());
    on('last-shot', () => cameraControls.lastShotAction());
    on('done', () => editControls.doneAction());
    on('undo', () => editControls.undoAction());
    on('redo', () => editControls.redoAction());
    on('save', () => editControls.saveAction());
    on('reload', () => location.reload());
    document.querySelectorAll<HTMLButtonElement>('.utility').forEach((b) =>
      b.addEventListener('click', () => editControls.utlityButtonAction(Number(b.dataset.tag), b)),
    );
    this.blendPicker.addEventListener('click', (event) => {
      const row = (event.target as HTMLElement).closest<HTMLElement>('.blend-row');
      if (row) vc.blendRowSelected(Number(row.dataset.row));
    });
    // A tap beside the open blend panel closes it, and does nothing else.
    this.blendBackdrop.addEventListener('pointerdown', (event) => {
      event.preventDefault();
      vc.closeBlendModes();
    });
    on('menu-button', () => vc.showMenu());

    const slider = element<HTMLInputElement>('alpha-slider');
    slider.addEventListener('input', () => vc.sliderChanged(Number(slider.value)));
    slider.addEventListener('change', () => vc.sliderDone(Number(slider.value)));

    this.picker.addEventListener('change', () => void vc.libraryImagePicked(this.picker.files?.[0] ?? null));
    this.picker.addEventListener('cancel', () => vc.imagePickerControllerDidCancel());

    // Held down on the picture: the base alone. The pointer is captured so that the release is seen.
    this.canvas.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) return;
      this.canvas.setPointerCapture(event.pointerId);
      vc.pictureTouched(true);
    });
    this.canvas.addEventListener('pointerup', () => vc.pictureTouched(false));
    this.canvas.addEventListener('contextmenu', (event) => event.preventDefault());

    document.addEventListener('keydown', (event) => this.key(event, vc));
    // A button pressed with a pointer keeps no focus, so that no ring is left on it and the keys that
    // follow go to the screen; pressed from the keyboard, it keeps it.
    document.addEventListener('click', (event) => {
      const button = (event.target as HTMLElement | null)?.closest('button');
      if (event.detail > 0 && button && document.activeElement === button) button.blur();
    });
  }

  private key(event: KeyboardEvent, vc: CameraIntefaceVC): void {
    // Covered by another screen, this one takes no keys.
    if (this.main.inert) return;
    // The alert panel takes its own keys.
    if (ZorvexAlertVC.alerts.length > 0) return;
    // Typing in a text field is typing.
    if (isTextField(event.target)) return;
    const mode = this.main.dataset.mode === 'edit' ? Mode.edit : Mode.photo;
    const command = event.ctrlKey || event.metaKey;
    if (command && !event.altKey) {
      const key = event.key.toLowerCase();
      if (mode !== Mode.edit || (key !== 'z' && key !== 'y')) return;
      if (key === 'y' || event.shiftKey) vc.redoPressed();
      else vc.undoPressed();
      event.preventDefault();
      return;
    }
    if (command || event.altKey) return;
    if (this.blendOpen && this.moveInBlendPicker(event.key)) {
      event.preventDefault();
      return;
    }
    if (event.repeat) return;
    switch (event.key) {
      case 'Escape':
        if (this.blendOpen) vc.closeBlendModes();
        else if (mode === Mode.edit) vc.donePressed();
        else return;
        break;
      case ' ':
        // The shutter, even with a button in focus (Enter still presses that one).
        if (mode !== Mode.photo) return;
        vc.shutterPressed();
        break;
      case 'e':
      case 'E':
        vc.rollEffects();
        break;
      case 'p':
      case 'P':
        vc.rollParams();
        break;
      case 'a':
      case 'A':
        vc.showEffectsArrage();
        break;
      case 'm':
      case 'M':
        vc.showMenu();
        break;
      case 'b':
      case 'B':
        if (this.blendOpen) vc.closeBlendModes();
        else vc.blendAction();
        break;
      case 'l':
      case 'L':
        if (mode !== Mode.photo) return;
        vc.libraryPressed();
        break;
      case 's':
      case 'S':
        if (mode !== Mode.edit) return;
        vc.savePressed();
        break;
      default:
        return;
    }
    event.preventDefault();
  }
}

// Whether keys typed at `target` are text: a field for text (not a slider, a box or a button).
function isTextField(target: EventTarget | null): boolean {
  if (!(target instanceof HTMLElement)) return false;
  if (target.isContentEditable || target instanceof HTMLTextAreaElement || target instanceof HTMLSelectElement) return true;
  return target instanceof HTMLInputElement && !['range', 'checkbox', 'radio', 'button', 'submit', 'reset', 'file', 'color'].includes(target.type);
}
