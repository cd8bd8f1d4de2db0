// Looks that travel: a picture from the library that carries a look is offered with "Use this look";
// "Copy link" shares the look of the picture being edited as a link whose fragment holds it; a link
// opened with a look asks before it is used; the seed of the control values is shown in edit mode.
// It drives a LookView and the main screen's own controls, and touches no DOM itself.
import type { EngineRequest, EngineRequestType, Replies } from '../engine/shared/protocol';
import type { LookJson } from '../engine/shared/look-protocol';
import { blendModeLabels } from '../engine/shared/blend-modes';
import type { Alert } from './camera-inteface-vc';
import { Mode } from './camera-inteface-vc';
import type { EffectedImageView } from './effected-image-view';

export interface LookView {
  // The "Use this look" button.
  setOfferShown(shown: boolean): void;
  // The small seed label of edit mode.
  setSeedText(text: string): void;
  // The opacity slider's position.
  setOpacity(value: number): void;
  // Puts the text on the clipboard; false when the browser won't.
  copyText(text: string): Promise<boolean>;
  // Shows a link for the user to copy by hand.
  showLink(url: string): void;
}

// What this needs of the main screen (CameraIntefaceVC).
export interface LookScreen {
  readonly mode: Mode;
  shouldRandomizeBlendMode: boolean;
  blendModeText: string;
  showInfoMessage(text: string): void;
  backToCamera(): void;
  readonly view: { showAlert(alert: Alert): void; selectBlendRow(row: number): void };
}

export interface LookEngine {
  request<T extends EngineRequestType>(request: Extract<EngineRequest, { type: T }>): Promise<Replies[T]>;
}

// The fragment of a link that carries a look: #look=TEXT.
export const kLookFragment = '#look=';

export class LookController {
  // The look of the picture picked from the library, as JSON, while it is on offer.
  private offered: string | null = null;

  constructor(
    private readonly engine: LookEngine,
    private readonly imageView: EffectedImageView,
    private readonly screen: LookScreen,
    private readonly view: LookView,
    // The address of the app, without a fragment.
    private readonly appAddress: () => string,
    private readonly log: (line: string) => void = (line) => console.log(line),
  ) {}

  // A picture from the library is being edited: if it carries a look, say so and offer it.
  async pictureLoaded(file: Blob): Promise<void> {
    this.withdraw();
    const reply = await this.engine.request({ type: 'lookFromPicture', file: await file.arrayBuffer() });
    if (reply.status === 'error') {
      this.log(`The picture's look can't be read: ${reply.error}`);
      this.screen.showInfoMessage("This picture's look can't be read");
      return;
    }
    if (reply.status !== 'look' || this.screen.mode !== Mode.edit) return;
    this.offered = reply.look;
    this.view.setOfferShown(true);
    this.screen.showInfoMessage('This picture carries a look');
  }

  // The main screen changed mode: an offer belongs to the picture that was being edited.
  modeChanged(mode: Mode): void {
    if (mode !== Mode.edit) this.withdraw();
  }

  // "Use this look": the camera takes the picked picture's look, and the live feed shows it.
  async useOfferedLook(): Promise<void> {
    const look = this.offered;
    if (!look) return;
    this.withdraw();
    if (!(await this.apply(look))) return;
    if (this.screen.mode === Mode.edit) this.screen.backToCamera();
  }

  // "Copy link": a link to the app that carries the look of the picture being edited.
  async copyLink(): Promise<void> {
    const { text } = await this.engine.request({ type: 'currentLook', compact: true });
    const url = `${this.appAddress()}${kLookFragment}${text}`;
    if (await this.view.copyText(url)) this.screen.showInfoMessage('Link copied');
    else this.view.showLink(url);
  }

  // The app was opened (or its fragment changed) with a link: asks before its look is used.
  async linkOpened(fragment: string): Promise<void> {
    if (!fragment.startsWith(kLookFragment)) return;
    const text = decodeURIComponent(fragment.slice(kLookFragment.length));
    const reply = await this.engine.request({ type: 'parseLook', text });
    if (!reply.look) {
      this.log(`The link's look can't be read: ${reply.error}`);
      this.screen.showInfoMessage("This link's look can't be read");
      return;
    }
    this.screen.view.showAlert({
      title: 'USE THIS LOOK?',
      body: `This link carries a look: ${describeLook(JSON.parse(reply.look) as LookJson)}. Use it on the camera?`,
      cancel: 'Cancel',
      action: 'Use this look',
      onAction: () => void this.apply(text),
    });
  }

  // The seed of the control values, as edit mode shows it.
  seedChanged(seed: string | null): void {
    this.view.setSeedText(seed === null ? 'no seed' : `seed ${seed}`);
  }

  // Sets the list's rows, the vector, the blend and the opacity to the look's, and the controls of
  // the main screen with them. False (and nothing changed) when the engine refuses the look.
  async apply(look: string): Promise<boolean> {
    const reply = await this.engine.request({ type: 'applyLook', text: look, withEdits: false });
    const applied = reply.applied;
    if (!applied) {
      this.log(`The look can't be used: ${reply.error}`);
      this.screen.showInfoMessage("This look can't be used");
      return false;
    }
    this.screen.shouldRandomizeBlendMode = false;
    this.screen.blendModeText = `Blend:\n${blendModeLabels[applied.blendIndex] ?? ''}`;
    this.screen.view.selectBlendRow(applied.blendIndex);
    this.imageView.setBlendMode(applied.blendIndex, true);
    this.view.setOpacity(applied.opacity);
    this.imageView.controlSeed = applied.seed;
    this.seedChanged(applied.seed);
    this.imageView.layerAlpha = applied.opacity;
    if (this.screen.mode === Mode.edit) void this.imageView.render(false);
    this.screen.showInfoMessage(applied.presetAdded ? 'Look applied: preset FROM PHOTO added' : 'Look applied');
    return true;
  }

  private withdraw(): void {
    this.offered = null;
    this.view.setOfferShown(false);
  }
}

// "VETH, AGENCY; blend Normal at 100%".
export function describeLook(look: LookJson): string {
  const effects = look.effects.length > 0 ? look.effects.join(', ') : 'no effects';
  return `${effects}; blend ${look.blend} at ${Math.round(look.opacity * 100)}%`;
}
