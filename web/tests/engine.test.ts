// The engine module's C API under node, through the Worker's request handler: defaults in and out,
// the display pass and the frame gate, blend and opacity without a run of the stack, the edit tools,
// the list edits, the final render, and a fatal error.
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

import createZorvexEngine from '@engine/zorvex_engine.mjs';
import { describe, expect, it } from 'vitest';

import type { EffectEdit, EngineRequest, RawPicture, Replies, ViewState } from '../src/engine/shared/protocol';
import { EngineCore } from '../src/engine/worker/engine-core';
import { oppositeTurn } from '../src/screens/edit-history';

const wasmBinary = readFileSync(fileURLToPath(new URL('../../build-wasm/engine/zorvex_engine.wasm', import.meta.url)));

// A new engine, started on the stored bytes given; `ask` hands it a request and types its reply.
async function start(defaults: ArrayBuffer | null = null) {
  const events: string[] = [];
  let core: EngineCore | null = null;
  const module = await createZorvexEngine({
    wasmBinary,
    print: () => undefined,
    onDefaultsChanged: () => core?.markDefaultsChanged(),
    onAnalyticsEvent: (name) => events.push(name),
  });
  const engine = new EngineCore(module);
  core = engine;
  const ask = <T extends EngineRequest>(request: T) => engine.handle(request) as Promise<Replies[T['type']]>;
  const init = await ask({ type: 'init', defaults, scale: 2, countLaunch: true, seq: 0 });
  return { core: engine, ask, init, events };
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

describe('engine', () => {
  it('counts the launch, hands what it keeps to the next engine, and starts afresh from bytes that are no property list', async () => {
    const first = await start();
    expect(first.init.launchCount).toBe(1);
    expect(first.init.kernels.length).toBeGreaterThanOrEqual(32);
    await first.ask({ type: 'setDefault', key: 'kFlashModeKey', value: -1, seq: 3 });
    await first.ask({ type: 'editEffects', edit: { op: 'randomize' } });
    const snapshot = first.core.takeDefaultsChange()!;
    expect([snapshot.seq, snapshot.values['kFlashModeKey']]).toEqual([3, -1]);
    expect(first.core.takeDefaultsChange()).toBeNull();
    const { rows } = await first.ask({ type: 'effects' });
    expect(rows.filter((r) => r.isActive)).toHaveLength(2);

    const second = await start(snapshot.bytes);
    expect([second.init.launchCount, second.init.defaults.values['kFlashModeKey']]).toEqual([2, -1]);
    expect((await second.ask({ type: 'effects' })).rows).toEqual(rows);

    const { init } = await start(new TextEncoder().encode('not a plist').buffer as ArrayBuffer);
    expect([init.unreadableDefaults, init.launchCount, init.replacedList]).toEqual([true, 1, null]);

    // A stored list that can't be decoded (its own property list spoilt inside the readable
    // dictionary): the built-in list takes its place, and the engine says so for the page to keep the
    // old bytes.
    await second.ask({ type: 'editEffects', edit: { op: 'savePreset', name: 'Mine' } });
    const bytes = new Uint8Array(second.core.takeDefaultsChange()!.bytes);
    const inner = Buffer.from(bytes).indexOf('bplist00', 1);
    expect(inner).toBeGreaterThan(0);
    bytes[inner + 7] = 0x58;
    const spoilt = await start(bytes.buffer as ArrayBuffer);
    expect(spoilt.init.unreadableDefaults).toBe(false);
    expect(spoilt.init.replacedList).toMatch(/not a property list/);
    const builtin = (await spoilt.ask({ type: 'effects' })).rows;
    expect([builtin.length, builtin.some((r) => r.name === 'Mine')]).toEqual([34, false]);
    expect(second.init.replacedList).toBeNull();
  });

  it('renders a frame and composes at the display size; blend, opacity and hiding only recompose', async () => {
    const { ask, events } = await start();
    const render = (frame: RawPicture) => ask({ type: 'render', state: state(), skipEffects: false, frame });
    // The seed of a rolled vector gives it back (as a new engine is given it).
    const { seed } = await ask({ type: 'randomizeControls', state: state() });
    expect(events).toContain('button_randomParams');
    const rolled = print((await render(bands(96, 72))).picture);
    await ask({ type: 'randomizeControls', state: state() });
    await ask({ type: 'setControlSeed', seed });
    expect(print((await render(bands(96, 72))).picture)).toBe(rolled);
    // A vector of our choosing from here: a few random ones change too little of this small picture.
    await ask({ type: 'setControlSeed', seed: '1' });
    const { picture } = await render(bands(96, 72));
    expect([picture?.width, picture?.height]).toEqual([240, 180]);
    const effected = print(picture);
    const kernels = (await ask({ type: 'status' })).kernelsRun;
    expect(kernels).toBeGreaterThan(0);

    const look = async (over: Partial<ViewState>) => print((await ask({ type: 'display', state: state(over) })).picture);
    const hidden = await look({ hideEffects: true });
    const difference = await look({ blendIndex: 5 });
    const faded = await look({ alpha: 0 });
    expect(new Set([effected, hidden, difference])).toHaveProperty('size', 3);
    expect(faded).toBe(hidden);
    expect(await look({})).toBe(effected);
    expect((await ask({ type: 'status' })).kernelsRun).toBe(kernels);

    // A frame too small to work on is not taken, and the last picture stays.
    expect(print((await render(bands(8, 8))).picture)).toBe(effected);
  });

  it('turns, flattens and renders the final at the base size', async () => {
    const { ask } = await start();
    const set = await ask({ type: 'setOriginal', picture: bands(64, 40), orientation: 3, correct: true });
    expect(set).toEqual({ ok: true, width: 40, height: 64 }); // orientation 3 stands it upright: turned a quarter
    expect((await ask({ type: 'rotate', degrees: 90, mirrored: false })).ok).toBe(true);
    expect(await ask({ type: 'status' })).toMatchObject({ originalWidth: 64, originalHeight: 40 });
    const flat = await ask({ type: 'flatten', state: state() });
    expect([flat.ok, flat.picture === null]).toEqual([true, false]);
    const final = await ask({ type: 'renderFinal', state: state(), mimeType: 'image/jpeg', quality: 0.9 });
    expect(final.file).toBeNull(); // no encoder under node: the pixels come back
    expect([final.picture?.width, final.picture?.height]).toEqual([64, 40]);
    await ask({ type: 'setOriginal', picture: null, orientation: 0, correct: false });
    expect((await ask({ type: 'rotate', degrees: 90, mirrored: false })).ok).toBe(false);
    expect((await ask({ type: 'status' })).originalWidth).toBe(0);
  });

  it('takes each turn back to the pixel by the opposite one, and makes a flatten again to the pixel under its look', async () => {
    const { ask } = await start();
    // The base alone, as the final composes it at no opacity.
    const base = async () => print((await ask({ type: 'renderFinal', state: state({ alpha: 0 }), mimeType: 'image/jpeg', quality: 1 })).picture);
    const still = bands(161, 120);
    const load = () => ask({ type: 'setOriginal', picture: { ...still, data: still.data.slice(0) }, orientation: 0, correct: false });
    await load();
    const taken = await base();
    for (const [degrees, mirrored] of [[-90, false], [90, false], [0, true], [180, true]] as const) {
      await ask({ type: 'rotate', degrees, mirrored });
      expect(await base()).not.toBe(taken);
      const back = oppositeTurn({ kind: 'turn', degrees, mirrored });
      await ask({ type: 'rotate', degrees: back.degrees, mirrored: back.mirrored });
      expect(await base()).toBe(taken);
    }

    // Two of these effects draw from the unrepeatable source, so a flatten under the same list and
    // controls differs from one time to the next; under its look it is the same.
    await ask({ type: 'setActiveEffects', names: ['2600++', 'SIGSTOP', 'GRABOID'] });
    await ask({ type: 'setControlSeed', seed: '7' });
    const composition = state({ blendIndex: 3, alpha: 0.8 });
    const flat = await ask({ type: 'flatten', state: composition });
    expect(flat.look).toMatchObject({ effects: ['2600++', 'SIGSTOP', 'GRABOID'], seed: '7', half: false });
    const flattened = await base();
    await load();
    await ask({ type: 'flatten', state: composition });
    expect(await base()).not.toBe(flattened);

    await ask({ type: 'setActiveEffects', names: ['VETH'] });
    await ask({ type: 'setControlSeed', seed: '8' });
    await load();
    expect((await ask({ type: 'flatten', state: composition, look: flat.look! })).ok).toBe(true);
    expect(await base()).toBe(flattened);
    // The list and the controls of now are as they were.
    expect((await ask({ type: 'effects' })).rows.filter((r) => r.isActive).map((r) => r.name)).toEqual(['VETH']);
    const seeded = await ask({ type: 'flatten', state: composition });
    expect(seeded.look).toMatchObject({ effects: ['VETH'], seed: '8' });
  });

  it('puts named effects on at the top, and edits the list as the Arrange screen does, refusing rows not where the page thinks', async () => {
    const { core, ask } = await start();
    const edit = (e: EffectEdit) => ask({ type: 'editEffects', edit: e });
    // AGENCY is on already, as the list starts; VETH goes off.
    expect(await ask({ type: 'setActiveEffects', names: ['AGENCY', 'INTERFACE', 'NO SUCH'] })).toEqual({ active: 2 });
    core.takeDefaultsChange();
    const moved = await edit({ op: 'move', from: 0, name: 'AGENCY', to: 3 });
    expect(moved.rows.slice(0, 4).map((r) => r.name)).toEqual(['INTERFACE', 'GRABOID', 'VETH', 'AGENCY']);
    expect(core.takeDefaultsChange()).toBeNull(); // a move alone is not stored
    expect((await edit({ op: 'toggle', row: 0, name: 'AGENCY' })).ok).toBe(false);
    expect((await edit({ op: 'move', from: 0, name: 'INTERFACE', to: 34 })).ok).toBe(false);
    expect((await edit({ op: 'remove', row: 99, name: 'GRABOID' })).ok).toBe(false);

    const saved = await edit({ op: 'savePreset', name: 'PAIR' });
    expect(saved.rows.at(-1)).toEqual({ name: 'PAIR', isActive: false, preset: true });
    expect(core.takeDefaultsChange()).not.toBeNull();
    await edit({ op: 'toggle', row: 0, name: 'INTERFACE' });
    await edit({ op: 'toggle', row: 3, name: 'AGENCY' });
    const on = await edit({ op: 'toggle', row: 34, name: 'PAIR' });
    expect(on.rows.filter((r) => r.isActive).map((r) => r.name)).toEqual(['PAIR']); // VETH went off

    // The preset opens up into its two members when the stack runs.
    const render = () => ask({ type: 'render', state: state(), skipEffects: false, frame: bands(64, 48) });
    await render();
    const before = (await ask({ type: 'status' })).kernelsRun;
    await render();
    expect((await ask({ type: 'status' })).kernelsRun - before).toBe(2);
    expect((await edit({ op: 'remove', row: 34, name: 'PAIR' })).rows.map((r) => r.name)).not.toContain('PAIR');
  });

  it('reaches the page as a runtime error when the core stops on a fatal error', async () => {
    const { ask } = await start();
    await expect(ask({ type: 'crash' })).rejects.toBeInstanceOf(WebAssembly.RuntimeError);
  });
});
