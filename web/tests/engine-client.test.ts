// The page's bridge to the engine: defaults kept in storage and handed to every new Worker, writes
// made while a Worker dies given again, requests under way failed, and analytics kept to 1000.
import { describe, expect, it, vi } from 'vitest';

import { EngineClient, EngineRestarted, type WorkerLike } from '../src/engine/client/engine-client';
import type { PageMessage, WorkerMessage } from '../src/engine/shared/protocol';
import { StoredAnalytics, kAnalyticsStorageKey } from '../src/platform/analytics';
import { kBackupsStorageKey, kDefaultsStorageKey, listKeptBackups, PageDefaults } from '../src/platform/defaults';
import { MemoryStorage } from '../src/platform/storage';

// A Worker that answers init and setDefault like the engine, with the dictionary as JSON bytes.
class FakeWorker implements WorkerLike {
  onmessage: ((event: MessageEvent<WorkerMessage>) => void) | null = null;
  onerror: ((event: ErrorEvent) => void) | null = null;
  received: PageMessage[] = [];
  terminated = false;
  silent = false;
  values: Record<string, number | boolean> = {};
  seq = 0;

  postMessage(message: PageMessage): void {
    this.received.push(message);
    if (!this.silent) queueMicrotask(() => this.answer(message));
  }
  terminate(): void {
    this.terminated = true;
  }
  send(message: WorkerMessage) {
    this.onmessage?.({ data: message } as MessageEvent<WorkerMessage>);
  }
  snapshot() {
    return { bytes: new TextEncoder().encode(JSON.stringify(this.values)).buffer as ArrayBuffer, values: { ...this.values }, seq: this.seq };
  }
  answer(m: PageMessage) {
    let result: unknown = {};
    if (m.type === 'init') {
      this.values = m.defaults ? JSON.parse(new TextDecoder().decode(m.defaults)) : {};
      this.seq = m.seq;
      if (m.countLaunch) this.values['____KLaunchCountKey'] = ((this.values['____KLaunchCountKey'] as number) ?? 0) + 1;
      // A stored list marked bad is replaced, as the engine replaces one it can't decode.
      const replacedList = 'badList' in this.values ? 'a row of it has no flag' : null;
      delete this.values['badList'];
      result = { launchCount: this.values['____KLaunchCountKey'] ?? 0, defaults: this.snapshot(), unreadableDefaults: false, replacedList, kernels: [] };
    } else if (m.type === 'setDefault') {
      this.values[m.key] = m.value;
      this.seq = m.seq;
      this.send({ type: 'defaults', snapshot: this.snapshot() });
    }
    this.send({ type: 'reply', id: m.id, request: m.type, result } as WorkerMessage);
  }
}

const flush = () => new Promise((r) => setTimeout(r, 0));

function setUp(storage = new MemoryStorage()) {
  const workers: FakeWorker[] = [];
  const defaults = new PageDefaults(storage);
  const newWorker = () => (workers.push(new FakeWorker()), workers.at(-1)!);
  return { client: new EngineClient(newWorker, defaults, new StoredAnalytics(storage), 2), workers, defaults };
}

