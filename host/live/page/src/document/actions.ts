import { batch } from "@preact/signals";
import * as state from "../state";
import { edit, model } from "./document";
import * as edits from "./edits";
import type { Input } from "./edits";
import type { Json } from "./write";

// What parts of the page do to the document, each a step with a title. They return what is wrong, else "".

export function set_knob(node: string, knob: string, value: Json | undefined, merge_key = ""): string {
  const title = value === undefined ? `Reset ${node}.${knob}` : `Set ${node}.${knob}`;
  return edit(title, (text) => edits.with_knob(text, node, knob, value), merge_key);
}

export function set_comment(node: string, comment: string): string {
  return edit(`Comment ${node}`, (text) => edits.with_comment(text, node, comment));
}

export function set_disabled(node: string, disabled: boolean): string {
  return edit(`${disabled ? "Disable" : "Enable"} ${node}`, (text) => edits.with_disabled(text, node, disabled));
}

export function connect(node: string, input: Input, from: string): string {
  const title = from === "" ? `Disconnect ${node}.${input.name}` : `Connect ${from} to ${node}`;
  return edit(title, (text) => edits.with_input(text, state.catalogue.value, node, input, from));
}

export function disconnect(node: string, input: Input): string {
  return connect(node, input, "");
}

// Takes an edge's upstream end from one input to another, in one step.
export function reconnect(from: string, old_node: string, old_input: Input, node: string, input: Input): string {
  const catalogue = state.catalogue.value;
  return edit(`Connect ${from} to ${node}`, (text) =>
    edits.with_input(edits.with_input(text, catalogue, old_node, old_input, ""), catalogue, node, input, from),
  );
}

// Behind `after`, see with_node; returns its name, "" where it could not be made.
export function add_node(type: string, after: string): string {
  const name = edits.free_name(model.value, type);
  const wrong = edit(`Add ${name}`, (text) => edits.with_node(text, state.catalogue.value, type, name, after));
  if (wrong !== "") return "";
  state.selected_node.value = name;
  return name;
}

export function remove_node(name: string): string {
  const instead = model.value.named.get(name)?.links[0]?.from ?? "";
  const wrong = edit(`Remove ${name}`, (text) => edits.without_node(text, state.catalogue.value, name));
  if (wrong === "") refer(name, instead);
  return wrong;
}

export function rename_node(name: string, wish: string): string {
  const wrong = edit(`Rename ${name} to ${wish}`, (text) => edits.with_name(text, name, wish));
  if (wrong === "") refer(name, wish);
  return wrong;
}

// What looks at a node looks at another one.
function refer(name: string, instead: string): void {
  batch(() => {
    if (state.selected_node.value === name) state.selected_node.value = instead;
    if (state.shown_node.value === name || state.shown_node.value.startsWith(`${name}.`)) state.shown_node.value = instead;
    const compare = state.compare.value;
    if (compare.node === name) state.compare.value = { ...compare, node: instead };
    const curve = state.edited_curve.value;
    if (curve?.node !== name) return;
    state.edited_curve.value = model.value.named.get(instead)?.knobs[curve.knob] ? { ...curve, node: instead } : null;
  });
}

export function set_outputs(outputs: string[]): string {
  return edit("Set output", (text) => edits.with_outputs_set(text, outputs));
}

export function set_format(width: number, height: number, pixel_aspect = 1): string {
  return edit("Set format", (text) => edits.with_format(text, { width, height, pixel_aspect }));
}

export function set_frames(frames: string): string {
  return edit("Set frames", (text) => edits.with_frames(text, frames));
}
