// The Arrange screen: the whole effect list as one table, in running order, presets included. A tap
// switches a row, a drag moves it, a preset can be deleted, the stack rolled, and the active rows kept
// as a new preset; the main screen's picture, lent for the time, shows each change at once. It drives
// an EffectsArrangeView and touches no DOM. The list itself lives in the engine; this screen keeps
// the table's copy, changes it at once as the list will change, and takes the engine's list back
// whenever no edit of its own is still on the way.
import { EngineRestarted, type EngineClient } from '../engine/client/engine-client';
import type { EffectEdit, EffectRow } from '../engine/shared/protocol';
import type { SettingsController } from '../platform/settings';
import type { Axis } from './camera-inteface-vc';
import type { EffectedImageView } from './effected-image-view';

export interface EffectsArrangeDelegate {
  // The stack may have changed: bring the main picture up to date.
  arrangeDidChange(): void;
  // Take the picture back.
  arrangeWillClose(): void;
}

export interface ArrangeRow {
  name: string;
  isActive: boolean;
  // Presets alone can be deleted.
  deletable: boolean;
}

// The platform's plain alert: a title, a message, a button that closes it, and an optional second
// button that runs `otherButtonCompletion`.
export interface SystemAlertOptions {
  title: string;
  message: string;
  cancelTitle: string;
  otherButtonTitle?: string;
  otherButtonCompletion?: () => void;
}

export interface EffectsArrangeView {
  setSavePresetTitle(title: string): void;
  setHeader(text: string): void;
  // Every row anew.
  reloadRows(rows: readonly ArrangeRow[]): void;
  // Puts the lent picture into this screen's holder.
  holdPicture(): void;
  setBusy(busy: boolean): void;
  // The panel with the name field; `animated` fades it over 0.25 s. Shown, the field takes the focus.
  setSavePanelVisible(visible: boolean, animated: boolean): void;
  presetName(): string;
  clearPresetName(): void;
  // The field lets go of the focus (the keyboard goes down).
  resignPresetName(): void;
  presentAlert(alert: SystemAlertOptions): void;
  // The picture above the table (vertical) or beside it (horizontal), the table `tableWidth` wide then.
  setAxis(axis: Axis, tableWidth: number): void;
}

export interface EffectsArrangeParts {
  view: EffectsArrangeView;
  engine: Pick<EngineClient, 'request'>;
  settings: SettingsController;
  // Takes this screen off, back to the main screen.
  pop: () => void;
  // The Arrange tour.
  startWalkthrough?: () => void;
  log?: (line: string) => void;
}

export const kTableWidth = 375;

export function headerText(activeCount: number): string {
  return `  ${activeCount} Effect${activeCount > 1 ? 's' : ''} Active`;
}

// The rows after an edit, as the list makes it; null where only the engine can tell (a roll).
export function applyEdit(rows: readonly EffectRow[], edit: EffectEdit): EffectRow[] | null {
  const out = [...rows];
  switch (edit.op) {
    case 'toggle':
      out[edit.row] = { ...out[edit.row]!, isActive: !out[edit.row]!.isActive };
      return out;
    case 'move': {
      const [row] = out.splice(edit.from, 1);
      out.splice(edit.to, 0, row!);
      return out;
    }
    case 'remove':
      out.splice(edit.row, 1);
      return out;
    case 'savePreset':
      out.push({ name: edit.name, isActive: false, preset: true });
      return out;
    case 'randomize':
      return null;
  }
}

function sameRows(a: readonly EffectRow[], b: readonly EffectRow[]): boolean {
  return a.length === b.length && a.every((r, i) => r.name === b[i]!.name && r.isActive === b[i]!.isActive && r.preset === b[i]!.preset);
}

// A number as the console shows doubles: 1.0, 0.75.
const describe = (n: number) => (Number.isInteger(n) ? n.toFixed(1) : String(n));

export class EffectsArrangeVC {
  readonly view: EffectsArrangeView;
  // Lent by the main screen.
  effectedImageView: EffectedImageView | null = null;
  delegate: EffectsArrangeDelegate | null = null;
  // The table's copy of the list.
  effects: EffectRow[] = [];

  private editsUnderWay = 0;
  private previewsUnderWay = 0;
  private readonly log: (line: string) => void;

  constructor(private readonly parts: EffectsArrangeParts) {
    this.view = parts.view;
    this.log = parts.log ?? ((line) => console.log(line));
  }

  // Entries that are on; presets count as one, their members not at all.
  get activeCount(): number {
    return this.effects.filter((e) => e.isActive).length;
  }

  canDelete(row: number): boolean {
    return this.effects[row]?.preset === true;
  }

  // ----- Life of the screen -----

