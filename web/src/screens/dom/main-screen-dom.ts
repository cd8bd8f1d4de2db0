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
  private readonly blendPicker = element<HTMLElement>('blend-picker');
  private readonly blendButton = element<HTMLButtonElement>('blend');
  private readonly picker = element<HTMLInputElement>('image-picker');
  private readonly flipButton = element<HTMLButtonElement>('flip');
  private readonly flashButton = element<HTMLButtonElement>('flash');
  private readonly noDevices = element<HTMLElement>('no-devices');
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
    on('done', () => editControls.doneAction());
    on('save', () => editControls.saveAction());
    document.querySelectorAll<HTMLButtonElement>('.utility').forEach((b) =>
      b.addEventListener('click', () => editControls.utlityButtonAction(Number(b.dataset.tag), b)),
    );
    this.blendPicker.addEventListener('click', (event) => {
      const row = (event.target as HTMLElement).closest<HTMLElement>('.blend-row');
      if (row) vc.blendRowSelected(Number(row.dataset.row));
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
  }

  private key(event: KeyboardEvent, vc: CameraIntefaceVC): void {
    // Covered by another screen, this one takes no keys.
    if (event.ctrlKey || event.metaKey || event.altKey || event.repeat || this.main.inert) return;
    if (ZorvexAlertVC.alerts.length > 0) return;
    const target = event.target as HTMLElement | null;
    const typing = target?.closest('button, input, select, textarea') !== null && target !== document.body;
    const blendOpen = this.blendHolder.classList.contains('open');
    const mode = this.main.dataset.mode === 'edit' ? Mode.edit : Mode.photo;
    switch (event.key) {
      case 'Escape':
        if (blendOpen) vc.closeBlendModes();
        else if (mode === Mode.edit) vc.donePressed();
        else return;
        break;
      case ' ':
        if (typing || mode !== Mode.photo) return;
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
        if (blendOpen) vc.closeBlendModes();
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