describe('engine client', () => {
  it('stores every version of the defaults and gives them to the next start', async () => {
    const storage = new MemoryStorage();
    const first = setUp(storage);
    expect((await first.client.start()).launchCount).toBe(1);
    first.defaults.setInteger(1, 'kFlashModeKey');
    expect(first.defaults.integerForKey('kFlashModeKey')).toBe(1); // at once, before the engine answers
    await flush();

    const second = setUp(storage);
    expect((await second.client.start()).launchCount).toBe(2);
    expect(second.defaults.integerForKey('kFlashModeKey')).toBe(1);
  });

  it('keeps a page write that an older version from the engine does not have', async () => {
    const { client, workers, defaults } = setUp();
    await client.start();
    workers[0]!.silent = true;
    defaults.setBool(true, 'zz.kvt.zorvex.kHasShownIntroMessageBaby');
    workers[0]!.send({ type: 'defaults', snapshot: { ...workers[0]!.snapshot(), seq: 0 } });
    expect(defaults.boolForKey('zz.kvt.zorvex.kHasShownIntroMessageBaby')).toBe(true);
    expect(defaults.pendingWrites()).toHaveLength(1);
  });

  it('a reload before the engine took a write loses nothing: the next start hands it over', async () => {
    const storage = new MemoryStorage();
    const first = setUp(storage);
    await first.client.start();
    first.workers[0]!.silent = true;
    first.defaults.setInteger(1, '__SaveSettingKey__'); // the page goes away before any answer

    const second = setUp(storage);
    expect(second.defaults.integerForKey('__SaveSettingKey__')).toBe(1); // at once, from the page's own store
    expect((await second.client.start()).launchCount).toBe(2);
    await flush();
    expect(second.workers[0]!.values['__SaveSettingKey__']).toBe(1);
    expect(second.defaults.integerForKey('__SaveSettingKey__')).toBe(1);
    expect(second.defaults.pendingWrites()).toHaveLength(0);
    expect(new PageDefaults(storage).pendingWrites()).toHaveLength(0); // nothing left to hand over
  });

  it('replaces a Worker that dies, fails what was under way, and hands over the defaults and unsaved writes', async () => {
    const { client, workers, defaults } = setUp();
    await client.start();
    client.onRestarted = vi.fn();
    workers[0]!.silent = true;
    const underWay = client.request({ type: 'effects' });
    defaults.setInteger(-1, 'kFlashModeKey'); // reaches the old Worker, which never answers
    await flush();
    workers[0]!.send({ type: 'fatal', message: 'RuntimeError: unreachable' });
    await expect(underWay).rejects.toBeInstanceOf(EngineRestarted);
    expect(workers[0]!.terminated).toBe(true);
    await flush();
    await flush();
    expect(client.restarts).toBe(1);
    expect(client.onRestarted).toHaveBeenCalledTimes(1);
    const next = workers[1]!;
    expect(next.received[0]).toMatchObject({ type: 'init', countLaunch: false });
    expect(next.received.find((m) => m.type === 'setDefault')).toMatchObject({ key: 'kFlashModeKey', value: -1 });
    expect(next.values['____KLaunchCountKey']).toBe(1);
    expect(defaults.integerForKey('kFlashModeKey')).toBe(-1);
    await client.request({ type: 'editEffects', edit: { op: 'randomize' } }); // the new Worker answers
  });

  it('keeps the latest 1000 analytics events, and starts them again over a broken store', () => {
    const storage = new MemoryStorage();
    const analytics = new StoredAnalytics(storage, () => new Date(0));
    for (let i = 0; i < 1005; ++i) analytics.logEvent(`button_${i}`, null);
    const events = analytics.events();
    expect([events.length, events[0]?.name, events.at(-1)?.name]).toEqual([1000, 'button_5', 'button_1004']);
    storage.setItem(kAnalyticsStorageKey, '{broken');
    analytics.logEvent('event_x', { ERROR: 'e' });
    expect(analytics.events()).toEqual([{ time: new Date(0).toISOString(), name: 'event_x', parameters: { ERROR: 'e' } }]);
  });

  it('keeps stored defaults that are not base64, or whose list the engine replaces, and lists what it kept', async () => {
    const storage = new MemoryStorage();
    storage.setItem(kDefaultsStorageKey, '%%%');
    expect(new PageDefaults(storage).storedBytes()).toBeNull();
    expect(storage.getItem(kDefaultsStorageKey)).toBe('');

    const stored = btoa(JSON.stringify({ badList: 1, kFlashModeKey: 1 }));
    storage.setItem(kDefaultsStorageKey, stored);
    await setUp(storage).client.start();
    expect(storage.getItem(kDefaultsStorageKey)).not.toBe(stored); // the engine's version is stored...
    const kept = listKeptBackups(storage);
    expect(kept.map((b) => [storage.getItem(b.key), b.reason])).toEqual([
      ['%%%', expect.stringContaining('not base64')],
      [stored, expect.stringContaining('a row of it has no flag')], // ...after the old one was kept
    ]);
    expect(kept[0]!.key).toMatch(/^zorvex\.defaults\.unreadable-\d{4}-/);
    expect(kept[1]!.bytes).toBe(stored.length);
    storage.setItem(kBackupsStorageKey, '{broken');
    expect(listKeptBackups(storage)).toEqual([]);
  });
});
