// Where the format's pixels (y up) stand on the canvas (device pixels, y down).

export interface Format {
  width: number;
  height: number;
  pixel_aspect: number;
}

export interface Size {
  width: number;
  height: number;
  ratio: number;
}

export interface View {
  left: number; // the format's x at the canvas's left edge
  top: number; // the format's y at its top edge
  across: number; // device pixels a pixel of the format in x
  down: number; // and in y
  panel: number; // width of one picture in device pixels: half of the canvas side by side
}

export interface Point {
  x: number;
  y: number;
}

export const least_zoom = 1 / 64;
export const largest_zoom = 512;
const margin = 10; // CSS pixels around a fitted picture
const scales = [1 / 8, 1 / 4, 3 / 8, 1 / 2, 3 / 4, 1]; // few, so that cached frames are used again

function fitting_zoom(format: Format, size: Size, side: boolean): number {
  const panel = side ? size.width / 2 : size.width;
  const room = (length: number): number => Math.max(1, length - 2 * margin * size.ratio);
  const across = room(panel) / (format.width * format.pixel_aspect);
  return Math.max(1e-3, Math.min(across, room(size.height) / format.height));
}

export function view_of(
  format: Format,
  size: Size,
  zoom: number | "fit",
  centre: Point | null,
  side: boolean,
): View {
  const down = zoom === "fit" ? fitting_zoom(format, size, side) : zoom;
  const across = down * format.pixel_aspect;
  const panel = side ? size.width / 2 : size.width;
  const middle = (zoom === "fit" ? null : centre) ?? { x: format.width / 2, y: format.height / 2 };
  // Whole device pixels, so that the edges of enlarged pixels stand between those of the screen.
  const left = Math.round(middle.x * across - panel / 2) / across;
  const top = Math.round(middle.y * down + size.height / 2) / down;
  return { left, top, across, down, panel };
}

export function to_canvas(view: View, x: number, y: number): Point {
  return { x: (x - view.left) * view.across, y: (view.top - y) * view.down };
}

export function to_format(view: View, x: number, y: number): Point {
  const inside = x >= view.panel ? x - view.panel : x; // the second picture of two
  return { x: view.left + inside / view.across, y: view.top - y / view.down };
}

// The centre at which `point` of the format stands at x, y of the canvas.
export function centre_for(view: View, size: Size, zoom: number, aspect: number, point: Point, x: number, y: number): Point {
  const inside = x >= view.panel ? x - view.panel : x;
  return {
    x: point.x - (inside - view.panel / 2) / (zoom * aspect),
    y: point.y + (y - size.height / 2) / zoom,
  };
}

// How many pixels of an image a pixel of the format the canvas can show, rounded up to a few steps.
export function useful_scale(view: View): number {
  const most = Math.max(view.across, view.down) - 1e-3;
  return scales.find((each) => each >= most) ?? 1;
}
