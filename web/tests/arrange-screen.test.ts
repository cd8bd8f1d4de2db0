// The Arrange screen's logic against a fake view and a fake engine: the header, switching, moving and
// deleting rows, the roll, the save panel, the preview after each change, the lent picture and the tour.
import { afterEach, beforeEach, describe, expect, it, vi } from 'vitest';

import type { EngineClient } from '../src/engine/client/engine-client';
import type { EffectRow, EngineRequest } from '../src/engine/shared/protocol';
import { PageDefaults } from '../src/platform/defaults';
import { SettingsController } from '../src/platform/settings';
import { MemoryStorage } from '../src/platform/storage';
import { EffectedImageView, type PhotoLibrary } from '../src/screens/effected-image-view';
import {
  applyEdit,
  EffectsArrangeVC,
  type ArrangeRow,
  type EffectsArrangeView,
  type SystemAlertOptions,
} from '../src/screens/effects-arrange-vc';

const row = (name: string, isActive = false, preset = false): EffectRow => ({ name, isActive, preset });
const names = (rows: readonly { name: string }[]) => rows.map((r) => r.name).join(' ');

// Keeps a list as the engine does; a roll turns the list around and puts the first two on.
class FakeEngine {
  requests: EngineRequest[] = [];
  list: EffectRow[] = [];
  request(r: EngineRequest): Promise<unknown> {
    this.requests.push(r);
    switch (r.type) {
      case 'effects':
        return Promise.resolve({ rows: this.list });
      case 'editEffects': {
        const e = r.edit;
        const known = (at: number, name: string) => this.list[at]?.name === name;
        const ok = e.op === 'randomize' || e.op === 'savePreset' || known(e.op === 'move' ? e.from : e.row, e.name);
        if (ok && e.op === 'randomize') this.list = [...this.list].reverse().map((x, i) => ({ ...x, isActive: i < 2 }));
        else if (ok) this.list = applyEdit(this.list, e)!;
        return Promise.resolve({ ok, rows: this.list });
      }
      case 'render':
        return Promise.resolve({ picture: null });
      case 'status':
        return Promise.resolve({ kernelsRun: 0, originalWidth: 40, originalHeight: 30 });
      default:
        return Promise.resolve({});
    }
  }
  types() {
    return this.requests.map((r) => (r.type === 'editEffects' ? r.edit.op : r.type));
  }
}

class FakeView implements EffectsArrangeView {
  header = '';
  rows: readonly ArrangeRow[] = [];
  reloads = 0;
  held = 0;
  busy = false;
  panel = false;
  name = '';
  resigned = 0;
  alerts: SystemAlertOptions[] = [];
  axis = '';
  saveTitle = '';
  setSavePresetTitle(t: string) { this.saveTitle = t; }
  setHeader(t: string) { this.header = t; }
  reloadRows(r: readonly ArrangeRow[]) { this.rows = r; this.reloads += 1; }
  holdPicture() { this.held += 1; }
  setBusy(b: boolean) { this.busy = b; }
  setSavePanelVisible(v: boolean) { this.panel = v; }
  presetName() { return this.name; }
  clearPresetName() { this.name = ''; }
  resignPresetName() { this.resigned += 1; }
  presentAlert(a: SystemAlertOptions) { this.alerts.push(a); }
  setAxis(a: string) { this.axis = a; }
}

let engine: FakeEngine;
let view: FakeView;
let vc: EffectsArrangeVC;
let settings: SettingsController;
let lines: string[];
let calls: string[];

beforeEach(async () => {
  vi.useFakeTimers();
  engine = new FakeEngine();
  engine.list = [row('GRABOID'), row('VETH', true), row('AGENCY', true), row('2600++'), row('MINE', false, true)];
  view = new FakeView();
  lines = [];
  calls = [];
  settings = new SettingsController(new PageDefaults(new MemoryStorage()));
  const display = { layoutSize: () => ({ width: 100, height: 80 }), displaySize: () => ({ width: 200, height: 160 }), show: () => undefined };
  const imageView = new EffectedImageView(engine as unknown as EngineClient, display, {} as PhotoLibrary, async () => {
    throw new Error('no stills here');
  });
  vc = new EffectsArrangeVC({
    view,
    engine: engine as unknown as EngineClient,
    settings,
    pop: () => calls.push('pop'),
    startWalkthrough: () => calls.push('tour'),
    log: (line) => lines.push(line),
  });
  vc.effectedImageView = imageView;
  vc.delegate = { arrangeDidChange: () => calls.push('didChange'), arrangeWillClose: () => calls.push('willClose') };
  vc.viewDidLoad();
  vc.viewWillAppear();
  await settle();
  engine.requests = [];
});

afterEach(() => vi.useRealTimers());

const settle = () => vi.advanceTimersByTimeAsync(0);

