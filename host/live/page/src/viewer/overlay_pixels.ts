import { exposure, type Picture } from "../state";
import { luminance_of } from "./colour";
import { type Point, to_canvas, type View } from "./geometry";
import { long_value, short_value } from "./numbers";
import { pixel_reader } from "./pixels";
import { view } from "./scene";
import { canvas_size } from "./settings";

// Far in: the grid between the pixels and the values that stand on them.

const values_from = 64; // CSS pixels of an image pixel from which its values are written on it
const grid_from = 12; // and from which its edges are drawn

interface CellSize {
  across: number;
  down: number;
}

interface Cells {
  x0: number;
  x1: number;
  y0: number;
  y1: number;
}

// CSS pixels of a pixel of the picture.
function cell_of(picture: Picture): CellSize {
  const { area, width, height } = picture.header;
  const { ratio } = canvas_size.value;
  return {
    across: (view.value.across * (area[2] - area[0])) / width / ratio,
    down: (view.value.down * (area[3] - area[1])) / height / ratio,
  };
}

function far_in(picture: Picture, least: number): boolean {
  const cell = cell_of(picture);
  return Math.min(cell.across, cell.down) >= least;
}

export function values_show(picture: Picture): boolean {
  return far_in(picture, values_from);
}

// Columns and rows of the picture that the canvas shows.
function visible(picture: Picture, shown: View): Cells {
  const { area, width, height } = picture.header;
  const cell = cell_of(picture);
  const { ratio } = canvas_size.value;
  const origin = to_canvas(shown, area[0], area[3]);
  const first = (from: number, size: number): number => Math.max(0, Math.floor(-from / (size * ratio)));
  const end = (from: number, size: number, room: number, most: number): number =>
    Math.min(most, Math.ceil((room - from) / (size * ratio)));
  return {
    x0: first(origin.x, cell.across),
    x1: end(origin.x, cell.across, shown.panel, width),
    y0: first(origin.y, cell.down),
    y1: end(origin.y, cell.down, canvas_size.value.height, height),
  };
}

export function draw_pixels(context: CanvasRenderingContext2D, picture: Picture): void {
  if (!far_in(picture, grid_from)) return;
  const shown = visible(picture, view.value);
  if (shown.x1 <= shown.x0 || shown.y1 <= shown.y0) return;
  const { ratio } = canvas_size.value;
  const cell = cell_of(picture);
  const size = { across: cell.across * ratio, down: cell.down * ratio };
  const [x0, , , y1] = picture.header.area;
  const origin = to_canvas(view.value, x0, y1);
  draw_grid(context, shown, origin, size, Math.min(1, (Math.min(cell.across, cell.down) - grid_from) / 20));
  if (values_show(picture)) draw_values(context, picture, shown, origin, size);
}

function draw_grid(context: CanvasRenderingContext2D, shown: Cells, origin: Point, size: CellSize, strength: number): void {
  const at = (from: number, index: number, step: number): number => Math.round(from + index * step) + 0.5;
  context.beginPath();
  for (let x = shown.x0; x <= shown.x1; ++x) {
    context.moveTo(at(origin.x, x, size.across), origin.y + shown.y0 * size.down);
    context.lineTo(at(origin.x, x, size.across), origin.y + shown.y1 * size.down);
  }
  for (let y = shown.y0; y <= shown.y1; ++y) {
    context.moveTo(origin.x + shown.x0 * size.across, at(origin.y, y, size.down));
    context.lineTo(origin.x + shown.x1 * size.across, at(origin.y, y, size.down));
  }
  context.setLineDash([]);
  context.lineWidth = 1;
  context.strokeStyle = `rgba(128, 128, 128, ${0.15 + 0.3 * strength})`;
  context.stroke();
}

function draw_values(context: CanvasRenderingContext2D, picture: Picture, shown: Cells, origin: Point, size: CellSize): void {
  const least = Math.min(size.across, size.down);
  const line = Math.min(least / 5, 15 * canvas_size.value.ratio);
  const lines = picture.header.pixels === "r11g11b10f" ? 3 : 4;
  context.font = `${line * 0.92}px ui-monospace, "DejaVu Sans Mono", monospace`;
  context.textAlign = "center";
  context.textBaseline = "middle";
  const value = new Float32Array(4);
  const read = pixel_reader(picture);
  // As many places as there is room for.
  const words = size.across > line * 5 ? long_value : short_value;
  const bright = 0.22 / 2 ** exposure.value; // of a luminance that black letters suit better
  for (let y = shown.y0; y < shown.y1; ++y) {
    for (let x = shown.x0; x < shown.x1; ++x) {
      read(y * picture.header.width + x, value, 0);
      const luminance = luminance_of(value[0]!, value[1]!, value[2]!);
      context.fillStyle = luminance > bright ? "rgba(0, 0, 0, 0.88)" : "rgba(255, 255, 255, 0.88)";
      const middle = { x: origin.x + (x + 0.5) * size.across, y: origin.y + (y + 0.5) * size.down };
      for (let each = 0; each < lines; ++each) {
        context.fillText(words(value[each]!), middle.x, middle.y + (each - (lines - 1) / 2) * line);
      }
    }
  }
}
