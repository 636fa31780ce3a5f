import { computed, effect } from "@preact/signals";
import { in_point, info, loop_mode, out_point, playhead } from "../state";

// The frames that play goes through: those of the composition between the in and the out point, in order.
export const frames = computed<number[]>(() => {
  const all = info.value?.frames ?? [];
  const first = in_point.value ?? -Infinity;
  const last = out_point.value ?? Infinity;
  const within = all.filter((frame) => frame >= first && frame <= last);
  return within.length > 0 ? within : all;
});

// The frame of the range nearest to this one.
export function nearest(frame: number, among = frames.value): number {
  let best = among[0] ?? frame;
  for (const each of among) if (Math.abs(each - frame) < Math.abs(best - frame)) best = each;
  return best;
}

// Another range of the composition may leave the playhead outside.
effect(() => {
  const all = info.value?.frames ?? [];
  if (all.length > 0) playhead.value = nearest(playhead.peek(), all);
});

export interface Step {
  frame: number;
  direction: 1 | -1;
}

// Where play goes from here; null where it ends.
export function next({ frame, direction }: Step, mode = loop_mode.value): Step | null {
  const all = frames.value;
  const ahead = direction > 0 ? all.find((each) => each > frame) : all.findLast((each) => each < frame);
  if (ahead !== undefined) return { frame: ahead, direction };
  const first = all[0];
  const last = all.at(-1);
  if (first === undefined || last === undefined || mode === "once") return null;
  if (mode === "loop") return { frame: direction > 0 ? first : last, direction };
  const back: 1 | -1 = direction > 0 ? -1 : 1;
  const inward = back > 0 ? all.find((each) => each > frame) : all.findLast((each) => each < frame);
  return { frame: inward ?? frame, direction: back };
}
