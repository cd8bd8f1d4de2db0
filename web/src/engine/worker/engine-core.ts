// The requests of the page carried out on the engine module. Kept apart from the Worker's message
// plumbing so that tests can run it on the module under node.
import type { ZorvexEngineModule } from '@engine/zorvex_engine.mjs';

import { LookRequests } from './look-requests';
import { withBytes, withString } from './heap';

import { isLookRequest } from '../shared/look-protocol';
import type {
  DefaultsSnapshot,
  EffectEdit,
  EffectRow,
  EngineRequest,
  FlattenLook,
  RawPicture,
  Replies,
  ViewState,
} from '../shared/protocol';

export interface EngineCoreHooks {
  // Encodes the final picture as a file, where the environment can (OffscreenCanvas).
  encode?: (picture: RawPicture, mimeType: string, quality: number) => Promise<Blob | null>;
}

type Result<T extends EngineRequest['type']> = Replies[T];

export class EngineCore {
  private lastLayout = { width: -1, height: -1 };
  private defaultsDirty = false;
  private lastSeq = 0;
  private readonly looks: LookRequests;

  constructor(
    readonly module: ZorvexEngineModule,
    private readonly hooks: EngineCoreHooks = {},
  ) {
    this.looks = new LookRequests(module);
  }

  // Called by the module's onDefaultsChanged.
  markDefaultsChanged(): void {
    this.defaultsDirty = true;
  }

  // The defaults after a change since the last call, or null.
  takeDefaultsChange(): DefaultsSnapshot | null {
    if (!this.defaultsDirty) return null;
    this.defaultsDirty = false;
    return this.snapshot();
  }

  snapshot(): DefaultsSnapshot {
    const m = this.module;
    const ptr = m._zv_defaults_bytes();
    const bytes = m.HEAPU8.slice(ptr, ptr + m._zv_text_length()).buffer;
    const values = JSON.parse(m.UTF8ToString(m._zv_defaults_json())) as DefaultsSnapshot['values'];
    return { bytes, values, seq: this.lastSeq };
  }

  async handle(request: EngineRequest): Promise<Result<EngineRequest['type']>> {
    const m = this.module;
    if (isLookRequest(request)) return this.looks.handle(request);
    switch (request.type) {
      case 'init': {
        const bytes = request.defaults ? new Uint8Array(request.defaults) : new Uint8Array(0);
        const status = withBytes(this.module, bytes, (ptr) => m._zv_init(ptr, bytes.length, request.scale));
        const launchCount = request.countLaunch ? m._zv_count_launch() : 0;
        const kernels = m.UTF8ToString(m._zv_kernel_names()).split('\n').filter((n) => n !== '');
        this.defaultsDirty = false;
        this.lastSeq = request.seq;
        const replacedList = status & 2 ? m.UTF8ToString(m._zv_list_problem()) : null;
        return { launchCount, defaults: this.snapshot(), unreadableDefaults: (status & 1) !== 0, replacedList, kernels };
      }
      case 'setDefault': {
        withString(this.module, request.key, (key) => {
          if (typeof request.value === 'boolean') m._zv_set_default_bool(key, request.value ? 1 : 0);
          else m._zv_set_default_integer(key, request.value);
        });
        this.lastSeq = request.seq;
        this.defaultsDirty = true;
        return {};
      }
      case 'setOriginal': {
        const p = request.picture;
        if (!p) {
          m._zv_clear_images();
          return { ok: true, width: 0, height: 0 };
        }
        const status = withBytes(this.module, new Uint8Array(p.data), (ptr) =>
          m._zv_set_original(ptr, p.width, p.height, request.orientation, request.correct ? 1 : 0),
        );
        return { ok: status === 0, width: m._zv_original_width(), height: m._zv_original_height() };
      }
      case 'render': {
        this.apply(request.state);
        if (request.frame) {
          const f = request.frame;
          const status = withBytes(this.module, new Uint8Array(f.data), (ptr) => m._zv_set_original(ptr, f.width, f.height, 0, 0));
          if (status !== 0) return { picture: this.display(request.state) };
        }
        this.openGate(request.state);
        m._zv_render(request.skipEffects ? 1 : 0);
        return { picture: this.display(request.state) };
      }
      case 'display':
        this.apply(request.state);
        return { picture: this.display(request.state) };
      case 'randomizeControls': {
        this.apply(request.state);
        this.openGate(request.state);
        m._zv_randomize_controls();
        return { picture: this.display(request.state), seed: this.seed() };
      }
      case 'setControlSeed': {
        const seed = BigInt(request.seed);
        m._zv_set_control_seed(Number(seed >> 32n), Number(seed & 0xffffffffn));
        return {};
      }
      case 'editEffects':
        return { ok: this.edit(request.edit) === 0, rows: this.rows() };
      case 'setActiveEffects': {
        const active = withString(this.module, request.names.join('\n'), (ptr) => m._zv_set_active_effects(ptr));
        return { active };
      }
      case 'effects':
        return { rows: this.rows() };
      case 'status':
        return {
          kernelsRun: m._zv_kernels_run() >>> 0,
          originalWidth: m._zv_original_width(),
          originalHeight: m._zv_original_height(),
        };
      case 'rotate':
        return { ok: m._zv_rotate_base_image(request.degrees, request.mirrored ? 1 : 0) === 1 };
      case 'flatten': {
        this.apply(request.state);
        this.openGate(request.state);
        const look = request.look;
        if (look) {
          const seed = BigInt(look.seed);
          const ok =
            withString(this.module, look.effects.join('\n'), (names) =>
              m._zv_flatten_under(names, Number(seed >> 32n), Number(seed & 0xffffffffn), look.flicker >>> 0, look.half ? 1 : 0),
            ) === 1;
          return { ok, picture: this.display(request.state), look: ok ? look : null };
        }
        const ok = m._zv_flatten() === 1;
        const made = ok ? (JSON.parse(m.UTF8ToString(m._zv_last_look_json())) as FlattenLook) : null;
        return { ok, picture: this.display(request.state), look: made };
      }
      case 'renderFinal': {
        this.apply(request.state);
        const picture = m._zv_render_final() === 1 ? this.takePicture() : null;
        m._zv_release_picture();
        const xmp = this.looks.currentXmp();
        if (!picture) return { file: null, picture: null, xmp };
        const file = this.hooks.encode ? await this.hooks.encode(picture, request.mimeType, request.quality) : null;
        if (!file) return { file: null, picture, xmp };
        // The saved picture carries its look, and nothing else of metadata.
        const withLook = this.looks.embed(new Uint8Array(await file.arrayBuffer()), xmp);
        return { file: withLook ? new Blob([withLook], { type: file.type }) : file, picture: null, xmp };
      }
      case 'crash':
        m._zv_fatal();
        return {};
    }
  }

