// The Arrange screen's logic against a recording view and a fake engine that keeps the list: the
// header, switching, moving and deleting rows, the roll, the save panel, the preview after each change,
// the lent picture and the tour.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { EffectRow, EngineRequest } from '../src/engine/shared/protocol';
import { PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { applyEdit, EffectsArrangeVC, type ArrangeRow, type EffectsArrangeView } from '../src/screens/effects-arrange-vc';
import { FakeEngine, recordingView, settle, type Recording } from './fakes';

const row = (name: string, isActive = false, preset = false): EffectRow => ({ name, isActive, preset });
const names = (rows: unknown) => (rows as { name: string }[]).map((r) => r.name).join(' ');

let list: EffectRow[];
let engine: FakeEngine;
let ui: Recording<EffectsArrangeView>;
let presetName: string;
let vc: EffectsArrangeVC;
let settings: SettingsController;
let lines: string[];
let calls: string[];

// Keeps the list as the engine does; a roll turns the list around and puts the first two on.
function answer(r: EngineRequest): unknown {
  if (r.type === 'effects') return { rows: list };
  if (r.type === 'status') return { kernelsRun: 0, originalWidth: 40, originalHeight: 30 };
  if (r.type !== 'editEffects') return { picture: null };
  const e = r.edit;
  const ok = e.op === 'randomize' || e.op === 'savePreset' || list[e.op === 'move' ? e.from : e.row]?.name === e.name;
  if (ok) list = e.op === 'randomize' ? [...list].reverse().map((x, i) => ({ ...x, isActive: i < 2 })) : applyEdit(list, e)!;
  return { ok, rows: list };
}
const ops = () => engine.requests.map((r) => (r.type === 'editEffects' ? r.edit.op : r.type));

beforeEach(async () => {
  vi.useFakeTimers();
  list = [row('GRABOID'), row('VETH', true), row('AGENCY', true), row('2600++'), row('MINE', false, true)];
  engine = new FakeEngine(answer);
  presetName = '';
  ui = recordingView<EffectsArrangeView>({ presetName: () => presetName, clearPresetName: () => void (presetName = '') });
  lines = [];
  calls = [];
  settings = new SettingsController(new PageDefaults(new MemoryStorage()));
  vc = new EffectsArrangeVC({
    view: ui.view,
    engine: engine.client,
    settings,
    pop: () => calls.push('pop'),
    startWalkthrough: () => calls.push('tour'),
    log: (line) => lines.push(line),
  });
  vc.effectedImageView = engine.imageView();
  vc.delegate = { arrangeDidChange: () => calls.push('didChange'), arrangeWillClose: () => calls.push('willClose') };
  vc.viewDidLoad();
  vc.viewWillAppear();
  await settle();
  engine.requests = [];
});

afterEach(() => vi.useRealTimers());

describe('table', () => {
  it('shows every row in order, with the header in the singular up to 1 and the plural from 2', async () => {
    expect(ui.last.setSavePresetTitle).toBe('SAVE\nPRESET');
    expect(ui.calls.holdPicture).toBe(1);
    expect(names(ui.last.reloadRows)).toBe('GRABOID VETH AGENCY 2600++ MINE');
    const headers = [ui.last.setHeader];
    for (const tapped of [1, 2, 4]) headers.push((vc.tapRow(tapped), ui.last.setHeader)); // 4: a preset counts as one entry
    expect(headers).toEqual(['  2 Effects Active', '  1 Effect Active', '  0 Effect Active', '  1 Effect Active']);
    await settle();
    expect(list.map((r) => r.isActive)).toEqual([false, false, false, false, true]);
  });

  it('lets presets alone be deleted, and renders the preview after each change that is made', async () => {
    expect((ui.last.reloadRows as ArrangeRow[]).map((r) => r.deletable)).toEqual([false, false, false, false, true]);
    expect([0, 1, 2, 3, 4, 5].map((r) => vc.canDelete(r))).toEqual([false, false, false, false, true, false]);
    vc.deleteRow(0);
    vc.deleteRow(9);
    await settle();
    expect(engine.requests).toEqual([]);

    vc.deleteRow(4);
    expect(names(ui.last.reloadRows)).toBe('GRABOID VETH AGENCY 2600++');
    vc.tapRow(0);
    vc.randomize();
    await settle();
    // Each edit reaches the engine before the run of the stack that shows it.
    expect(ops()).toEqual(['remove', 'status', 'render', 'toggle', 'status', 'randomize', 'status', 'render']);
    expect(engine.of('render').every((r) => !r.skipEffects)).toBe(true);
    expect(names(ui.last.reloadRows)).toBe('2600++ AGENCY VETH GRABOID');
    expect([ui.last.setHeader, ui.last.setBusy]).toEqual(['  2 Effects Active', false]);
    expect(lines).toContain('There was an update to aspect : 1.3333333333333333');
  });

  it('moves a row as the list does, the target counted without it; the table is not reloaded', async () => {
    const reloads = ui.calls.reloadRows;
    vc.moveRow(0, 2);
    expect(names(vc.effects)).toBe('VETH AGENCY GRABOID 2600++ MINE');
    vc.moveRow(4, 0);
    expect(names(vc.effects)).toBe('MINE VETH AGENCY GRABOID 2600++');
    vc.moveRow(2, 2); // onto its own place: the preview is still brought up to date
    vc.moveRow(1, 5); // past the end: refused here
    await settle();
    expect(names(list)).toBe('MINE VETH AGENCY GRABOID 2600++');
    // A render in flight, and one more after it for the moves made meanwhile.
    expect(ops().filter((t) => t === 'move' || t === 'render')).toEqual(['move', 'render', 'move', 'move', 'render']);
    expect(ui.calls.reloadRows).toBe(reloads);
  });

  it("takes the engine's list when an edit is refused for a stale row", async () => {
    list = [row('VETH'), ...list.filter((r) => r.name !== 'VETH')];
    vc.tapRow(0); // the table still has GRABOID there
    expect(vc.effects[0]).toEqual(row('GRABOID', true));
    await settle();
    expect(names(ui.last.reloadRows)).toBe('VETH GRABOID AGENCY 2600++ MINE');
    expect(ui.last.setHeader).toBe('  1 Effect Active');
  });
});

describe('save panel and the life of the screen', () => {
  it('does nothing for an empty name, keeps the text on cancel, and saves a named preset', async () => {
    vc.showSavePanel(true);
    expect(vc.textFieldShouldReturn()).toBe(true);
    expect(ui.calls.resignPresetName).toBe(1); // the keyboard goes down
    expect([ui.last.setSavePanelVisible, ui.calls.presentAlert]).toEqual([true, undefined]);

    presetName = 'WARP';
    vc.showSavePanel(false);
    vc.showSavePanel(true);
    expect(presetName).toBe('WARP');

    vc.savePreset();
    expect(ui.last.presentAlert).toEqual({ title: '', message: 'Preset WARP Saved!', cancelTitle: 'Ok' });
    expect((ui.last.reloadRows as ArrangeRow[]).at(-1)).toEqual({ name: 'WARP', isActive: false, deletable: true });
    expect([ui.last.setSavePanelVisible, presetName]).toEqual([false, '']);
    await settle();
    expect(engine.requests[0]).toEqual({ type: 'editEffects', edit: { op: 'savePreset', name: 'WARP' } });
    expect(ops()).not.toContain('render'); // the new preset is off: nothing to show
  });

  it('closes by Done or a swipe alike: the picture goes back before the screen leaves', () => {
    vc.close();
    vc.back();
    expect(calls).toEqual(['willClose', 'pop', 'willClose', 'pop']);
    vc.viewWillDisappear();
    expect(calls.at(-1)).toBe('didChange');
  });

  it('offers the tour once, and puts the table beside the picture when wider than high', () => {
    vc.viewDidAppear();
    vc.viewDidAppear();
    expect(calls).toEqual(['tour']);
    expect(settings.hasShownArrangeTutorial()).toBe(true);
    const axes = [[844, 390], [390, 844]].map(([w, h]) => (vc.sizeChanged(w!, h!), ui.last.setAxis));
    expect(axes).toEqual(['horizontal', 'vertical']);
    expect(lines).toContain('viewWillTransition to:(390.0, 844.0) with:resize');
  });
});
