import { computed, effect, signal } from "@preact/signals";
import { model } from "../document/document";
import { node_of } from "../document/place";
import type { NodeState } from "../protocol";
import { node_states, problems } from "../state";

// The nodes' states a few times a second: more cannot be read, and play brings them with each frame.
const pause = 120; // ms
const calm = signal<Map<string, NodeState>>(new Map());
let timer = 0;

effect(() => {
  const now = node_states.value;
  if (timer !== 0) return;
  calm.value = now;
  timer = window.setTimeout(() => {
    timer = 0;
    if (calm.peek() !== node_states.peek()) calm.value = node_states.peek();
  }, pause);
});

// By the names of the text: of a node that is there once a view, the one that took longest.
export const states = computed(() => {
  const found = new Map<string, NodeState>();
  for (const state of calm.value.values()) {
    const name = node_of(model.value, state.name);
    if (name === null) continue;
    const other = found.get(name);
    if (!other || state.state === "error" || state.ms > other.ms) found.set(name, state);
  }
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
