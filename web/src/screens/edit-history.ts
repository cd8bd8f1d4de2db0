// The edits of a still that can be taken back and done again: turns and mirrors, and flattens. Each is
// kept as a step, never as a copy of the picture: a turn is taken back by the opposite turn, and a
// flatten by making the picture again from the still as it was taken, with the steps before it (each
// flatten with the look it ran under, which the engine can repeat exactly).
import type { FlattenLook } from '../engine/shared/protocol';

export type EditStep =
  | { kind: 'turn'; degrees: number; mirrored: boolean }
  // `blendIndex` and `alpha` are the composition the flatten ran under.
  | { kind: 'flatten'; look: FlattenLook; blendIndex: number; alpha: number };

// How to get to the picture before the last step.
export type UndoPlan =
  | { kind: 'turn'; step: Extract<EditStep, { kind: 'turn' }> }
  // The still again, then these steps in order.
  | { kind: 'replay'; steps: readonly EditStep[] };

// The turn that takes `step` back. A turn mirrored left to right is its own opposite whatever its
// angle (the mirror of a turn by d is the turn by -d of the mirror); a plain turn goes back the other way.
export function oppositeTurn(step: Extract<EditStep, { kind: 'turn' }>): Extract<EditStep, { kind: 'turn' }> {
  return step.mirrored ? step : { kind: 'turn', degrees: step.degrees === 0 ? 0 : -step.degrees, mirrored: false };
}

export class EditHistory {
  private steps: EditStep[] = [];
  private done = 0;

  get canUndo(): boolean {
    return this.done > 0;
  }
  get canRedo(): boolean {
    return this.done < this.steps.length;
  }

  // The steps that made the picture as it stands from the still, oldest first.
  get applied(): readonly EditStep[] {
    return this.steps.slice(0, this.done);
  }

  // A new still: nothing to take back.
  clear(): void {
    this.steps = [];
    this.done = 0;
  }

  // A step just made; the steps that were taken back can no longer be done again.
  record(step: EditStep): void {
    this.steps.length = this.done;
    this.steps.push(step);
    this.done = this.steps.length;
  }

  // The way back past the last step, or null when there is none; `stepBack` commits it once done.
  undoPlan(): UndoPlan | null {
    const last = this.steps[this.done - 1];
    if (!last) return null;
    if (last.kind === 'turn') return { kind: 'turn', step: oppositeTurn(last) };
    return { kind: 'replay', steps: this.steps.slice(0, this.done - 1) };
  }
  stepBack(): void {
    if (this.done > 0) this.done -= 1;
  }

  // The step to make again, or null; `stepForward` commits it once done.
  redoStep(): EditStep | null {
    return this.steps[this.done] ?? null;
  }
  stepForward(): void {
    if (this.done < this.steps.length) this.done += 1;
  }
}
