import { effect, signal } from "@preact/signals";
import { compare, info } from "../state";
import { shown_name } from "./settings";

// What B is.

export interface Seen {
  version: number;
  time: string; // when it was first seen here
}
export const seen_versions = signal<Seen[]>([]); // the newest first
const most_versions = 32; // the server keeps no more

effect(() => {
  const version = info.value?.version;
  const seen = seen_versions.peek();
  if (version === undefined || seen.some((each) => each.version === version)) return;
  const time = new Date().toLocaleTimeString([], { hour12: false });
  seen_versions.value = [{ version, time }, ...seen].slice(0, most_versions);
});

type Mode = typeof compare.value.mode;
let pinned = false;

// As it is now, so that what is edited from here on is seen against it.
export function pin_now(): void {
  pinned = true;
  const mode = compare.value.mode === "off" ? "wipe" : compare.value.mode;
  compare.value = { ...compare.value, mode, node: shown_name.value, version: info.value?.version ?? 0 };
}

// The shown node, whatever becomes of it.
export function pin_node(): void {
  pinned = true;
  const mode = compare.value.mode === "off" ? "wipe" : compare.value.mode;
  compare.value = { ...compare.value, mode, node: shown_name.value, version: 0 };
}

export function set_mode(mode: Mode): void {
  if (mode !== "off" && !pinned && !compare.value.node) pin_now();
  compare.value = { ...compare.value, mode };
}

export function toggle_mode(mode: Mode): void {
  set_mode(compare.value.mode === mode ? "off" : mode);
}

export function set_compare(change: Partial<typeof compare.value>): void {
  pinned = true;
  compare.value = { ...compare.value, ...change };
}
