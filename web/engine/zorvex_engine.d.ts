// The engine module's C API as the Worker sees it (see engine_api.cpp). Pointers are offsets into
// HEAPU8; read HEAPU8 again after any call that can allocate, since growing memory replaces it.
declare module '@engine/zorvex_engine.mjs' {
  export interface ZorvexEngineModule {
    HEAPU8: Uint8Array;
    _malloc(size: number): number;
    _free(ptr: number): void;
    UTF8ToString(ptr: number): string;
    stringToUTF8(text: string, ptr: number, maxBytes: number): void;
    lengthBytesUTF8(text: string): number;

    _zv_init(defaults: number, length: number, scale: number): number;
    _zv_list_problem(): number;
    _zv_count_launch(): number;
    _zv_set_original(rgba: number, width: number, height: number, orientation: number, correct: number): number;
    _zv_clear_images(): void;
    _zv_original_width(): number;
    _zv_original_height(): number;
    _zv_layout(width: number, height: number): void;
    _zv_render(skipEffects: number): number;
    _zv_is_drawing(): number;
    _zv_kernels_run(): number;
    _zv_compose(width: number, height: number): number;
    _zv_render_final(): number;
    _zv_picture(): number;
    _zv_picture_width(): number;
    _zv_picture_height(): number;
    _zv_release_picture(): void;
    _zv_set_blend_mode(index: number, skipDisplay: number): void;
    _zv_set_layer_alpha(alpha: number): void;
    _zv_set_hide_effects(hide: number): void;
    _zv_randomize_controls(): void;
    _zv_control_seed_high(): number;
    _zv_control_seed_low(): number;
    _zv_set_control_seed(high: number, low: number): void;
    _zv_rotate_base_image(degrees: number, mirrored: number): number;
    _zv_flatten(): number;
    _zv_flatten_under(names: number, seedHigh: number, seedLow: number, flicker: number, half: number): number;
    _zv_last_look_json(): number;
    _zv_toggle_effect(row: number, name: number): number;
    _zv_move_effect(from: number, name: number, to: number): number;
    _zv_remove_effect(row: number, name: number): number;
    _zv_save_active_as_preset(name: number): void;
    _zv_randomize_effects(): number;
    _zv_set_active_effects(names: number): number;
    _zv_effects_json(): number;
    _zv_kernel_names(): number;
    _zv_defaults_bytes(): number;
    _zv_text_length(): number;
    _zv_defaults_json(): number;
    _zv_set_default_integer(key: number, value: number): void;
    _zv_set_default_bool(key: number, value: number): void;
    _zv_fatal(): void;

    // Looks (look_api.cpp).
    _zv_look_from_picture(file: number, length: number): number;
    _zv_parse_look(text: number): number;
    _zv_apply_look(text: number, withEdits: number): number;
    _zv_current_look(compact: number): number;
    _zv_current_look_xmp(): number;
    _zv_look_text(): number;
    _zv_embed_xmp(file: number, length: number, packet: number): number;
    _zv_look_bytes_length(): number;
    _zv_release_look_bytes(): void;
  }

  export interface ZorvexEngineOptions {
    wasmBinary?: ArrayBuffer | Uint8Array;
    locateFile?: (path: string, prefix: string) => string;
    print?: (line: string) => void;
    printErr?: (line: string) => void;
    // Told after each change of the defaults; read zv_defaults_bytes then.
    onDefaultsChanged?: () => void;
    // Each analytics event, with its parameters or null.
    onAnalyticsEvent?: (name: string, parameters: Record<string, string> | null) => void;
  }

  function createZorvexEngine(options?: ZorvexEngineOptions): Promise<ZorvexEngineModule>;
  export default createZorvexEngine;
}
