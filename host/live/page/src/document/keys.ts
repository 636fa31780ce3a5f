import type { KnobSpec } from "../protocol";
import type { Json } from "./write";

// Knobs of numbers and flags as a composition gives them: one value for all components, or one each; any of them a
// constant or keys over frames.

export const interpolations = ["step", "linear", "smooth", "cubic", "spline", "flat", "slopes"] as const;
export type Interpolation = (typeof interpolations)[number];

export interface Key {
  frame: number;
  value: number;
  kind: Interpolation;
  named: boolean; // linear when it is not
  in: number | null; // slopes, in value a frame
  out: number | null;
}

export interface Curve {
  keys: Key[]; // in order
  extrapolate: boolean;
}

export type Part = number | Curve;

export interface Parts {
  joined: boolean; // one value stands for all
  parts: Part[];
}

export function is_curve(part: Part | undefined): part is Curve {
  return typeof part === "object";
}

export function read_curve(value: Json | undefined): Curve | null {
  if (value === null || typeof value !== "object" || Array.isArray(value) || !Array.isArray(value["keys"])) return null;
  const keys: Key[] = [];
  for (const key of value["keys"]) {
    const [frame, at, kind, incoming, outgoing] = Array.isArray(key) ? key : [];
    if (typeof frame !== "number" || typeof at !== "number") continue;
    const known = interpolations.find((each) => each === kind);
    const slope = (given: Json | undefined) => (typeof given === "number" ? given : null);
    keys.push({ frame, value: at, kind: known ?? "linear", named: known !== undefined, in: slope(incoming), out: slope(outgoing) });
  }
  keys.sort((one, other) => one.frame - other.frame);
  return { keys, extrapolate: value["extrapolate"] === true };
}

export function curve_json(curve: Curve): Json {
  const keys = curve.keys.map((key): Json => {
    const list: Json[] = [key.frame, key.value];
    if (key.named || key.kind !== "linear") list.push(key.kind);
    if (key.kind === "slopes" && (key.in !== null || key.out !== null)) list.push(key.in ?? 0);
    if (key.kind === "slopes" && key.out !== null) list.push(key.out);
    return list;
  });
  return curve.extrapolate ? { keys, extrapolate: true } : { keys };
}

function read_part(value: Json | undefined, other: number): Part {
  if (typeof value === "number") return value;
  if (typeof value === "boolean") return value ? 1 : 0;
  return read_curve(value) ?? other;
}

export function read_parts(value: Json | undefined, spec: KnobSpec): Parts {
  const { defaults } = spec;
  if (value === undefined) return { joined: false, parts: [...defaults] };
  if (!Array.isArray(value)) return { joined: true, parts: [read_part(value, defaults[0] ?? 0)] };
  return { joined: false, parts: value.map((each, i) => read_part(each, defaults[i] ?? 0)) };
}

export function parts_json({ joined, parts }: Parts, spec: KnobSpec): Json {
  const list = parts.map((part): Json => (is_curve(part) ? curve_json(part) : spec.kind === "flag" ? part !== 0 : part));
  return joined || spec.defaults.length <= 1 ? (list[0] ?? 0) : list;
}

// The parts with another one at `component`.
export function with_part(given: Parts, component: number, part: Part): Parts {
  return { ...given, parts: given.parts.map((each, i) => (i === component ? part : each)) };
}

// The key at a frame, or one more in the manner of the one before; `first` is the manner of the first one.
export function with_key(curve: Curve, frame: number, value: number, first: Interpolation = "smooth"): Curve {
  const there = curve.keys.find((key) => key.frame === frame);
  if (there) return { ...curve, keys: curve.keys.map((key) => (key === there ? { ...key, value } : key)) };
  const before = curve.keys.filter((key) => key.frame < frame).at(-1) ?? curve.keys[0];
  const kind = before && before.kind !== "slopes" ? before.kind : first;
  const key: Key = { frame, value, kind, named: before?.named ?? true, in: null, out: null };
  return { ...curve, keys: [...curve.keys, key].sort((one, other) => one.frame - other.frame) };
}

export function without_key(curve: Curve, frame: number): Curve {
  return { ...curve, keys: curve.keys.filter((key) => key.frame !== frame) };
}
