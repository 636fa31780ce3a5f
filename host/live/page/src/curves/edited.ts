import { computed, signal } from "@preact/signals";
import { set_knob } from "../document/actions";
import { model } from "../document/document";
import { type Curve, type Interpolation, is_curve, type Key, type Parts, parts_json, read_parts, with_part } from "../document/keys";
import type { NodeText } from "../document/model";
import type { KnobSpec } from "../protocol";
import { catalogue, edited_curve, selected_node } from "../state";

// The curve that is open, as the text says it.
export interface Edited {
  node: NodeText;
  spec: KnobSpec;
  given: Parts;
  component: number;
  curve: Curve;
}

export const edited = computed((): Edited | null => {
  const open = edited_curve.value;
  const node = open && model.value.named.get(open.node);
  const spec = node && catalogue.value.get(node.type)?.knobs.find((each) => each.name === open.knob);
  if (!open || !node || !spec) return null;
  const given = read_parts(node.knobs[open.knob], spec);
  const component = given.joined ? 0 : open.component;
  const curve = given.parts[component];
  return is_curve(curve) ? { node, spec, given, component, curve } : null;
});

export const selection = signal<ReadonlySet<number>>(new Set()); // frames of keys

export interface KeyedKnob {
  node: string;
  knob: string;
  component: number;
  of: number; // components
}

// Every curve of the composition, those of the selected node first.
export const keyed_knobs = computed((): KeyedKnob[] => {
  const found: KeyedKnob[] = [];
  for (const node of model.value.nodes)
    for (const spec of catalogue.value.get(node.type)?.knobs ?? []) {
      if (spec.defaults.length === 0 || node.knobs[spec.name] === undefined) continue;
      const { parts } = read_parts(node.knobs[spec.name], spec);
      parts.forEach((part, component) => {
        if (is_curve(part)) found.push({ node: node.name, knob: spec.name, component, of: parts.length });
      });
    }
  const first = ({ node }: KeyedKnob) => (node === selected_node.value ? 0 : 1);
  return found.sort((one, other) => first(one) - first(other));
});

function held(spec: KnobSpec, key: Key): Key {
  const value = Math.min(spec.maximum ?? Infinity, Math.max(spec.minimum ?? -Infinity, key.value));
  return { ...key, value: spec.kind === "integer" ? Math.round(value) : value };
}

// Other keys for the open curve. Of two at one frame the later in the list stays.
export function set_keys(keys: Key[], merge_key = "", extrapolate?: boolean): void {
  const now = edited.value;
  if (!now || keys.length === 0) return;
  const at = new Map(keys.map((key) => [key.frame, held(now.spec, key)]));
  const sorted = [...at.values()].sort((one, other) => one.frame - other.frame);
  const curve: Curve = { keys: sorted, extrapolate: extrapolate ?? now.curve.extrapolate };
  change_part(now, curve, merge_key);
}

function change_part(now: Edited, part: Curve | number, merge_key: string): void {
  const parts = with_part(now.given, now.component, part);
  set_knob(now.node.name, now.spec.name, parts_json(parts, now.spec), merge_key);
}

export function remove_keys(frames: ReadonlySet<number>): void {
  const now = edited.value;
  if (!now || frames.size === 0) return;
  const left = now.curve.keys.filter((key) => !frames.has(key.frame));
  selection.value = new Set();
  // Without keys it is a constant again.
  if (left.length === 0) change_part(now, now.curve.keys[0]?.value ?? 0, "");
  else set_keys(left);
}

export function selected_keys(): Key[] {
  return edited.value?.curve.keys.filter((key) => selection.value.has(key.frame)) ?? [];
}

// The straight line's slope between the neighbours of a key.
export function slope_at(curve: Curve, key: Key): number {
  const at = curve.keys.indexOf(key);
  const before = curve.keys[at - 1] ?? key;
  const behind = curve.keys[at + 1] ?? key;
  const slope = behind.frame > before.frame ? (behind.value - before.value) / (behind.frame - before.frame) : 0;
  return Number(slope.toPrecision(4));
}

export function set_interpolation(kind: Interpolation): void {
  const now = edited.value;
  if (!now) return;
  set_keys(
    now.curve.keys.map((key) => {
      if (!selection.value.has(key.frame)) return key;
      if (kind !== "slopes") return { ...key, kind, named: true, in: null, out: null };
      const slope = slope_at(now.curve, key);
      return { ...key, kind, named: true, in: key.in ?? slope, out: key.out ?? slope };
    }),
  );
}

// Moves keys from where they were when a hand took them; keys that they come to stand on give way.
export function move_keys(from: Key[], moved: ReadonlySet<number>, frames: number, values: number, merge_key: string): void {
  const change = (key: Key) => ({ ...key, frame: round(key.frame + frames), value: round(key.value + values) });
  const gone = from.filter((key) => moved.has(key.frame)).map(change);
  selection.value = new Set(gone.map((key) => key.frame));
  set_keys([...from.filter((key) => !moved.has(key.frame)), ...gone], merge_key);
}

export function round(value: number): number {
  return Number(value.toPrecision(12));
}
