// The look requests carried out on the engine module (look_api.cpp).
import type { ZorvexEngineModule } from '@engine/zorvex_engine.mjs';

import type { AppliedLook, LookReplies, LookRequest } from '../shared/look-protocol';
import { withBytes, withString } from './heap';

export class LookRequests {
  constructor(private readonly module: ZorvexEngineModule) {}

  handle(request: LookRequest): LookReplies[LookRequest['type']] {
    const m = this.module;
    switch (request.type) {
      case 'lookFromPicture': {
        const status = withBytes(this.module, new Uint8Array(request.file), (ptr, length) => m._zv_look_from_picture(ptr, length));
        const text = this.text();
        if (status === 0) return { status: 'look', look: text, error: null };
        return status === 1 ? { status: 'none', look: null, error: null } : { status: 'error', look: null, error: text };
      }
      case 'parseLook': {
        const status = withString(this.module, request.text, (ptr) => m._zv_parse_look(ptr));
        return status === 0 ? { look: this.text(), error: null } : { look: null, error: this.text() };
      }
      case 'applyLook': {
        const status = withString(this.module, request.text, (ptr) => m._zv_apply_look(ptr, request.withEdits ? 1 : 0));
        if (status !== 0) return { applied: null, error: this.text() };
        return { applied: JSON.parse(this.text()) as AppliedLook, error: null };
      }
      case 'currentLook':
        return { text: m.UTF8ToString(m._zv_current_look(request.compact ? 1 : 0)) };
      case 'embedLook': {
        const file = this.embed(new Uint8Array(request.file), request.xmp);
        return file ? { file: file.buffer as ArrayBuffer, error: null } : { file: null, error: this.text() };
      }
    }
  }

  // The XMP packet of the current picture's look.
  currentXmp(): string {
    return this.module.UTF8ToString(this.module._zv_current_look_xmp());
  }

  // The file with the packet as its XMP, or null.
  embed(file: Uint8Array, xmp: string): Uint8Array<ArrayBuffer> | null {
    const m = this.module;
    return withString(this.module, xmp, (packet) =>
      withBytes(this.module, file, (ptr, length) => {
        const out = m._zv_embed_xmp(ptr, length, packet);
        if (!out) return null;
        const bytes = m.HEAPU8.slice(out, out + m._zv_look_bytes_length());
        m._zv_release_look_bytes();
        return bytes;
      }),
    );
  }

  private text(): string {
    return this.module.UTF8ToString(this.module._zv_look_text());
  }
}
