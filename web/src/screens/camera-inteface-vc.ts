// The main screen: the conductor of the app. It owns the one Camera and the picture view, moves between
// photo mode (the live feed) and edit mode (a still), turns every control into a change of the
// picture's parameters and a render, and says what happened in the info label. It drives a
// MainScreenView and touches no pixels and no DOM itself.
import type { Camera, CameraDelegate } from '../capture/camera';
import { blendModeCount, blendModeLabels } from '../engine/shared/blend-modes';
import type { RawPicture } from '../engine/shared/protocol';
import { AnalyticsHelper } from '../platform/analytics';
import { problemText } from '../platform/picture-check';
import type { SettingsController } from '../platform/settings';
import {
  UtlityFunction,
  type CameraControlsDelegate,
  type CameraControlsVC,
  type EditControlsDelegate,
  type EditControlsVC,
} from './controls';
import type { EffectedImageView, EffectedImageViewDelegate } from './effected-image-view';
import type { EffectsArrangeDelegate, EffectsArrangeVC } from './effects-arrange-vc';

export enum Mode {
  photo = 0,
  edit = 1,
}

export interface Alert {
  title: string;
  body: string;
  cancel: string | null;
  action: string;
  onAction: () => void;
}

export type Axis = 'vertical' | 'horizontal';

export interface MainScreenView {
  setBusy(busy: boolean): void;
  setInfoText(text: string): void;
  setInfoAlpha(alpha: number): void;
  // Slides the bottom panels: the edit controls in (edit) or the camera controls back (photo).
  slideControls(mode: Mode): void;
  setBlendPanelOpen(open: boolean): void;
  // The picker's rows: the blend modes and, last, "Random".
  setBlendPickerRows(rows: readonly string[]): void;
  selectBlendRow(row: number): void;
  setBlendButtonTitle(title: string): void;
  setButtonTitles(titles: { randomEffects: string; randomParams: string; blend: string; effectsArrange: string }): void;
  setPictureInteraction(enabled: boolean): void;
  // Whether the edits of the still can be taken back, and done again.
  setEditHistory(canUndo: boolean, canRedo: boolean): void;
  setMainAxis(axis: Axis, bottomSize: number): void;
  presentImagePicker(): void;
  dismissImagePicker(): void;
  showAlert(alert: Alert): void;
  // Puts the picture back at the top of this screen, from the Arrange screen that had it.
  reclaimPicture(): void;
}

export type Tour = 'intro' | 'edit' | 'arrange';

// What other screens hang here: the guided tours, the server message, the way to the Arrange screen
// and the menu. Each does nothing until its screen exists.
export interface MainScreenHooks {
  startWalkthrough(tour: Tour): void;
  loadServerMessage(): void;
  openArrangeScreen(): void;
  openMenu(): void;
  // A picture from the library is the base now (the file, to read what it carries).
  pictureLoaded?(file: Blob): void;
}

export const noHooks: MainScreenHooks = {
  startWalkthrough: () => undefined,
  loadServerMessage: () => undefined,
  openArrangeScreen: () => undefined,
  openMenu: () => undefined,
};

export interface MainScreenParts {
  view: MainScreenView;
  imageView: EffectedImageView;
  settings: SettingsController;
  cameraControlsVC: CameraControlsVC | null;
  editControlsVC: EditControlsVC | null;
  // The Arrange screen, made once; the hook openArrangeScreen shows it.
  fxArrange2?: EffectsArrangeVC | null;
  // Makes the camera; its constructor makes the first set-up attempt.
  makeCamera: () => Camera;
  // Shuffles the stored effect list (two rows on), as EffectsData.randomizeEffects does.
  randomizeEffects: () => Promise<void>;
  // Uniform in [0, bound).
  randomUniform: (bound: number) => number;
  hooks?: MainScreenHooks;
  log?: (line: string) => void;
}

export const kInfoMessageSeconds = 3.0;
export const kModeAnimationSeconds = 0.2;
export const kBackToCameraDelaySeconds = 0.2;
export const kBottomSize = 375;

