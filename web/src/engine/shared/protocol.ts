// The messages between the page and the engine Worker. Every request carries an id and gets one
// reply with that id; pixel buffers travel as transferred ArrayBuffers.
import type { LookReplies, LookRequest } from './look-protocol';

// RGBA bytes, 4 a pixel, top row first.
export interface RawPicture {
  width: number;
  height: number;
  data: ArrayBuffer;
}

export interface Size {
  width: number;
  height: number;
}

// What the composition of the picture depends on, sent with every request that shows something.
export interface ViewState {
  blendIndex: number; // place in the blend picker's list of modes
  alpha: number; // opacity of the effected picture, 0 to 1
  hideEffects: boolean; // a finger is down on the picture: the base alone
  layout: Size; // the view in points
  display: Size; // the canvas in device pixels
}

export type EngineRequest =
  | { type: 'init'; defaults: ArrayBuffer | null; scale: number; countLaunch: boolean; seq: number }
  | { type: 'setDefault'; key: string; value: number | boolean; seq: number }
  // A still as the new base, drawn upright by its orientation tag (0 to 7) when `correct`; null clears
  // the base and the effected picture.
  | { type: 'setOriginal'; picture: RawPicture | null; orientation: number; correct: boolean }
  // A preview render (with a new live frame as the base, when given), then the display pass.
  | { type: 'render'; state: ViewState; skipEffects: boolean; frame: RawPicture | null }
  // The display pass alone.
  | { type: 'display'; state: ViewState }
  | { type: 'randomizeControls'; state: ViewState }
  | { type: 'setControlSeed'; seed: string }
  | { type: 'editEffects'; edit: EffectEdit }
  | { type: 'setActiveEffects'; names: string[] }
  | { type: 'effects' }
  // How many kernels have run since the engine started, and the base's size.
  | { type: 'status' }
  | { type: 'rotate'; degrees: number; mirrored: boolean }
  // The composed final becomes the base. With a look, the flatten runs under it (as it once ran)
  // instead of under the list and the controls of now.
  | { type: 'flatten'; state: ViewState; look?: FlattenLook }
  | { type: 'renderFinal'; state: ViewState; mimeType: string; quality: number }
  | { type: 'crash' }
  | LookRequest;

export type EngineRequestType = EngineRequest['type'];

// A change of the effect list. A row is named by its place and its name; an edit whose row is not
// there (the page's copy of the list is older than the engine's) is refused, and the reply carries the
// list as it stands either way. `to` is the row's place after the move. Only the move is not stored.
export type EffectEdit =
  | { op: 'toggle'; row: number; name: string }
  | { op: 'move'; from: number; name: string; to: number }
  | { op: 'remove'; row: number; name: string }
  | { op: 'savePreset'; name: string }
  | { op: 'randomize' };

// What a flatten ran under besides the composition, so that it can be made again to the pixel: the
// effects in running order (presets opened up), the seed of the controls, the seed of the draws of the
// effects that flicker, and whether it ran at half size.
export interface FlattenLook {
  effects: string[];
  seed: string;
  flicker: number;
  half: boolean;
}

export interface EffectRow {
  name: string;
  isActive: boolean;
  preset: boolean;
}

export interface Replies extends LookReplies {
  // replacedList: why the stored effect list could not be used (the built-in list took its place), or null.
  init: {
    launchCount: number;
    defaults: DefaultsSnapshot;
    unreadableDefaults: boolean;
    replacedList: string | null;
    kernels: string[];
  };
  setDefault: Record<string, never>;
  setOriginal: { ok: boolean; width: number; height: number };
  render: { picture: RawPicture | null };
  display: { picture: RawPicture | null };
  randomizeControls: { picture: RawPicture | null; seed: string };
  setControlSeed: Record<string, never>;
  editEffects: { ok: boolean; rows: EffectRow[] };
  setActiveEffects: { active: number };
  effects: { rows: EffectRow[] };
  status: { kernelsRun: number; originalWidth: number; originalHeight: number };
  rotate: { ok: boolean };
  flatten: { ok: boolean; picture: RawPicture | null; look: FlattenLook | null };
  // The final as an encoded file (carrying its look) where the Worker can encode, else as pixels and
  // the XMP packet of its look.
  renderFinal: { file: Blob | null; picture: RawPicture | null; xmp: string };
  crash: Record<string, never>;
}

export type EngineReply<T extends EngineRequestType = EngineRequestType> = {
  type: 'reply';
  id: number;
  request: T;
  result: Replies[T];
};

// The defaults as the page keeps them: the encoded dictionary, its simple values for reading, and the
// sequence number of the page's last write that it includes.
export interface DefaultsSnapshot {
  bytes: ArrayBuffer;
  values: Record<string, number | boolean | string>;
  seq: number;
}

export type EngineNotice =
  | { type: 'defaults'; snapshot: DefaultsSnapshot }
  | { type: 'analytics'; name: string; parameters: Record<string, string> | null }
  // The core stopped on a fatal error: this Worker is finished.
  | { type: 'fatal'; message: string };

export type WorkerMessage = EngineReply | EngineNotice;

export type PageMessage = EngineRequest & { id: number };
