// The two panels at the bottom of the main screen: the camera controls in photo mode and the edit
// controls in edit mode. Neither decides anything: each forwards a press to its delegate and shows
// what it is told.
import type { CameraUIDelegate } from '../capture/camera';

export interface CameraControlsDelegate {
  shutterPressed(): void;
  flipPressed(): void;
  flashPressed(): void;
  libraryPressed(): void;
  randomEffectsPressed(): void;
  randomParamsPressed(): void;
  // The thumbnail of the last picture saved.
  lastShotPressed(): void;
}

export interface CameraControlsView {
  setFlipEnabled(enabled: boolean): void;
  setFlashEnabled(enabled: boolean): void;
  setFlashImage(image: string): void;
  setNoDevicesLabelHidden(hidden: boolean): void;
  // The thumbnail of the last picture saved in this session, or none.
  setLastShot(file: Blob | null): void;
}

// The flash button's picture for each flash mode.
export const kFlashImages: Readonly<Record<number, string>> = { 1: 'flash_on.png', 0: 'flash_auto.png', [-1]: 'flash_off.png' };

export class CameraControlsVC implements CameraUIDelegate {
  delagate: CameraControlsDelegate | null = null;

  constructor(readonly view: CameraControlsView) {}

  cameraCapabilitiesChanged(canFlip: boolean, hasFlash: boolean): void {
    this.view.setFlipEnabled(canFlip);
    this.view.setFlashEnabled(hasFlash);
  }

  // A mode outside -1, 0 and 1 leaves the last picture on the button.
  cameraFlashModeChanged(flashMode: number): void {
    const image = kFlashImages[flashMode];
    if (image) this.view.setFlashImage(image);
  }

  setNoDevicesLabelHidden(hidden: boolean): void {
    this.view.setNoDevicesLabelHidden(hidden);
  }

  showLastShot(file: Blob | null): void {
    this.view.setLastShot(file);
  }

  shutterAction(): void {
    this.delagate?.shutterPressed();
  }
  flipAction(): void {
    this.delagate?.flipPressed();
  }
  flashAction(): void {
    this.delagate?.flashPressed();
  }
  libraryAction(): void {
    this.delagate?.libraryPressed();
  }
  randomEffectsAction(): void {
    this.delagate?.randomEffectsPressed();
  }
  randomParamsAction(): void {
    this.delagate?.randomParamsPressed();
  }
  lastShotAction(): void {
    this.delagate?.lastShotPressed();
  }
}

export enum UtlityFunction {
  rotateLeft = 0,
  roateRight = 1,
  flupH = 2,
  flipV = 3,
  flatten = 4,
  export = 5,
}

export interface EditControlsDelegate {
  savePressed(): void;
  randomEffectsPressed(): void;
  randomParamsPressed(): void;
  utilityPressed(fn: UtlityFunction, sender: unknown): void;
  donePressed(): void;
  // The last turn, mirror or flatten taken back, or done again.
  undoPressed(): void;
  redoPressed(): void;
}

export class EditControlsVC {
  delgate: EditControlsDelegate | null = null;

  // A press with no delegate is a programming error on this panel.
  private get target(): EditControlsDelegate {
    if (!this.delgate) throw new Error('the edit controls have no delegate');
    return this.delgate;
  }

  saveAction(): void {
    this.target.savePressed();
  }
  randomizeEffectsAtion(): void {
    this.target.randomEffectsPressed();
  }
  randomizePatamsAction(): void {
    this.target.randomParamsPressed();
  }
  doneAction(): void {
    this.target.donePressed();
  }
  undoAction(): void {
    this.target.undoPressed();
  }
  redoAction(): void {
    this.target.redoPressed();
  }
  // The six tool buttons share this action; the button's tag names the function.
  utlityButtonAction(tag: number, sender: unknown = null): void {
    if (!Number.isInteger(tag) || tag < 0 || tag > 5) throw new Error(`no tool has the tag ${tag}`);
    this.target.utilityPressed(tag as UtlityFunction, sender);
  }
}
