// The engine module's C API under node, through the Worker's request handler: defaults in and out,
// the display pass and the frame gate, blend and opacity without a run of the stack, the edit tools,
// the final render, and a fatal error.
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

import createZorvexEngine from '@engine/zorvex_engine.mjs';
import { describe, expect, it } from 'vitest';

import type { DefaultsSnapshot, EffectEdit, RawPicture, ViewState } from '../src/engine/shared/protocol';
import { EngineCore } from '../src/engine/worker/engine-core';

const wasmBinary = readFileSync(fileURLToPath(new URL('../../build-wasm/engine/zorvex_engine.wasm', import.meta.url)));

async function start(defaults: ArrayBuffer | null = null) {
  const events: string[] = [];
  let core: EngineCore | null = null;
  const module = await createZorvexEngine({
    wasmBinary,
    print: () => undefined,
    onDefaultsChanged: () => core?.markDefaultsChanged(),
    onAnalyticsEvent: (name) => events.push(name),
  });
  core = new EngineCore(module);
  const init = await core.handle({ type: 'init', defaults, scale: 2, countLaunch: true, seq: 0 });
  return { core, init: init as { launchCount: number; defaults: DefaultsSnapshot; unreadableDefaults: boolean; kernels: string[] }, events };
}

// A picture of horizontal colour bands.
function bands(width: number, height: number): RawPicture {
  const data = new Uint8Array(width * height * 4);
  for (let y = 0; y < height; y++)
    for (let x = 0; x < width; x++) data.set([(y * 37) & 255, (x * 5) & 255, 200 - ((y * 3) & 127), 255], (y * width + x) * 4);
  return { width, height, data: data.buffer };
}

const state = (over: Partial<ViewState> = {}): ViewState => ({
  blendIndex: 0,
  alpha: 1,
  hideEffects: false,
  layout: { width: 120, height: 90 },
  display: { width: 240, height: 180 },
  ...over,
});

const print = (p: RawPicture | null) => {
  expect(p).not.toBeNull();
  const d = new Uint8Array(p!.data);
  let h = 0;
  for (let i = 0; i < d.length; i += 7) h = (h * 31 + d[i]!) >>> 0;
  return h;
};

type Status = { kernelsRun: number; originalWidth: number; originalHeight: number };

