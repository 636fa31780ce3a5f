import { batch, computed, effect, signal } from "@preact/signals";
import { drop_next, first_ready, next_is_ready, next_step, scrubbing, show_next } from "../net/wishes";
import * as state from "../state";
import { frames, nearest } from "./range";

// Play by the clock of the screen: a frame is shown when it is due and here, and every frame is waited for.

export const waiting_for = signal<number | null>(null); // the frame that play stands still for
export const given_up = signal(0); // frames of this play that came too late to be shown

const late = 250; // ms without the next frame until it is said
const too_late = 5000; // ms without it while later ones are here until it is given up
const window_length = 24; // frames over which the rate is taken

// Bounce turns around without an end of play.
const running = computed(() => state.playing.value !== 0 && !scrubbing.value);

let ticking = false;
let due = 0;
let since = 0; // when the next frame became due and was not here
let told = 0;
const times: number[] = [];

function tick(now: number): void {
  ticking = running.value;
  if (!ticking) return;
  requestAnimationFrame(tick);
  // A screen's frame comes a little early or late: what is due within its half is due.
  if (now < due - 6) return;
  if (!next_is_ready()) return wait(now);
  since = 0;
  const period = 1000 / state.asked_rate.value;
  // What was waited for is not caught up with.
  due = now - due > period ? now + period : due + period;
  show_next();
  count(now);
}

function wait(now: number): void {
  const next = next_step();
  if (!next) {
    if (state.connected.value && state.loop_mode.value === "once") stop();
    return;
  }
  if (since === 0) since = now;
  if (now - since > late) waiting_for.value = next.frame;
  const later = first_ready();
  if (later <= 0 || now - since < too_late) return;
  given_up.value += later;
  drop_next(later);
  since = 0;
}

function count(now: number): void {
  times.push(now);
  if (times.length > window_length + 1) times.shift();
  const first = times[0] ?? now;
  waiting_for.value = null;
  // Four times a second is as often as a number can be read.
  if (times.length < 2 || now - told < 250) return;
  told = now;
  state.reached_rate.value = ((times.length - 1) * 1000) / (now - first);
}

// Play starts, and goes on after a scrub.
effect(() => {
  waiting_for.value = null;
  if (!running.value) return;
  due = performance.now();
  since = 0;
  times.length = 0;
  if (!ticking) requestAnimationFrame(tick);
  ticking = true;
});

export function play(direction: 1 | -1): void {
  batch(() => {
    given_up.value = 0;
    state.reached_rate.value = 0;
    const all = frames.value;
    const at_end = state.playhead.value === (direction > 0 ? all.at(-1) : all[0]);
    const inside = all.includes(state.playhead.value);
    if (!inside) state.playhead.value = nearest(state.playhead.value);
    else if (at_end && state.loop_mode.value === "once")
      state.playhead.value = (direction > 0 ? all[0] : all.at(-1)) ?? state.playhead.value;
    state.playing.value = direction;
  });
}

export function stop(): void {
  state.playing.value = 0;
}

export function toggle(): void {
  if (state.playing.value === 0) play(1);
  else stop();
}

// To the frame of the composition so many steps away.
export function step(by: number): void {
  const all = state.info.value?.frames ?? [];
  const at = all.indexOf(nearest(state.playhead.value, all));
  go_to(all[Math.min(all.length - 1, Math.max(0, at + by))] ?? state.playhead.value);
}

export function go_to(frame: number): void {
  batch(() => {
    stop();
    state.playhead.value = frame;
  });
}
