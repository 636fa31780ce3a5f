import { computed } from "@preact/signals";
import { compare, exposure, type Picture, picture_a, picture_b, sample, show_outlines } from "../state";
import { to_canvas } from "./geometry";
import { draw_pixels, values_show } from "./overlay_pixels";
import { complete } from "./pixels";
import { scene, view } from "./scene";
import { canvas_size, marked, shown_format } from "./settings";

// What stands over the picture on a canvas of its own: outlines, the sampled rectangle, and far in the grid and
// the values of the pixels.

const line_colour = "rgba(255, 255, 255, 0.55)";
const window_colour = "rgba(255, 170, 60, 0.9)";
const shadow_colour = "rgba(0, 0, 0, 0.55)";

let pictures = 0;
const numbers = new WeakMap<Picture, number>();
function number_of(picture: Picture | null): number {
  if (!picture) return 0;
  if (!numbers.has(picture)) numbers.set(picture, ++pictures);
  return numbers.get(picture) ?? 0;
}

// Changes when the overlay has to be drawn again; a new picture alone only where its values are written out.
export const overlay_key = computed(() => {
  const { mode, wipe } = compare.value;
  const a = picture_a.value;
  const b = mode === "off" ? null : picture_b.value;
  const values = a && values_show(a) ? [number_of(a), number_of(b), exposure.value, wipe] : [];
  const boxes = [a?.header.window, b?.header.window, shown_format.value, a && [a.header.area, a.header.width]];
  return JSON.stringify([view.value, canvas_size.value, mode, sample.value, marked.value, show_outlines.value, boxes, values]);
});

export function draw_overlay(context: CanvasRenderingContext2D): void {
  const { width, height } = canvas_size.value;
  const { mode, wipe } = scene.value;
  context.clearRect(0, 0, width, height);
  const a = picture_a.value;
  const b = mode === "off" ? null : picture_b.value;
  const panel = view.value.panel;
  if (mode === "side") {
    draw_part(context, a, 0, 0, panel);
    draw_part(context, b, panel, panel, panel);
  } else if (mode === "wipe") {
    draw_part(context, a, 0, 0, wipe * width);
    draw_part(context, b, 0, wipe * width, width - wipe * width);
  } else {
    draw_part(context, a, 0, 0, width);
  }
}

// What stands over one picture, whose canvas begins at `shift`, held to a part of the canvas.
function draw_part(context: CanvasRenderingContext2D, picture: Picture | null, shift: number, left: number, wide: number): void {
  context.save();
  context.beginPath();
  context.rect(left, 0, wide, canvas_size.value.height);
  context.clip();
  context.translate(shift, 0);
  if (picture && complete(picture)) draw_pixels(context, picture);
  if (show_outlines.value) draw_outlines(context, picture);
  draw_sample(context);
  context.restore();
}

type Corners = [number, number, number, number]; // of the format, y up

function stroke_box(context: CanvasRenderingContext2D, box: Corners, colour: string, dash: number[]): void {
  const { ratio } = canvas_size.value;
  const first = to_canvas(view.value, box[0], box[3]);
  const second = to_canvas(view.value, box[2], box[1]);
  const thick = Math.max(1, Math.round(ratio));
  const edge = thick / 2; // outside of the pixels that it goes around
  const x = Math.round(first.x) - edge;
  const y = Math.round(first.y) - edge;
  const wide = Math.round(second.x) + edge - x;
  const high = Math.round(second.y) + edge - y;
  context.lineWidth = thick;
  context.setLineDash([]);
  context.strokeStyle = shadow_colour;
  context.strokeRect(x, y, wide, high);
  context.setLineDash(dash.map((each) => each * ratio));
  context.strokeStyle = colour;
  context.strokeRect(x, y, wide, high);
}

function label(context: CanvasRenderingContext2D, words: string, x: number, y: number, colour: string): void {
  const { ratio } = canvas_size.value;
  context.font = `${11 * ratio}px system-ui, sans-serif`;
  context.textAlign = "right";
  context.textBaseline = "top";
  context.fillStyle = shadow_colour;
  context.fillText(words, x + ratio, y + ratio);
  context.fillStyle = colour;
  context.fillText(words, x, y);
}

function draw_outlines(context: CanvasRenderingContext2D, picture: Picture | null): void {
  const { ratio } = canvas_size.value;
  const format = shown_format.value;
  const whole: Corners = [0, 0, format.width, format.height];
  stroke_box(context, whole, line_colour, []);
  const window = picture?.header.window;
  if (!window || window.every((each, index) => each === whole[index])) return;
  if (window[2] <= window[0] || window[3] <= window[1]) return;
  stroke_box(context, window, window_colour, [5, 4]);
  const words = `${window[2] - window[0]}×${window[3] - window[1]} at ${window[0]}, ${window[1]}`;
  const end = to_canvas(view.value, window[2], window[1]);
  const beyond = end.y + 20 * ratio > canvas_size.value.height; // then it stands inside
  label(context, words, end.x - 4 * ratio, end.y + (beyond ? -16 : 4) * ratio, window_colour);
}

// A pixel too small to be seen has a larger frame.
function draw_marked(context: CanvasRenderingContext2D, x: number, y: number): void {
  const { across, down } = view.value;
  const least = 7 * canvas_size.value.ratio;
  const wide = Math.max(0, least / across - 1) / 2;
  const high = Math.max(0, least / down - 1) / 2;
  stroke_box(context, [x - wide, y - high, x + 1 + wide, y + 1 + high], "rgb(255, 255, 255)", []);
}

function draw_sample(context: CanvasRenderingContext2D): void {
  const box = sample.value;
  const spot = marked.value;
  if (spot) draw_marked(context, spot.x, spot.y);
  if (box) stroke_box(context, [box.x0, box.y0, box.x1, box.y1], "rgb(120, 220, 255)", [3, 3]);
}
