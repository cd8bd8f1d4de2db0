// The engine Worker: loads the WebAssembly core and carries out the page's requests one at a time. A
// fatal error in the core ends this Worker; the page starts a new one.
import createZorvexEngine from '@engine/zorvex_engine.mjs';
import wasmUrl from '@engine/zorvex_engine.wasm?url';

import type { EngineNotice, EngineReply, PageMessage, RawPicture } from '../shared/protocol';
import { EngineCore } from './engine-core';

const scope = self as unknown as DedicatedWorkerGlobalScope;

function post(message: EngineReply | EngineNotice, transfer: Transferable[] = []): void {
  scope.postMessage(message, transfer);
}

async function encode(picture: RawPicture, mimeType: string, quality: number): Promise<Blob | null> {
  if (typeof OffscreenCanvas === 'undefined') return null;
  const canvas = new OffscreenCanvas(picture.width, picture.height);
  const context = canvas.getContext('2d');
  if (!context) return null;
  context.putImageData(new ImageData(new Uint8ClampedArray(picture.data), picture.width, picture.height), 0, 0);
  return canvas.convertToBlob({ type: mimeType, quality });
}

let core: EngineCore | null = null;
const ready = createZorvexEngine({
  locateFile: (path) => (path.endsWith('.wasm') ? wasmUrl : path),
  onDefaultsChanged: () => core?.markDefaultsChanged(),
  onAnalyticsEvent: (name, parameters) => post({ type: 'analytics', name, parameters }),
}).then((module) => (core = new EngineCore(module, { encode })));

// Buffers in a result go back transferred.
function transfers(result: object): Transferable[] {
  const out: Transferable[] = [];
  for (const value of Object.values(result)) {
    if (value && typeof value === 'object' && 'data' in value && value.data instanceof ArrayBuffer) out.push(value.data);
  }
  return out;
}

let stopped = false;
let queue: Promise<void> = Promise.resolve();

scope.onmessage = (event: MessageEvent<PageMessage>) => {
  const message = event.data;
  queue = queue.then(async () => {
    if (stopped) return;
    try {
      const engine = await ready;
      const result = await engine.handle(message);
      const snapshot = engine.takeDefaultsChange();
      if (snapshot) post({ type: 'defaults', snapshot }, [snapshot.bytes]);
      post({ type: 'reply', id: message.id, request: message.type, result } as EngineReply, transfers(result));
    } catch (error) {
      // An abort or a trap in the core leaves the module in no state to go on with.
      stopped = true;
      post({ type: 'fatal', message: error instanceof Error ? `${error.name}: ${error.message}` : String(error) });
      scope.close();
    }
  });
};