describe('engine', () => {
  it('counts the launch, keeps what it is given, and gives the same defaults back to a new engine', async () => {
    const first = await start();
    expect(first.init.launchCount).toBe(1);
    expect(first.init.kernels.length).toBeGreaterThanOrEqual(32);
    await first.core.handle({ type: 'setDefault', key: 'kFlashModeKey', value: -1, seq: 3 });
    await first.core.handle({ type: 'editEffects', edit: { op: 'randomize' } });
    const snapshot = first.core.takeDefaultsChange()!;
    expect(snapshot.seq).toBe(3);
    expect(snapshot.values['kFlashModeKey']).toBe(-1);
    expect(first.core.takeDefaultsChange()).toBeNull();
    const rows = ((await first.core.handle({ type: 'effects' })) as { rows: { isActive: boolean }[] }).rows;
    expect(rows.filter((r) => r.isActive)).toHaveLength(2);

    const second = await start(snapshot.bytes);
    expect(second.init.launchCount).toBe(2);
    expect(second.init.defaults.values['kFlashModeKey']).toBe(-1);
    expect(((await second.core.handle({ type: 'effects' })) as { rows: unknown[] }).rows).toEqual(rows);
  });

  it('starts from empty defaults when the stored bytes are no property list', async () => {
    const { init } = await start(new TextEncoder().encode('not a plist').buffer as ArrayBuffer);
    expect(init.unreadableDefaults).toBe(true);
    expect(init.launchCount).toBe(1);
  });

  it('renders a frame and composes at the display size; blend, opacity and hiding only recompose', async () => {
    const { core, events } = await start();
    const shown = (await core.handle({ type: 'randomizeControls', state: state() })) as { picture: RawPicture | null; seed: string };
    expect(events).toContain('button_randomParams');
    expect(shown.seed).toMatch(/^\d+$/);
    const r = (await core.handle({ type: 'render', state: state(), skipEffects: false, frame: bands(96, 72) })) as {
      picture: RawPicture;
    };
    expect([r.picture.width, r.picture.height]).toEqual([240, 180]);
    const effected = print(r.picture);
    const status = async () => (await core.handle({ type: 'status' })) as Status;
    const kernels = (await status()).kernelsRun;
    expect(kernels).toBeGreaterThan(0);

    const look = async (over: Partial<ViewState>) => print(((await core.handle({ type: 'display', state: state(over) })) as { picture: RawPicture }).picture);
    const hidden = await look({ hideEffects: true });
    const difference = await look({ blendIndex: 5 });
    const faded = await look({ alpha: 0 });
    expect(new Set([effected, hidden, difference])).toHaveProperty('size', 3);
    expect(faded).toBe(hidden);
    expect(await look({})).toBe(effected);
    expect((await status()).kernelsRun).toBe(kernels);

    // A frame too small to work on is not taken, and the last picture stays.
    const tiny = (await core.handle({ type: 'render', state: state(), skipEffects: false, frame: bands(8, 8) })) as { picture: RawPicture };
    expect(print(tiny.picture)).toBe(effected);
  });

  it('turns, flattens and renders the final at the base size', async () => {
    const { core } = await start();
    const still = bands(64, 40);
    const set = (await core.handle({ type: 'setOriginal', picture: still, orientation: 3, correct: true })) as { ok: boolean; width: number; height: number };
    expect(set).toEqual({ ok: true, width: 40, height: 64 }); // orientation 3 stands it upright: turned a quarter
    expect(((await core.handle({ type: 'rotate', degrees: 90, mirrored: false })) as { ok: boolean }).ok).toBe(true);
    let s = (await core.handle({ type: 'status' })) as Status;
    expect([s.originalWidth, s.originalHeight]).toEqual([64, 40]);
    const flat = (await core.handle({ type: 'flatten', state: state() })) as { ok: boolean; picture: RawPicture | null };
    expect(flat.ok).toBe(true);
    expect(flat.picture).not.toBeNull();
    const final = (await core.handle({ type: 'renderFinal', state: state(), mimeType: 'image/jpeg', quality: 0.9 })) as {
      file: Blob | null;
      picture: RawPicture | null;
    };
    expect(final.file).toBeNull(); // no encoder under node: the pixels come back
    expect([final.picture?.width, final.picture?.height]).toEqual([64, 40]);
    await core.handle({ type: 'setOriginal', picture: null, orientation: 0, correct: false });
    expect(((await core.handle({ type: 'rotate', degrees: 90, mirrored: false })) as { ok: boolean }).ok).toBe(false);
    s = (await core.handle({ type: 'status' })) as Status;
    expect(s.originalWidth).toBe(0);
  });

  it('puts the named effects on top, on, in the order given', async () => {
    const { core } = await start();
    // AGENCY is on already, as the list starts.
    const reply = (await core.handle({ type: 'setActiveEffects', names: ['BUNKER', 'AGENCY', 'NO SUCH'] })) as { active: number };
    expect(reply.active).toBe(2);
    const rows = ((await core.handle({ type: 'effects' })) as { rows: { name: string; isActive: boolean }[] }).rows;
    expect(rows.slice(0, 4).map((r) => [r.name, r.isActive])).toEqual([
      ['BUNKER', true],
      ['AGENCY', true],
      ['GRABOID', false],
      ['VETH', false],
    ]);
  });

  it('edits the list as the Arrange screen does, refusing rows that are not where the page thinks', async () => {
    const { core } = await start();
    type Edited = { ok: boolean; rows: { name: string; isActive: boolean; preset: boolean }[] };
    const edit = async (e: EffectEdit) => (await core.handle({ type: 'editEffects', edit: e })) as Edited;
    await core.handle({ type: 'setActiveEffects', names: ['AGENCY', 'INTERFACE'] });
    core.takeDefaultsChange();
    expect((await edit({ op: 'move', from: 0, name: 'AGENCY', to: 3 })).rows.slice(0, 4).map((r) => r.name)).toEqual([
      'INTERFACE',
      'GRABOID',
      'VETH',
      'AGENCY',
    ]);
    expect(core.takeDefaultsChange()).toBeNull(); // a move alone is not stored
    for (const refused of [
      { op: 'toggle', row: 0, name: 'AGENCY' },
      { op: 'move', from: 0, name: 'INTERFACE', to: 34 },
      { op: 'remove', row: 99, name: 'GRABOID' },
    ] as EffectEdit[])
      expect((await edit(refused)).ok).toBe(false);

    const saved = await edit({ op: 'savePreset', name: 'PAIR' });
    expect(saved.rows.at(-1)).toEqual({ name: 'PAIR', isActive: false, preset: true });
    expect(core.takeDefaultsChange()).not.toBeNull();
    await edit({ op: 'toggle', row: 0, name: 'INTERFACE' });
    await edit({ op: 'toggle', row: 3, name: 'AGENCY' });
    const on = await edit({ op: 'toggle', row: 34, name: 'PAIR' });
    expect(on.rows.filter((r) => r.isActive).map((r) => r.name)).toEqual(['PAIR']);

    // The preset opens up into its two members when the stack runs.
    const kernels = async () => ((await core.handle({ type: 'status' })) as Status).kernelsRun;
    await core.handle({ type: 'render', state: state(), skipEffects: false, frame: bands(64, 48) });
    const before = await kernels();
    await core.handle({ type: 'render', state: state(), skipEffects: false, frame: bands(64, 48) });
    expect((await kernels()) - before).toBe(2);

    expect((await edit({ op: 'remove', row: 34, name: 'PAIR' })).rows.map((r) => r.name)).not.toContain('PAIR');
  });

  it('reaches the page as a runtime error when the core stops on a fatal error', async () => {
    const { core } = await start();
    await expect(core.handle({ type: 'crash' })).rejects.toBeInstanceOf(WebAssembly.RuntimeError);
  });
});
