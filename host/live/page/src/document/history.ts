// Steps of a text, each the piece that it changed. Steps with one key that follow each other become one: a knob
// that is dragged is undone at once.

interface Step {
  title: string;
  key: string; // "": never joined
  at: number;
  removed: string;
  inserted: string;
}

const most_steps = 1000;
const most_letters = 16 * 1024 * 1024;

function step_between(before: string, after: string, title: string, key: string): Step {
  const most = Math.min(before.length, after.length);
  let front = 0;
  while (front < most && before[front] === after[front]) ++front;
  let back = 0;
  while (back < most - front && before.at(-1 - back) === after.at(-1 - back)) ++back;
  const removed = before.slice(front, before.length - back);
  return { title, key, at: front, removed, inserted: after.slice(front, after.length - back) };
}

function backward(text: string, step: Step): string {
  return text.slice(0, step.at) + step.removed + text.slice(step.at + step.inserted.length);
}

function forward(text: string, step: Step): string {
  return text.slice(0, step.at) + step.inserted + text.slice(step.at + step.removed.length);
}

export class History {
  private done: Step[] = [];
  private undone: Step[] = [];
  private letters = 0; // that `done` holds

  // `join`: with the step before, where that has the same key.
  add(before: string, after: string, title: string, key = "", join = false): void {
    this.undone = [];
    const last = this.done.at(-1);
    let from = before;
    if (join && last && key !== "" && last.key === key) {
      from = backward(before, last);
      this.forget(this.done.length - 1, 1);
    }
    if (from === after) return;
    const step = step_between(from, after, title, key);
    this.done.push(step);
    this.letters += step.removed.length + step.inserted.length;
    while (this.done.length > most_steps || (this.letters > most_letters && this.done.length > 1)) this.forget(0, 1);
  }

  private forget(at: number, count: number): void {
    for (const step of this.done.splice(at, count)) this.letters -= step.removed.length + step.inserted.length;
  }

  // The text before the last step; null: there is none.
  undo(text: string): string | null {
    const step = this.done.at(-1);
    if (!step) return null;
    this.forget(this.done.length - 1, 1);
    this.undone.push(step);
    return backward(text, step);
  }

  redo(text: string): string | null {
    const step = this.undone.pop();
    if (!step) return null;
    this.done.push(step);
    this.letters += step.removed.length + step.inserted.length;
    return forward(text, step);
  }

  clear(): void {
    this.done = [];
    this.undone = [];
    this.letters = 0;
  }

  get next_undo(): string | null {
    return this.done.at(-1)?.title ?? null;
  }

  get next_redo(): string | null {
    return this.undone.at(-1)?.title ?? null;
  }
}
