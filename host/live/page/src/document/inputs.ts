import type { NodeType } from "../protocol";
import type { Json } from "./write";

// What one node reads: `name` is the input's, as the composition gives it; `at` counts those under one name.
export interface Link {
  name: string;
  at: number;
  from: string; // "": nothing is connected
  required: boolean;
  help: string;
}

// Files take further images, each under a name of its own.
export function takes_layers(type: NodeType): boolean {
  return type.writes_files && type.inputs.length === 1;
}

function text_of(value: Json | undefined): string {
  return typeof value === "string" ? value : "";
}

// Every input that the node has or could have, in order; of inputs that repeat, one more than are connected.
export function links_of(given: Json | undefined, type: NodeType | undefined): Link[] {
  if (!type) return loose_links(given);
  const links: Link[] = type.inputs.map(({ name, required, help }) => ({ name, at: 0, from: "", required, help }));
  const last = type.inputs.at(-1);
  const set = (slot: number, from: string) => {
    const link = links[slot];
    if (link) link.from = from;
    else if (last && type.repeats_last_input)
      links.push({ name: last.name, at: slot - type.inputs.length + 1, from, required: false, help: last.help });
  };
  if (typeof given === "string") set(0, given);
  else if (Array.isArray(given)) given.forEach((each, slot) => set(slot, text_of(each)));
  else if (given && typeof given === "object")
    for (const [name, value] of Object.entries(given)) {
      const slot = type.inputs.findIndex((each) => each.name === name || (takes_layers(type) && name === "rgba"));
      const link = links[slot];
      if (Array.isArray(value)) value.forEach((each, i) => set(slot + i, text_of(each)));
      else if (link && (link.name === name || name === "rgba")) {
        link.name = name;
        link.from = text_of(value);
      } else if (takes_layers(type)) links.push({ name, at: 0, from: text_of(value), required: false, help: "A layer." });
    }
  const empty = links.at(-1)?.from === "" && links.length > 1;
  if (last && type.repeats_last_input && !empty)
    links.push({ name: last.name, at: links.length - type.inputs.length + 1, from: "", required: false, help: last.help });
  if (last && type.repeats_last_input)
    links.forEach((link, i) => (link.at = Math.max(0, i - type.inputs.length + 1)));
  return links;
}

// Of a type that is not known: what is connected.
function loose_links(given: Json | undefined): Link[] {
  const link = (name: string, from: Json) => ({ name, at: 0, from: text_of(from), required: false, help: "" });
  if (typeof given === "string") return [link("", given)];
  if (Array.isArray(given)) return given.map((each, i) => ({ ...link("", each), at: i }));
  if (given && typeof given === "object") return Object.entries(given).map(([name, from]) => link(name, from));
  return [];
}

export function same_input(one: { name: string; at: number }, other: { name: string; at: number }): boolean {
  return one.name === other.name && one.at === other.at;
}

// The links as `inputs` says them, in the form that was there as far as it can; undefined: nothing is connected.
export function inputs_of(links: Link[], type: NodeType, before: Json | undefined): Json | undefined {
  const connected = links.filter((each) => each.from !== "");
  const last = type.inputs.at(-1)?.name;
  if (connected.length === 0) return undefined;
  const layers = takes_layers(type) && connected.some((each) => each.name !== type.inputs[0]?.name);
  const first_alone = connected.length === 1 && connected[0] === links[0];
  if (!layers && first_alone && (before === undefined || typeof before === "string")) return connected[0]?.from ?? "";
  const only_list = type.repeats_last_input && type.inputs.length === 1; // what is left moves up
  const listed = Array.isArray(before) && connected.every((each, i) => each === links[i]);
  if (!layers && (listed || (only_list && (before === undefined || Array.isArray(before))))) return connected.map((each) => each.from);
  const named: Record<string, Json> = {};
  for (const { name, from } of connected) {
    const other = named[name];
    const repeats = type.repeats_last_input && name === last;
    if (other === undefined) named[name] = from;
    else if (repeats) named[name] = Array.isArray(other) ? [...other, from] : [other, from];
  }
  return in_order_of(before, named);
}

// Keys that were there keep their places.
function in_order_of(before: Json | undefined, named: Record<string, Json>): Json {
  if (before === null || typeof before !== "object" || Array.isArray(before)) return named;
  const ordered: Record<string, Json> = {};
  for (const key of [...Object.keys(before), ...Object.keys(named)]) if (key in named) ordered[key] = named[key] as Json;
  return ordered;
}
