import { batch } from "@preact/signals";
import { add_commands } from "../commands";
import { post } from "../net/api";
import * as state from "../state";
import { go_to, play, step, stop, toggle } from "./play";
import { frames, nearest } from "./range";

// The page believes the server's event, which every page gets.
export function pause_computing(paused: boolean): void {
  post("/computing", { paused }).catch((error: Error) => (state.notices.value = [...state.notices.value, error.message]));
}

export function set_in(frame: number | null): void {
  batch(() => {
    state.in_point.value = frame;
    if (frame !== null && state.out_point.value !== null && state.out_point.value < frame) state.out_point.value = null;
  });
}

export function set_out(frame: number | null): void {
  batch(() => {
    state.out_point.value = frame;
    if (frame !== null && state.in_point.value !== null && state.in_point.value > frame) state.in_point.value = null;
  });
}

function clear_points(): void {
  set_in(null);
  set_out(null);
}

const group = "Play";
const here = () => state.playhead.value;
const modes = ["loop", "bounce", "once"] as const;

function next_mode(): void {
  state.loop_mode.value = modes[(modes.indexOf(state.loop_mode.value) + 1) % modes.length] ?? "loop";
}

add_commands(
  { id: "play.toggle", title: "Play or stop", group, keys: [" "], run: toggle },
  { id: "play.forward", title: "Play forward", group, keys: ["l"], run: () => play(1) },
  { id: "play.back", title: "Play backward", group, keys: ["j"], run: () => play(-1) },
  { id: "play.stop", title: "Stop", group, keys: ["k"], run: stop },
  { id: "play.previous", title: "One frame back", group, keys: ["ArrowLeft"], run: () => step(-1) },
  { id: "play.next", title: "One frame on", group, keys: ["ArrowRight"], run: () => step(1) },
  { id: "play.ten-back", title: "Ten frames back", group, keys: ["Shift+ArrowLeft"], run: () => step(-10) },
  { id: "play.ten-on", title: "Ten frames on", group, keys: ["Shift+ArrowRight"], run: () => step(10) },
  { id: "play.first", title: "To the first frame", group, keys: ["Home"], run: () => go_to(frames.value[0] ?? here()) },
  { id: "play.last", title: "To the last frame", group, keys: ["End"], run: () => go_to(frames.value.at(-1) ?? here()) },
  { id: "play.in", title: "In point here", group, keys: ["i"], run: () => set_in(nearest(here())) },
  { id: "play.out", title: "Out point here", group, keys: ["o"], run: () => set_out(nearest(here())) },
  { id: "play.no-points", title: "No in and out points", group, keys: ["Shift+i", "Shift+o"], run: clear_points },
  { id: "play.mode", title: "Loop, bounce or play once", group, keys: ["Shift+l"], run: next_mode },
  { id: "play.computing", title: "Pause or resume computing", group, keys: ["Shift+p"], run: () => pause_computing(!state.paused.value) },
);
