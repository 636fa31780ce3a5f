import type { Slot } from "../protocol";
import type { Picture } from "../state";
import { next, type Step } from "../transport/range";

export interface Coming {
  step: Step;
  pictures: Map<Slot, Picture>;
}

// The next frames of play, each asked for once, in the order in which they are shown.
export class PlayQueue {
  readonly coming: Coming[] = [];
  private readonly depth: number;
  private readonly slots: readonly Slot[];

  constructor(depth: number, slots: readonly Slot[]) {
    this.depth = depth;
    this.slots = slots;
  }

  // Appends what play shows after the last frame that is coming, `now` being on the screen.
  fill(now: Step): void {
    while (this.coming.length < this.depth) {
      const step = next(this.coming.at(-1)?.step ?? now);
      if (!step) return;
      this.coming.push({ step, pictures: new Map() });
    }
  }

  // A loop may have the same frame in it twice: the earlier one that lacks it takes the picture.
  came(picture: Picture): void {
    const { frame, slot } = picture.header;
    this.coming.find((each) => each.step.frame === frame && !each.pictures.has(slot))?.pictures.set(slot, picture);
  }

  ready(each: Coming | undefined): boolean {
    return each !== undefined && this.slots.every((slot) => each.pictures.has(slot));
  }

  missing(each: Coming): Slot[] {
    return this.slots.filter((slot) => !each.pictures.has(slot));
  }
}
