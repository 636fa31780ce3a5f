import { computed, signal } from "@preact/signals";
import { layout, node_height, node_width, type Point } from "./layout";

// What part of the graph is seen. x and y are where the graph's origin stands in the panel.
export const camera = signal({ x: 0, y: 0, scale: 1 });
export const panel = signal({ width: 0, height: 0 });
export const transform = computed(() => `translate(${camera.value.x} ${camera.value.y}) scale(${camera.value.scale})`);
export const is_far = computed(() => camera.value.scale < 0.55); // small letters could not be read

const least = 0.05;
const most = 2.5;
const margin = 14;

export function to_graph(x: number, y: number): Point {
  const { x: left, y: top, scale } = camera.value;
  return { x: (x - left) / scale, y: (y - top) / scale };
}

export function zoom_about(x: number, y: number, factor: number): void {
  const now = camera.value;
  const scale = Math.min(most, Math.max(least, now.scale * factor));
  const by = scale / now.scale;
  camera.value = { scale, x: x - (x - now.x) * by, y: y - (y - now.y) * by };
}

export function pan(x: number, y: number): void {
  camera.value = { ...camera.value, x: camera.value.x + x, y: camera.value.y + y };
}

// All of it; at the start no smaller than can be read.
export function fit(smallest = least): void {
  const { width, height } = panel.value;
  if (width === 0 || layout.value.width === 0) return;
  const whole = Math.min((width - 2 * margin) / layout.value.width, (height - 2 * margin) / layout.value.height);
  const scale = Math.min(1.25, Math.max(smallest, whole));
  const x = (width - layout.value.width * scale) / 2;
  const y = (height - layout.value.height * scale) / 2;
  camera.value = { scale, x, y };
}

// Brings a node to the middle, or only as far as it takes to see it.
export function look_at(name: string, centre = true): void {
  const at = layout.value.places.get(name);
  if (!at) return;
  const { width, height } = panel.value;
  const { x, y, scale } = camera.value;
  const [left, top] = [x + at.x * scale, y + at.y * scale];
  if (centre) {
    pan(width / 2 - left, height / 2 - top);
    return;
  }
  const aside = (node_width / 2) * scale + margin;
  const above = (node_height / 2) * scale + margin;
  const into = (value: number, room: number, size: number) =>
    value < room ? room - value : value > size - room ? size - room - value : 0;
  pan(into(left, aside, width), into(top, above, height));
}
