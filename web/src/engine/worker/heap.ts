// Handing bytes and text into the engine module's memory for the length of one call.
import type { ZorvexEngineModule } from '@engine/zorvex_engine.mjs';

// `bytes` copied into the module's memory while `body` runs, then freed.
export function withBytes<T>(module: ZorvexEngineModule, bytes: Uint8Array, body: (ptr: number, length: number) => T): T {
  const ptr = module._malloc(Math.max(1, bytes.length));
  try {
    module.HEAPU8.set(bytes, ptr);
    return body(ptr, bytes.length);
  } finally {
    module._free(ptr);
  }
}

// `text` as a NUL-terminated UTF-8 string in the module's memory while `body` runs, then freed.
export function withString<T>(module: ZorvexEngineModule, text: string, body: (ptr: number) => T): T {
  const size = module.lengthBytesUTF8(text) + 1;
  const ptr = module._malloc(size);
  try {
    module.stringToUTF8(text, ptr, size);
    return body(ptr);
  } finally {
    module._free(ptr);
  }
}
