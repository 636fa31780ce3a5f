import type { KnobSpec } from "../protocol";

// What a hand moves a number over: the knob's own limits where they are near, else what its default suggests.
export interface Range {
  low: number;
  high: number;
  step: number; // a pixel of movement, or an arrow
}

const widest = 1000; // limits farther apart say what is allowed, not what is useful

function ten_below(value: number): number {
  return 10 ** Math.floor(Math.log10(Math.max(value, 1e-9)) + 1e-9);
}

// 1, 2 or 5 times a power of ten.
function rounded_up(value: number): number {
  const ten = ten_below(value);
  return ten * (value <= ten ? 1 : value <= 2 * ten ? 2 : value <= 5 * ten ? 5 : 10);
}

export function range_of(spec: KnobSpec, component: number, value: number): Range {
  const { minimum, maximum } = spec;
  const usual = Math.abs(spec.defaults[component] ?? spec.defaults[0] ?? 0);
  let low = minimum ?? Number.NEGATIVE_INFINITY;
  let high = maximum ?? Number.POSITIVE_INFINITY;
  const near = high - low <= 4 * Math.max(1, usual) || (high - low <= widest && spec.kind === "integer" && high <= 256);
  if (!near) {
    const reach = /degrees/i.test(spec.help) ? 180 : spec.pixels || spec.kind === "integer" ? Math.max(100, 4 * usual) : usual === 0 ? 1 : 4 * usual;
    const enough = Math.max(reach, Math.abs(value) > reach ? rounded_up(1.2 * Math.abs(value)) : 0);
    high = Math.min(high, enough);
    const down = usual > 0 && value >= 0 && !spec.pixels ? 0 : -enough;
    low = Math.max(low, usual > 0 && value >= 0 ? Math.max(down, 0) : -enough);
  }
  const fine = ten_below((high - low) / 100);
  const step = spec.kind === "integer" ? Math.max(1, fine) : spec.pixels ? Math.min(1, Math.max(fine, 0.01)) : Math.min(fine, 1);
  return { low, high, step };
}

export function within(spec: KnobSpec, value: number): number {
  const held = Math.min(spec.maximum ?? Infinity, Math.max(spec.minimum ?? -Infinity, value));
  return spec.kind === "integer" ? Math.round(held) : held;
}

const colours =
  /^(colou?r|screen|tint|first|second|black|white|fill|blackpoint|whitepoint|lift|gain|multiply|offset|gamma|slope|power)$/;

export function is_colour(spec: KnobSpec): boolean {
  const count = spec.defaults.length;
  return spec.kind === "number" && !spec.pixels && (count === 3 || count === 4) && colours.test(spec.name);
}

// A swatch says something of colours themselves, not of exponents.
export function has_swatch(spec: KnobSpec): boolean {
  return is_colour(spec) && !/^(gamma|power|slope)$/.test(spec.name);
}

// Short names of a knob's components.
export function component_names(spec: KnobSpec): string[] {
  const count = spec.defaults.length;
  if (count === 1) return [""];
  if (is_colour(spec) || (count === 3 && !spec.pixels)) return ["R", "G", "B", "A"].slice(0, count);
  if (count === 2) return spec.pixels || /scale|size|skew/.test(spec.name) ? ["X", "Y"] : ["1", "2"];
  if (spec.name === "box") return ["left", "low", "right", "top"];
  if (spec.pixels && count % 2 === 0) return spec.defaults.map((_, i) => `${i % 2 ? "Y" : "X"}${Math.floor(i / 2) + 1}`);
  return spec.defaults.map((_, i) => String(i + 1));
}

// Whether one number stands for all components of a knob that the composition says nothing of.
export function joined_at_first(spec: KnobSpec): boolean {
  const [first] = spec.defaults;
  const of_a_kind = is_colour(spec) || /scale/.test(spec.name) || (spec.pixels && first !== 0);
  return spec.defaults.length > 1 && of_a_kind && spec.defaults.every((each) => each === first);
}
