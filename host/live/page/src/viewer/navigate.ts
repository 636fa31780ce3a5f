import { sample, zoom } from "../state";
import { centre_for, largest_zoom, least_zoom, to_format, type Point } from "./geometry";
import { scene, view } from "./scene";
import { canvas_size, centre, marked, pointer, shown_format } from "./settings";

// Zoom and pan. Places are device pixels of the canvas from its left top.

export function set_zoom(next: number, about?: Point): void {
  const size = canvas_size.value;
  const held = Math.min(largest_zoom, Math.max(least_zoom, next));
  const place = about ?? { x: view.value.panel / 2, y: size.height / 2 };
  const point = to_format(view.value, place.x, place.y);
  centre.value = centre_for(view.value, size, held, shown_format.value.pixel_aspect, point, place.x, place.y);
  zoom.value = held;
}

export function zoom_by(factor: number, about?: Point): void {
  set_zoom(view.value.down * factor, about);
}

const stops = [1 / 64, 1 / 32, 1 / 16, 1 / 8, 1 / 4, 1 / 3, 1 / 2, 2 / 3, 1, 1.5, 2, 3, 4, 6, 8, 12, 16, 24, 32, 48, 64, 96, 128, 256, 512];

// To the next of the usual steps.
export function step_zoom(direction: 1 | -1): void {
  const now = view.value.down;
  const next =
    direction > 0 ? stops.find((each) => each > now * 1.001) : stops.findLast((each) => each < now * 0.999);
  if (next !== undefined) set_zoom(next);
}

export function fit(): void {
  centre.value = null;
  zoom.value = "fit";
}

export function pan_by(x: number, y: number): void {
  const { across, down } = view.value;
  const format = shown_format.value;
  const now = (zoom.value === "fit" ? null : centre.value) ?? { x: format.width / 2, y: format.height / 2 };
  if (zoom.value === "fit") zoom.value = down;
  centre.value = { x: now.x - x / across, y: now.y + y / down };
}

// The pixel that is probed, moved by keys: from the middle where the pointer is elsewhere.
export function probe_step(right: number, up: number): void {
  const { panel } = view.value;
  const from = pointer.value ?? to_format(view.value, panel / 2, canvas_size.value.height / 2);
  const spot = { x: Math.floor(from.x) + right, y: Math.floor(from.y) + up };
  pointer.value = { x: spot.x + 0.5, y: spot.y + 0.5 };
  marked.value = spot;
}

// So many pixels on each side of the probed one.
export function sample_around(reach: number): void {
  if (!pointer.value) probe_step(0, 0);
  const at = pointer.value;
  if (!at) return;
  const x = Math.floor(at.x);
  const y = Math.floor(at.y);
  sample.value = { x0: x - reach, y0: y - reach, x1: x + reach + 1, y1: y + reach + 1 };
}

// A quarter of the canvas, for keys.
export function pan_step(right: number, up: number): void {
  const { panel } = scene.value.view;
  pan_by(-right * Math.round(panel / 4), up * Math.round(canvas_size.value.height / 4));
}
