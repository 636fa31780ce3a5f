import { signal } from "@preact/signals";
import type { Curve } from "../document/keys";
import { first_frame, last_frame } from "../state";

// The stretch of frames and values that is seen, and the panel's size in pixels.
export const view = signal({ left: 0, right: 25, low: 0, high: 1 });
export const size = signal({ width: 0, height: 0 });

export const ruler = 17; // pixels at the top that tell frames
export const gutter = 46; // pixels at the left that tell values

export function to_x(frame: number): number {
  const { left, right } = view.value;
  return gutter + ((frame - left) / (right - left)) * (size.value.width - gutter);
}

export function to_y(value: number): number {
  const { low, high } = view.value;
  return size.value.height - ((value - low) / (high - low)) * (size.value.height - ruler);
}

export function to_frame(x: number): number {
  const { left, right } = view.value;
  return left + ((x - gutter) / (size.value.width - gutter)) * (right - left);
}

export function to_value(y: number): number {
  const { low, high } = view.value;
  return low + ((size.value.height - y) / (size.value.height - ruler)) * (high - low);
}

export function frames_a_pixel(): number {
  return (view.value.right - view.value.left) / Math.max(1, size.value.width - gutter);
}

export function values_a_pixel(): number {
  return (view.value.high - view.value.low) / Math.max(1, size.value.height - ruler);
}

export function pan(x: number, y: number): void {
  const { left, right, low, high } = view.value;
  const [frames, values] = [x * frames_a_pixel(), y * values_a_pixel()];
  view.value = { left: left - frames, right: right - frames, low: low + values, high: high + values };
}

const narrowest = 0.5; // frames

export function zoom_about(x: number, y: number, along: number, across: number): void {
  const { left, right, low, high } = view.value;
  const [frame, value] = [to_frame(x), to_value(y)];
  if ((right - left) * along < narrowest || (right - left) * along > 1e6) return;
  const span = (high - low) * across;
  if (span < 1e-9 || span > 1e12) return;
  view.value = {
    left: frame + (left - frame) * along,
    right: frame + (right - frame) * along,
    low: value + (low - value) * across,
    high: value + (high - value) * across,
  };
}

// All keys, the composition's frames, and what the curve does between.
export function frame_all(curve: Curve, values: number[]): void {
  const frames = [first_frame.value, last_frame.value, ...curve.keys.map((key) => key.frame)];
  const all = [...curve.keys.map((key) => key.value), ...values].filter(Number.isFinite);
  const [left, right] = [Math.min(...frames), Math.max(...frames)];
  const low = Math.min(...all);
  const high = Math.max(...all);
  if (all.length === 0) return;
  const aside = Math.max(0.5, (right - left) * 0.03);
  const above = high > low ? (high - low) * 0.15 : Math.max(0.5, Math.abs(high) * 0.5);
  view.value = { left: left - aside, right: right + aside, low: low - above, high: high + above };
}

// Round numbers about `apart` pixels from each other.
export function ticks(from: number, to: number, pixels: number, apart: number, least = 0): number[] {
  const rough = ((to - from) / Math.max(1, pixels)) * apart;
  const ten = 10 ** Math.floor(Math.log10(rough));
  const step = Math.max(least, ten * (rough <= ten ? 1 : rough <= 2 * ten ? 2 : rough <= 5 * ten ? 5 : 10));
  const list: number[] = [];
  for (let i = Math.ceil(from / step); i * step <= to && list.length < 200; ++i) list.push(Number((i * step).toPrecision(12)));
  return list;
}
