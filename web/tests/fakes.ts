// Fakes shared by the screens' tests: a view that records what it is told, and an engine that answers
// through a function and can hold its replies back.
import { vi } from 'vitest';

import type { EngineClient } from '../src/engine/client/engine-client';
import type { EngineRequest, RawPicture } from '../src/engine/shared/protocol';
import { EffectedImageView, type PhotoLibrary, type PictureDecoder } from '../src/screens/effected-image-view';

export const picture = (width = 8, height = 6): RawPicture => ({ width, height, data: new ArrayBuffer(width * height * 4) });

export const settle = () => vi.advanceTimersByTimeAsync(0);

export interface Recording<T> {
  view: T;
  // Each method's latest first argument, and how often it was called.
  last: { [K in keyof T]?: unknown };
  calls: { [K in keyof T]?: number };
}

// A view that takes any call; the methods in `own` run as they are. It is no promise (no `then`).
export function recordingView<T extends object>(own: Partial<T> = {}): Recording<T> {
  const last: Record<string, unknown> = {};
  const calls: Record<string, number> = {};
  const record = (name: string) => (value: unknown) => {
    last[name] = value;
    calls[name] = (calls[name] ?? 0) + 1;
  };
  const view = new Proxy(own, {
    get: (target, name) => (name in target || typeof name === 'symbol' || name === 'then' ? Reflect.get(target, name) : record(name)),
  });
  return { view: view as T, last: last as Recording<T>['last'], calls: calls as Recording<T>['calls'] };
}

export class FakeEngine {
  requests: EngineRequest[] = [];
  hold = false;
  private held: (() => void)[] = [];

  constructor(public answer: (request: EngineRequest) => unknown) {}

  get client(): EngineClient {
    return this as unknown as EngineClient;
  }

  request(r: EngineRequest): Promise<unknown> {
    this.requests.push(r);
    if (!this.hold) return Promise.resolve(this.answer(r));
    return new Promise((resolve) => this.held.push(() => resolve(this.answer(r))));
  }

  release(): void {
    const held = this.held;
    this.held = [];
    held.forEach((h) => h());
  }

  of<T extends EngineRequest['type']>(type: T) {
    return this.requests.filter((r) => r.type === type) as Extract<EngineRequest, { type: T }>[];
  }

  // The picture view over this engine, 100x80 points on a 200x160 canvas; stills decode to 40x30
  // unless `decode` says otherwise.
  imageView(library = {} as PhotoLibrary, decode: PictureDecoder = async () => picture(40, 30)): EffectedImageView {
    const display = { layoutSize: () => ({ width: 100, height: 80 }), displaySize: () => ({ width: 200, height: 160 }), show: () => undefined };
    return new EffectedImageView(this.client, display, library, decode);
  }
}