  viewDidLoad(): void {
    this.view.setSavePresetTitle('SAVE\nPRESET');
    void this.refresh();
  }

  viewWillAppear(): void {
    this.view.holdPicture();
    this.view.setSavePanelVisible(false, false);
    this.reloadTable();
    void this.refresh();
    void this.effectedImageView?.render(true);
    void this.updatePreview();
  }

  viewDidAppear(): void {
    const settings = this.parts.settings;
    if (settings.hasShownArrangeTutorial()) return;
    this.parts.startWalkthrough?.();
    settings.setHasShownArrangeTutorial();
  }

  viewWillDisappear(): void {
    this.delegate?.arrangeDidChange();
  }

  // Done and the swipe back take this one road: the picture goes back before the screen leaves.
  close(): void {
    this.delegate?.arrangeWillClose();
    this.parts.pop();
  }

  back(): void {
    this.close();
  }

  // The window changed size: side by side when it is wider than high.
  sizeChanged(width: number, height: number): void {
    this.log(`viewWillTransition to:(${describe(width)}, ${describe(height)}) with:resize`);
    this.view.setAxis(width <= height ? 'vertical' : 'horizontal', kTableWidth);
  }

  // ----- Rows -----

  tapRow(row: number): void {
    if (!this.effects[row]) return;
    this.edit({ op: 'toggle', row, name: this.effects[row]!.name });
    this.reloadTable();
    void this.updatePreview();
  }

  // The view has already shown the row in its new place; `to` is that place.
  moveRow(from: number, to: number): void {
    if (!this.effects[from] || to < 0 || to >= this.effects.length) return;
    this.edit({ op: 'move', from, name: this.effects[from]!.name, to });
    void this.updatePreview();
  }

  deleteRow(row: number): void {
    if (!this.canDelete(row)) return;
    this.edit({ op: 'remove', row, name: this.effects[row]!.name });
    this.reloadTable();
    void this.updatePreview();
  }

  // Rolls the stack (two rows on, at the top); no message, and the blend mode stays.
  randomize(): void {
    this.edit({ op: 'randomize' });
    void this.updatePreview();
  }

  // ----- The save panel -----

  showSavePanel(show: boolean): void {
    if (!show) this.view.resignPresetName();
    this.view.setSavePanelVisible(show, true);
  }

  savePreset(): void {
    const name = this.view.presetName();
    if (name === '') return;
    this.view.resignPresetName();
    this.edit({ op: 'savePreset', name });
    this.view.presentAlert({ title: '', message: `Preset ${name} Saved!`, cancelTitle: 'Ok' });
    this.reloadTable();
    this.showSavePanel(false);
    this.view.clearPresetName();
  }

  // Return in the name field.
  textFieldShouldReturn(): boolean {
    this.view.resignPresetName();
    this.savePreset();
    return true;
  }

  // ----- The picture -----

  // A new run of the stack on the picture as it stands, after every change of the list.
  async updatePreview(): Promise<void> {
    this.previewsUnderWay += 1;
    this.view.setBusy(true);
    const image = this.effectedImageView;
    if (image) {
      void image.originalAspect().then((aspect) => this.log(`There was an update to aspect : ${describe(aspect)}`));
      await image.render(false);
    }
    this.previewsUnderWay -= 1;
    if (this.previewsUnderWay === 0) this.view.setBusy(false);
  }

  // ----- The list -----

  private reloadTable(): void {
    this.view.setHeader(headerText(this.activeCount));
    this.view.reloadRows(this.effects.map((e) => ({ name: e.name, isActive: e.isActive, deletable: e.preset })));
  }

  // The edit shows in the table's copy at once and goes to the engine, which has the last word.
  private edit(edit: EffectEdit): void {
    const rows = applyEdit(this.effects, edit);
    if (rows) this.effects = rows;
    this.editsUnderWay += 1;
    this.parts.engine.request({ type: 'editEffects', edit }).then(
      (reply) => {
        this.editsUnderWay -= 1;
        this.adopt(reply.rows);
      },
      (error: unknown) => {
        this.editsUnderWay -= 1;
        // A new engine has the stored list: the table takes that.
        if (!(error instanceof EngineRestarted)) throw error;
        void this.refresh();
      },
    );
  }

  private async refresh(): Promise<void> {
    try {
      this.adopt((await this.parts.engine.request({ type: 'effects' })).rows);
    } catch (error) {
      if (!(error instanceof EngineRestarted)) throw error;
    }
  }

  private adopt(rows: EffectRow[]): void {
    if (this.editsUnderWay > 0 || sameRows(rows, this.effects)) return;
    this.effects = rows;
    this.reloadTable();
  }
}