describe('table', () => {
  it('shows every row in order, with the header in the singular up to 1 and the plural from 2', async () => {
    expect(view.saveTitle).toBe('SAVE\nPRESET');
    expect(view.held).toBe(1);
    expect(names(view.rows)).toBe('GRABOID VETH AGENCY 2600++ MINE');
    expect(view.header).toBe('  2 Effects Active');
    vc.tapRow(1);
    expect(view.header).toBe('  1 Effect Active');
    vc.tapRow(2);
    expect(view.header).toBe('  0 Effect Active');
    vc.tapRow(4); // a preset counts as one entry
    expect(view.header).toBe('  1 Effect Active');
    expect(vc.activeCount).toBe(1);
    await settle();
    expect(engine.list.map((r) => r.isActive)).toEqual([false, false, false, false, true]);
  });

  it('lets presets alone be deleted, and renders the preview after each change that is made', async () => {
    expect(view.rows.map((r) => r.deletable)).toEqual([false, false, false, false, true]);
    expect([0, 1, 2, 3, 4, 5].map((r) => vc.canDelete(r))).toEqual([false, false, false, false, true, false]);
    vc.deleteRow(0);
    vc.deleteRow(9);
    await settle();
    expect(engine.requests).toEqual([]);

    vc.deleteRow(4);
    expect(names(view.rows)).toBe('GRABOID VETH AGENCY 2600++');
    vc.tapRow(0);
    vc.randomize();
    await settle();
    // Each edit reaches the engine before the run of the stack that shows it.
    expect(engine.types()).toEqual(['remove', 'status', 'render', 'toggle', 'status', 'randomize', 'status', 'render']);
    expect(engine.requests.filter((r) => r.type === 'render').every((r) => r.type === 'render' && !r.skipEffects)).toBe(true);
    expect(names(view.rows)).toBe('2600++ AGENCY VETH GRABOID');
    expect(view.header).toBe('  2 Effects Active');
    expect(view.busy).toBe(false);
    expect(lines).toContain('There was an update to aspect : 1.3333333333333333');
  });

  it('moves a row as the list does, the target counted without it; the table is not reloaded', async () => {
    const reloads = view.reloads;
    vc.moveRow(0, 2);
    expect(names(vc.effects)).toBe('VETH AGENCY GRABOID 2600++ MINE');
    vc.moveRow(4, 0);
    expect(names(vc.effects)).toBe('MINE VETH AGENCY GRABOID 2600++');
    vc.moveRow(2, 2); // onto its own place: the preview is still brought up to date
    vc.moveRow(1, 5); // past the end: refused here
    await settle();
    expect(names(engine.list)).toBe('MINE VETH AGENCY GRABOID 2600++');
    // A render in flight, and one more after it for the moves made meanwhile.
    expect(engine.types().filter((t) => t === 'move' || t === 'render')).toEqual(['move', 'render', 'move', 'move', 'render']);
    expect(view.reloads).toBe(reloads);
  });

  it("takes the engine's list when an edit is refused for a stale row", async () => {
    engine.list = [row('VETH'), ...engine.list.filter((r) => r.name !== 'VETH')];
    vc.tapRow(0); // the table still has GRABOID there
    expect(vc.effects[0]).toEqual(row('GRABOID', true));
    await settle();
    expect(names(view.rows)).toBe('VETH GRABOID AGENCY 2600++ MINE');
    expect(view.header).toBe('  1 Effect Active');
  });
});

describe('save panel', () => {
  it('does nothing for an empty name, keeps the text on cancel, and saves a named preset', async () => {
    vc.showSavePanel(true);
    expect(view.panel).toBe(true);
    expect(vc.textFieldShouldReturn()).toBe(true);
    expect(view.resigned).toBe(1); // the keyboard goes down
    expect(view.panel).toBe(true);
    expect(view.alerts).toEqual([]);

    view.name = 'WARP';
    vc.showSavePanel(false);
    vc.showSavePanel(true);
    expect(view.name).toBe('WARP');

    vc.savePreset();
    expect(view.alerts).toEqual([{ title: '', message: 'Preset WARP Saved!', cancelTitle: 'Ok' }]);
    expect(view.rows.at(-1)).toEqual({ name: 'WARP', isActive: false, deletable: true });
    expect(view.panel).toBe(false);
    expect(view.name).toBe('');
    await settle();
    expect(engine.requests[0]).toEqual({ type: 'editEffects', edit: { op: 'savePreset', name: 'WARP' } });
    expect(engine.types()).not.toContain('render'); // the new preset is off: nothing to show
  });
});

describe('life of the screen', () => {
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
    vc.sizeChanged(844, 390);
    expect(view.axis).toBe('horizontal');
    vc.sizeChanged(390, 844);
    expect(view.axis).toBe('vertical');
    expect(lines).toContain('viewWillTransition to:(390.0, 844.0) with:resize');
  });
});