  private rows(): EffectRow[] {
    return JSON.parse(this.module.UTF8ToString(this.module._zv_effects_json())) as EffectRow[];
  }

  // 0 when done, 1 when refused.
  private edit(edit: EffectEdit): number {
    const m = this.module;
    switch (edit.op) {
      case 'toggle':
        return withString(this.module, edit.name, (name) => m._zv_toggle_effect(edit.row, name));
      case 'move':
        return withString(this.module, edit.name, (name) => m._zv_move_effect(edit.from, name, edit.to));
      case 'remove':
        return withString(this.module, edit.name, (name) => m._zv_remove_effect(edit.row, name));
      case 'savePreset':
        withString(this.module, edit.name, (name) => m._zv_save_active_as_preset(name));
        return 0;
      case 'randomize':
        return m._zv_randomize_effects();
    }
  }

  private seed(): string {
    const m = this.module;
    return ((BigInt(m._zv_control_seed_high() >>> 0) << 32n) | BigInt(m._zv_control_seed_low() >>> 0)).toString();
  }

  private apply(state: ViewState): void {
    const m = this.module;
    if (state.layout.width !== this.lastLayout.width || state.layout.height !== this.lastLayout.height) {
      m._zv_layout(state.layout.width, state.layout.height);
      this.lastLayout = { ...state.layout };
    }
    m._zv_set_blend_mode(state.blendIndex, 1);
    m._zv_set_layer_alpha(state.alpha);
    m._zv_set_hide_effects(state.hideEffects ? 1 : 0);
  }

  // The page keeps one request in flight, so the model's gate is shut here only when the last display
  // pass had nothing to show; a display pass opens it.
  private openGate(state: ViewState): void {
    if (this.module._zv_is_drawing()) this.module._zv_compose(state.display.width, state.display.height);
  }

  private display(state: ViewState): RawPicture | null {
    return this.module._zv_compose(state.display.width, state.display.height) ? this.takePicture() : null;
  }

  private takePicture(): RawPicture {
    const m = this.module;
    const width = m._zv_picture_width();
    const height = m._zv_picture_height();
    const ptr = m._zv_picture();
    return { width, height, data: m.HEAPU8.slice(ptr, ptr + width * height * 4).buffer };
  }
}