export class CameraIntefaceVC
  implements CameraDelegate, CameraControlsDelegate, EditControlsDelegate, EffectedImageViewDelegate, EffectsArrangeDelegate
{
  readonly view: MainScreenView;
  readonly effectedImageView: EffectedImageView;
  shouldRandomizeBlendMode = false;
  mode = Mode.photo;
  camera: Camera | null = null;
  lastFrameQuality = 0;
  cameraControlsVC: CameraControlsVC | null;
  editControlsVC: EditControlsVC | null;
  fxArrange2: EffectsArrangeVC | null;

  private busyValue = false;
  private blendModeTextValue = 'Blend:\nNormal';
  private infoMessageTimer: ReturnType<typeof setTimeout> | null = null;
  // The mode the message on show was given in; leaving that mode takes it away.
  private infoMessageMode: Mode | null = null;
  // A final render for save or export is under way: further presses of either do nothing.
  private finalInFlight = false;
  private readonly hooks: MainScreenHooks;
  private readonly log: (line: string) => void;

  constructor(private readonly parts: MainScreenParts) {
    this.view = parts.view;
    this.effectedImageView = parts.imageView;
    this.cameraControlsVC = parts.cameraControlsVC;
    this.editControlsVC = parts.editControlsVC;
    this.fxArrange2 = parts.fxArrange2 ?? null;
    this.hooks = parts.hooks ?? noHooks;
    this.log = parts.log ?? ((line) => console.log(line));
  }

  // Drives the spinner; an indicator only, never a guard.
  get busy(): boolean {
    return this.busyValue;
  }
  set busy(value: boolean) {
    this.busyValue = value;
    this.view.setBusy(value);
  }

  get blendModeText(): string {
    return this.blendModeTextValue;
  }
  set blendModeText(text: string) {
    this.blendModeTextValue = text;
    this.view.setBlendButtonTitle(text);
  }

  // ----- Life of the screen -----

  // The effect list is loaded and the launch counted by the engine's start, before this.
  viewDidLoad(): void {
    if (this.fxArrange2) {
      this.fxArrange2.delegate = this;
      this.fxArrange2.effectedImageView = this.effectedImageView;
      this.fxArrange2.viewDidLoad();
    }
    this.effectedImageView.delegate = this;
    void this.effectedImageView.randomizeControls();
    this.setupControllers();
    this.setupButtons();
    this.busy = true;
    this.setupCamera();
    this.startCamera();
  }

  private setupControllers(): void {
    if (this.cameraControlsVC) this.cameraControlsVC.delagate = this;
    if (this.editControlsVC) this.editControlsVC.delgate = this;
  }

  private setupButtons(): void {
    this.view.setButtonTitles({
      randomEffects: 'Randomize\nEffects',
      randomParams: 'Randomize\nParams',
      blend: 'Blend:\nNormal',
      effectsArrange: 'Effects\nStack',
    });
    this.view.setBlendPickerRows([...blendModeLabels, 'Random']);
  }

  setupCamera(): void {
    if (this.camera) return;
    const camera = this.parts.makeCamera();
    camera.useFrameProcessingCallbacks = true;
    camera.delegate = this;
    camera.uiDelegate = this.cameraControlsVC;
    this.camera = camera;
  }

  startCamera(): void {
    this.busy = true;
    this.camera?.start(() => (this.busy = true));
  }

  viewWillAppear(): void {
    this.view.setBlendPanelOpen(false);
    if (this.mode === Mode.photo) this.requireCamera().useFrameProcessingCallbacks = true;
    const quality = this.parts.settings.frameQuality();
    if (quality !== this.lastFrameQuality) {
      this.lastFrameQuality = quality;
      this.setupCamera();
      this.startCamera();
    }
    void this.effectedImageView.render(true);
  }

  viewDidAppear(launchCount: number): void {
    if (launchCount > 1) this.hooks.loadServerMessage();
    if (this.mode === Mode.photo) this.showIntroMessage();
    if (this.mode === Mode.edit && !this.parts.settings.hasShownEditControls()) {
      this.parts.settings.setHasShownEditControls();
      this.hooks.startWalkthrough('edit');
    }
  }

  viewDidDisappear(): void {
    if (this.camera) this.camera.useFrameProcessingCallbacks = false;
  }

  showIntroMessage(): void {
    const settings = this.parts.settings;
    if (settings.hasShownIntro()) return;
    settings.setHasShownIntro();
    this.view.showAlert({
      title: 'WELCOME TO ZORVEX',
      body: "Let's do a quick tutorial.",
      cancel: null,
      action: 'Ok',
      onAction: () => {
        this.hooks.startWalkthrough('intro');
        settings.setHasShownIntro();
      },
    });
  }

  setMode(mode: Mode): void {
    this.mode = mode;
    this.view.slideControls(mode);
    if (this.infoMessageMode !== null && this.infoMessageMode !== mode) this.hideInfoMessage();
    this.showEditHistory();
    const settings = this.parts.settings;
    setTimeout(() => {
      if (mode === Mode.edit && !settings.hasShownEditControls()) {
        settings.setHasShownEditControls();
        this.hooks.startWalkthrough('edit');
      } else if (mode === Mode.photo && !settings.hasShownIntro()) {
        settings.setHasShownIntro();
        this.hooks.startWalkthrough('intro');
      }
    }, kModeAnimationSeconds * 1000);
  }

  // The window changed size: side by side when it is wider than high.
  sizeChanged(width: number, height: number): void {
    this.view.setMainAxis(width <= height ? 'vertical' : 'horizontal', kBottomSize);
  }

  // ----- Photo mode -----

  shutter(): void {
    const camera = this.requireCamera();
    if (!camera.hasCamera) return;
    this.showInfoMessage('TAKE PICTURE');
    AnalyticsHelper.logButton('shutter');
    camera.takePhoto();
  }

  backToCamera(): void {
    AnalyticsHelper.logButton('backToCam');
    this.setMode(Mode.photo);
    this.busy = true;
    this.effectedImageView.clearImages();
    void this.effectedImageView.redraw();
    setTimeout(() => {
      if (this.camera) this.camera.useFrameProcessingCallbacks = true;
      this.busy = false;
    }, kBackToCameraDelaySeconds * 1000);
  }

  // Every re-render of this screen goes through here.
  renderInBackground(): Promise<void> {
    return this.effectedImageView.render(false).then(() => {
      this.busy = false;
    });
  }

  openLibrary(): void {
    this.requireCamera().useFrameProcessingCallbacks = false;
    this.view.presentImagePicker();
  }

  // A file from the picker. Anything but a picture the engine can take leaves photo mode as it was,
  // and says why.
  async libraryImagePicked(file: File | null): Promise<void> {
    if (!file) return;
    const problem = await this.effectedImageView.setOriginalStill(file).catch((error: unknown) => {
      this.log(`${file.name} could not be read: ${String(error)}`);
      return 'damaged' as const;
    });
    if (problem) {
      this.view.dismissImagePicker();
      this.showInfoMessage(`Can't open ${file.name}: ${problemText(problem)}`);
      if (this.mode === Mode.photo && this.camera) this.camera.useFrameProcessingCallbacks = true;
      return;
    }
    void this.renderInBackground();
    this.setMode(Mode.edit);
    this.view.dismissImagePicker();
    this.showInfoMessage('Image Loaded');
    this.hooks.pictureLoaded?.(file);
  }

  // The thumbnail of the last picture saved: that picture opens in edit mode again.
  openLastShot(): void {
    const file = this.effectedImageView.lastSavedFile;
    if (!file || this.mode !== Mode.photo) return;
    AnalyticsHelper.logButton('lastShot');
    if (this.camera) this.camera.useFrameProcessingCallbacks = false;
    void this.libraryImagePicked(new File([file], 'the last picture', { type: file.type }));
  }

  imagePickerControllerDidCancel(): void {
    this.view.dismissImagePicker();
    if (this.camera) this.camera.useFrameProcessingCallbacks = true;
  }

  showInfoMessage(text: string): void {
    this.view.setInfoText(text.toUpperCase());
    this.view.setInfoAlpha(1);
    this.infoMessageMode = this.mode;
    if (this.infoMessageTimer !== null) clearTimeout(this.infoMessageTimer);
    this.infoMessageTimer = setTimeout(() => this.hideInfoMessage(), kInfoMessageSeconds * 1000);
  }

  private hideInfoMessage(): void {
    this.view.setInfoAlpha(0);
    this.infoMessageMode = null;
    if (this.infoMessageTimer !== null) clearTimeout(this.infoMessageTimer);
    this.infoMessageTimer = null;
  }

  // ----- Camera delegate -----

  cameraDidOutputFrame(frame: RawPicture): void {
    // A frame that slipped past the closing gate must not replace the photo being edited, nor its
    // edit history.
    if (this.mode === Mode.edit) return;
    this.effectedImageView.setOriginalFrame(frame);
    void this.renderInBackground();
  }

  cameraDidTakePhoto(photo: Blob): void {
    this.log(`Did take photo. Size is ${photo.size} bytes`);
    const camera = this.requireCamera();
    if (camera.useFrameProcessingCallbacks) {
      camera.useFrameProcessingCallbacks = false;
      this.cameraDidTakePhoto(photo);
      return;
    }
    this.setMode(Mode.edit);
    void this.effectedImageView.setOriginalStill(photo).then(
      (problem) => {
        this.showEditHistory();
        return problem ? this.log(`The photo can't be opened: ${problemText(problem)}`) : this.renderInBackground();
      },
      (error: unknown) => this.log(`The photo could not be read: ${String(error)}`),
    );
  }

  cameraFoundNoDevices(): void {
    this.busy = false;
    this.cameraControlsVC?.setNoDevicesLabelHidden(false);
  }

  // ----- Controls -----

  shutterPressed(): void {
    this.shutter();
  }
  flipPressed(): void {
    AnalyticsHelper.logButton('flip');
    this.camera?.flipCamera();
  }
  flashPressed(): void {
    AnalyticsHelper.logButton('flash');
    this.camera?.cycleFlash();
  }
  libraryPressed(): void {
    this.openLibrary();
  }
  lastShotPressed(): void {
    this.openLastShot();
  }
  donePressed(): void {
    this.backToCamera();
  }
  randomEffectsPressed(): void {
    this.rollEffects();
  }
  randomParamsPressed(): void {
    this.rollParams();
  }
  savePressed(): void {
    this.saveImage();
  }
  utilityPressed(fn: UtlityFunction, sender: unknown): void {
    void this.runUtility(fn, sender);
  }
  undoPressed(): void {
    void this.undoEdit();
  }
  redoPressed(): void {
    void this.redoEdit();
  }

  showEffectsArrage(): void {
    AnalyticsHelper.logButton('effectsArrange');
    this.hooks.openArrangeScreen();
  }

  // ----- The Arrange screen -----

  arrangeDidChange(): void {
    void this.effectedImageView.render(false);
  }

  arrangeWillClose(): void {
    this.reclaimImageView();
  }

  reclaimImageView(): void {
    this.view.reclaimPicture();
    void this.effectedImageView.render(true);
  }

  showMenu(): void {
    AnalyticsHelper.logButton('about');
    this.hooks.openMenu();
  }

  // A finger (or the mouse button) went down on the picture or came up.
  pictureTouched(down: boolean): void {
    if (this.effectedImageView.userInteractionEnabled) this.effectedImageView.setTouching(down);
  }

  // ----- Tools -----

  blendAction(): void {
    AnalyticsHelper.logButton('blend');
    this.view.setBlendPanelOpen(true);
  }

  closeBlendModes(): void {
    this.view.setBlendPanelOpen(false);
  }

  // The slider moves: the opacity is applied at once, by a redraw only.
  sliderChanged(value: number): void {
    this.showInfoMessage(`Opacity ${opacityPercent(value)}%`);
    this.effectedImageView.layerAlpha = value;
    this.busy = false;
  }

  // The finger is lifted from the slider.
  sliderDone(value: number): void {
    this.busy = true;
    this.effectedImageView.layerAlpha = value;
    this.busy = false;
  }

  blendRowSelected(row: number): void {
    if (row >= blendModeCount) {
      this.shouldRandomizeBlendMode = true;
      this.randomizeBlendMode(false, false);
      this.view.selectBlendRow(blendModeCount);
      this.blendModeText = 'Blend:\nRandom';
      void this.renderInBackground();
      return;
    }
    this.busy = true;
    this.shouldRandomizeBlendMode = false;
    this.view.selectBlendRow(row);
    this.blendModeText = `Blend:\n${blendModeLabels[row]}`;
    this.effectedImageView.setBlendMode(row, true);
    void this.effectedImageView.redraw().then(() => (this.busy = false));
  }

  randomizeBlendMode(updatePicker: boolean, skipDisplay: boolean): void {
    const row = this.parts.randomUniform(blendModeCount) % blendModeCount;
    if (updatePicker && !this.shouldRandomizeBlendMode) {
      this.view.selectBlendRow(row);
      this.blendModeText = row === 0 ? 'Blend:\nRandom' : `Blend:\n${blendModeLabels[row]}`;
    }
    this.effectedImageView.setBlendMode(row, skipDisplay);
  }

  rollEffects(): void {
    this.busy = true;
    AnalyticsHelper.logButton('randomEffects');
    this.showInfoMessage('Random Effects');
    void this.parts.randomizeEffects();
    if (this.shouldRandomizeBlendMode) this.randomizeBlendMode(true, true);
    void this.renderInBackground();
  }

  rollParams(): void {
    this.busy = true;
    if (this.shouldRandomizeBlendMode) this.randomizeBlendMode(true, true);
    void this.effectedImageView.randomizeControls().then(() => (this.busy = false));
    this.showInfoMessage('Random Parameters');
  }

  layerTapped(): void {
    this.promptFlatten();
  }

  promptFlatten(): void {
    this.view.showAlert({
      title: 'FLATTEN',
      body: 'This will apply the current effects to the base image, effectively adding another layer.',
      cancel: 'Cancel',
      action: 'Flatten',
      onAction: () => void this.flattenImage(),
    });
  }

  async flattenImage(): Promise<void> {
    this.showInfoMessage('Flattening');
    AnalyticsHelper.logButton('flatten');
    this.busy = true;
    this.setPictureInteraction(false);
    await this.effectedImageView.flatten();
    this.busy = false;
    this.showInfoMessage('Effects flattened');
    this.setPictureInteraction(true);
    this.showEditHistory();
  }

  // Save and export each render the final at full size; a press while one is under way does nothing.
  saveImage(): void {
    if (this.finalInFlight) return;
    this.finalInFlight = true;
    AnalyticsHelper.logButton('save');
    this.busy = true;
    this.showInfoMessage('Rendering');
    this.setPictureInteraction(true);
    void this.effectedImageView.saveToPhotos().finally(() => {
      this.finalInFlight = false;
      this.setPictureInteraction(true);
      this.busy = false;
    });
  }

  imageDidSave(): void {
    this.busy = false;
    this.showInfoMessage('Saved to photos');
    this.cameraControlsVC?.showLastShot(this.effectedImageView.lastSavedFile);
  }

  // The last turn, mirror or flatten taken back, or done again; the picture is rendered anew.
  async undoEdit(): Promise<void> {
    if (this.mode !== Mode.edit || !this.effectedImageView.history.canUndo) return;
    AnalyticsHelper.logButton('undo');
    await this.afterEdit(this.effectedImageView.undo());
  }
  async redoEdit(): Promise<void> {
    if (this.mode !== Mode.edit || !this.effectedImageView.history.canRedo) return;
    AnalyticsHelper.logButton('redo');
    await this.afterEdit(this.effectedImageView.redo());
  }

  private async afterEdit(done: Promise<boolean>): Promise<void> {
    this.busy = true;
    if (await done) await this.renderInBackground();
    else this.busy = false;
    this.showEditHistory();
  }

  private showEditHistory(): void {
    const history = this.effectedImageView.history;
    const edit = this.mode === Mode.edit;
    this.view.setEditHistory(edit && history.canUndo, edit && history.canRedo);
  }

  async runUtility(fn: UtlityFunction, _sender: unknown): Promise<void> {
    switch (fn) {
      case UtlityFunction.rotateLeft:
        AnalyticsHelper.logButton('rotate_left');
        return this.rotateBaseImage(-90, false);
      case UtlityFunction.roateRight:
        AnalyticsHelper.logButton('rotate_right');
        return this.rotateBaseImage(90, false);
      case UtlityFunction.flupH:
        AnalyticsHelper.logButton('flip_horiz');
        return this.rotateBaseImage(0, true);
      case UtlityFunction.flipV:
        AnalyticsHelper.logButton('flip_vert');
        return this.rotateBaseImage(180, true);
      case UtlityFunction.flatten:
        AnalyticsHelper.logButton('flatten');
        this.promptFlatten();
        return;
      case UtlityFunction.export:
        if (this.finalInFlight) return;
        this.finalInFlight = true;
        AnalyticsHelper.logButton('export');
        this.showInfoMessage('Preparing image...');
        this.busy = true;
        await this.effectedImageView.export().finally(() => (this.finalInFlight = false));
        this.busy = false;
        return;
    }
  }

  // Turns the base, so the effects run anew on the turned picture. Without a base the spinner stays.
  async rotateBaseImage(degrees: number, mirrored: boolean): Promise<void> {
    this.busy = true;
    if (!this.effectedImageView.hasOriginal) return;
    const turned = await this.effectedImageView.rotateBaseImage(degrees, mirrored);
    this.showEditHistory();
    if (turned) await this.renderInBackground();
  }

  private setPictureInteraction(enabled: boolean): void {
    this.effectedImageView.userInteractionEnabled = enabled;
    this.view.setPictureInteraction(enabled);
  }

  private requireCamera(): Camera {
    if (!this.camera) throw new Error('the main screen has no camera');
    return this.camera;
  }
}

// The slider's value as a whole percentage: times 100 in single precision, truncated.
export function opacityPercent(value: number): number {
  const percent = Math.trunc(Math.fround(Math.fround(value) * 100));
  if (!Number.isFinite(percent)) throw new Error(`opacity ${value} is no number`);
  return percent;
}
