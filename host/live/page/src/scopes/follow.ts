import { effect, signal } from "@preact/signals";
import { dragging, exposure, gamma, picture_a, playing, sample } from "../state";
import { display_shader } from "../viewer/display";
import { canvas_size } from "../viewer/settings";
import { count, type Counts, type Scale, vector_gain } from "./counts";
import { display_samples, linear_samples, part_of } from "./samples";

export const scale = signal<Scale>("display");
export const counts = signal<Counts | null>(null);

// Between two looks, in milliseconds: play and a hand on a knob come first.
const pause = { still: 60, moving: 240 };

// Counts what is shown whenever it changes and the page has nothing better to do. Returns what ends it.
export function follow_picture(): () => void {
  let wanted = false;
  let busy = false;
  let ended = false;
  const look = async (): Promise<void> => {
    busy = true;
    while (wanted && !ended) {
      const moving = playing.peek() !== 0 || dragging.peek();
      await new Promise((resolve) => setTimeout(resolve, moving ? pause.moving : pause.still));
      await idle();
      if (ended) break;
      wanted = false;
      await take(moving);
    }
    busy = false;
  };
  const end = effect(() => {
    picture_a.value;
    sample.value;
    scale.value;
    vector_gain.value;
    canvas_size.value; // before it has one the viewer has nothing to read
    playing.value; // at rest more samples are taken
    if (scale.value === "display") {
      exposure.value;
      gamma.value;
      display_shader.value;
    }
    wanted = true;
    if (!busy) void look();
  });
  return () => {
    ended = true;
    end();
  };
}

function idle(): Promise<void> {
  return new Promise((resolve) => {
    if ("requestIdleCallback" in window) requestIdleCallback(() => resolve(), { timeout: 400 });
    else setTimeout(resolve, 0);
  });
}

async function take(moving: boolean): Promise<void> {
  const picture = picture_a.peek();
  if (!picture) {
    counts.value = null;
    return;
  }
  const part = part_of(picture, sample.peek());
  const wanted = scale.peek();
  const samples =
    wanted === "linear" ? linear_samples(picture, part, moving) : await display_samples(picture, part, moving);
  if (samples) counts.value = count(samples, wanted);
}
