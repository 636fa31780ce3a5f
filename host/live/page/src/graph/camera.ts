import { computed, signal } from "@preact/signals";
import { node_height, node_width, type Point } from "./boxes";
import { layout } from "./layout";

// What part of the graph is seen. x and y are where the graph's origin stands in the panel.
export const camera = signal({ x: 0, y: 0, scale: 1 });
export const panel = signal({ width: 0, height: 0 });
export const transform = computed(() => `translate(${camera.value.x} ${camera.value.y}) scale(${camera.value.scale})`);
export const is_far = computed(() => camera.value.scale < 0.55); // small letters could not be read
export const is_very_far = computed(() => camera.value.scale < 0.28); // nor could names
export const readable = 0.62; // of full size

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

// Brings a node to the middle, to the foot, or only as far as it takes to see it.
export function look_at(name: string, place: "middle" | "foot" | "in" = "middle"): void {
  const at = layout.value.places.get(name);
  if (!at) return;
  const { width, height } = panel.value;
  if (place === "middle" && is_far.value) zoom_about(width / 2, height / 2, readable / camera.value.scale);
  const { x, y, scale } = camera.value;
  const [left, top] = [x + at.x * scale, y + at.y * scale];
  const aside = (node_width / 2) * scale + margin;
  const above = (node_height / 2) * scale + margin;
  if (place !== "in") {
    pan(width / 2 - left, (place === "middle" ? height / 2 : height - above) - top);
    return;
  }
  const into = (value: number, room: number, size: number) =>
    value < room ? room - value : value > size - room ? size - room - value : 0;
  pan(into(left, aside, width), into(top, above, height));
}

const block = 256; // in the graph's own units

// A region around what is seen that changes seldom: nodes outside it need not be there.
const region = computed(() => {
  const { x, y, scale } = camera.value;
  const { width, height } = panel.value;
  const cut = (value: number, by: number) => Math.floor(value / scale / block) + by;
  return JSON.stringify([cut(-x, 0), cut(-y, 0), cut(width - x, 1), cut(height - y, 1)]);
});
export const seen = computed((): ReadonlySet<string> => {
  const [left = 0, top = 0, right = 0, bottom = 0] = (JSON.parse(region.value) as number[]).map((each) => each * block);
  const names = new Set<string>();
  for (const [name, { x, y }] of layout.value.places) {
    const across = x + node_width / 2 >= left && x - node_width / 2 <= right;
    if (across && y + node_height >= top && y - node_height <= bottom) names.add(name);
  }
  return names;
});
