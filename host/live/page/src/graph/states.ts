import { computed, effect, signal } from "@preact/signals";
import { model } from "../document/document";
import { node_of } from "../document/place";
import type { NodeState } from "../protocol";
import { node_states, playing, problems } from "../state";

// The nodes' states a few times a second: more cannot be read, and play, which brings them with each frame, needs the
// time for the picture.
const pause = 120; // ms
const pause_in_play = 1000;
const calm = signal<Map<string, NodeState>>(new Map());
let timer = 0;

effect(() => {
  const now = node_states.value;
  if (timer !== 0) return;
  calm.value = now;
  timer = window.setTimeout(() => {
    timer = 0;
    if (calm.peek() !== node_states.peek()) calm.value = node_states.peek();
  }, playing.peek() === 0 ? pause : pause_in_play);
});

export interface Shown {
  state: NodeState["state"] | "none"; // none: the last frame did not ask for it
  ms: number; // of the last draw that was seen
  bytes: number;
  message: string;
}

let kept = new Map<string, Shown>();

// By the names of the text: of a node that is there once a view, the one that took longest. A node that was found in
// memory, or was not asked for, keeps the time that it took when it was drawn.
export const states = computed(() => {
  const found = new Map<string, Shown>();
  for (const [name, before] of kept) if (model.value.named.has(name)) found.set(name, { ...before, state: "none", message: "" });
  const told = new Set<string>();
  for (const { name: given, state, ms, bytes, message } of calm.value.values()) {
    const name = node_of(model.value, given);
    if (name === null) continue;
    const other = told.has(name) ? found.get(name) : undefined;
    told.add(name);
    if (other && state !== "error" && ms <= other.ms) continue;
    const time = state === "cached" && ms === 0 ? (kept.get(name)?.ms ?? 0) : ms;
    found.set(name, { state, ms: time, bytes, message });
  }
  kept = found;
  return found;
});

// What is wrong with nodes, in the server's words: with the text first, else with the frame.
export const messages = computed(() => {
  const found = new Map<string, string[]>();
  const add = (name: string | null, message: string) => {
    if (name !== null && message !== "") found.set(name, [...(found.get(name) ?? []), message]);
  };
  for (const problem of problems.value) add(node_of(model.value, problem.node), problem.message);
  for (const [name, state] of states.value) if (state.state === "error") add(name, state.message);
  return found;
});

export function milliseconds(ms: number): string {
  return ms >= 100 ? `${Math.round(ms)} ms` : ms >= 0.05 ? `${ms.toFixed(1)} ms` : "0 ms";
}

export function octets(bytes: number): string {
  if (bytes >= 2 ** 30) return `${(bytes / 2 ** 30).toFixed(1)} GiB`;
  if (bytes >= 2 ** 20) return `${(bytes / 2 ** 20).toFixed(1)} MiB`;
  return bytes > 0 ? `${Math.ceil(bytes / 1024)} KiB` : "";
}
