import { batch } from "@preact/signals";
import { dock } from "../app/layout";
import { set_knob } from "../document/actions";
import { type Curve, is_curve, type Part, type Parts, parts_json, with_key, with_part, without_key } from "../document/keys";
import type { NodeText } from "../document/model";
import type { KnobSpec } from "../protocol";
import { edited_curve, first_frame, last_frame, playhead } from "../state";

// One knob of one node as the panel changes it.
export interface Subject {
  node: NodeText;
  spec: KnobSpec;
  given: Parts;
}

export function change_parts({ node, spec }: Subject, parts: Parts, merge_key = ""): void {
  set_knob(node.name, spec.name, parts_json(parts, spec), merge_key);
}

// A constant becomes `value`; a curve gets it at the playhead.
export function change_value(subject: Subject, component: number, value: number, merge_key: string): void {
  const part = subject.given.parts[component];
  const changed: Part = is_curve(part) ? with_key(part, playhead.value, value) : value;
  change_parts(subject, with_part(subject.given, component, changed), merge_key);
}

export function key_at(curve: Curve, frame: number): boolean {
  return curve.keys.some((key) => key.frame === frame);
}

// Sets a key at the playhead or takes it away; of a curve without keys a constant is left.
export function toggle_key(subject: Subject, component: number, value: number): void {
  const part = subject.given.parts[component];
  let changed: Part;
  if (!is_curve(part)) changed = first_key(subject, value);
  else if (!key_at(part, playhead.value)) changed = with_key(part, playhead.value, value);
  else changed = part.keys.length === 1 ? (part.keys[0]?.value ?? value) : without_key(part, playhead.value);
  change_parts(subject, with_part(subject.given, component, changed));
}

function first_key({ spec }: Subject, value: number): Curve {
  return with_key({ keys: [], extrapolate: false }, playhead.value, value, spec.kind === "flag" ? "step" : "smooth");
}

// Every component becomes keyed, with a key at the playhead.
export function key_all(subject: Subject): void {
  const { given } = subject;
  const parts = given.parts.map((part): Part => (is_curve(part) ? part : first_key(subject, part)));
  change_parts(subject, { ...given, parts });
}

export function make_constant(subject: Subject, component: number, value: number): void {
  change_parts(subject, with_part(subject.given, component, value));
}

export function go_to_key(curve: Curve, side: -1 | 1): void {
  const frames = curve.keys.map((key) => key.frame);
  const next = side > 0 ? frames.find((frame) => frame > playhead.value) : frames.filter((frame) => frame < playhead.value).at(-1);
  if (next === undefined) return;
  playhead.value = Math.min(last_frame.value, Math.max(first_frame.value, Math.round(next)));
}

export function open_curve(node: string, knob: string, component: number): void {
  batch(() => {
    edited_curve.value = { node, knob, component };
    dock.value = "curves";
  });
}
