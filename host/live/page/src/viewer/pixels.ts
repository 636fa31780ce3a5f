import type { FrameHeader, Pixels } from "../protocol";
import type { Picture } from "../state";
import { float10_table, float11_table, half_table } from "./half";

const octets: Record<Pixels, number> = { rgba16f: 8, r11g11b10f: 4, rgba8: 4 };

// Whether the pixels that the header speaks of are there.
export function complete(picture: Picture): boolean {
  const { width, height, pixels } = picture.header;
  return width > 0 && height > 0 && picture.data.byteLength >= width * height * octets[pixels];
}

// Puts the four floats of a pixel (by its place in the rows) into `to` at `at`.
export type PixelReader = (pixel: number, to: Float32Array, at: number) => void;

export function pixel_reader(picture: Picture): PixelReader {
  switch (picture.header.pixels) {
    case "rgba16f":
      return half_reader(new Uint16Array(picture.data));
    case "r11g11b10f":
      return packed_reader(new Uint32Array(picture.data));
    case "rgba8":
      return octet_reader(new Uint8Array(picture.data));
  }
}

function half_reader(data: Uint16Array): PixelReader {
  const halves = half_table();
  return (pixel, to, at) => {
    for (let each = 0; each < 4; ++each) to[at + each] = halves[data[pixel * 4 + each]!]!;
  };
}

function packed_reader(data: Uint32Array): PixelReader {
  return (pixel, to, at) => {
    const bits = data[pixel]!;
    to[at] = float11_table[bits & 0x7ff]!;
    to[at + 1] = float11_table[(bits >>> 11) & 0x7ff]!;
    to[at + 2] = float10_table[bits >>> 22]!;
    to[at + 3] = 1;
  };
}

function octet_reader(data: Uint8Array): PixelReader {
  return (pixel, to, at) => {
    for (let each = 0; each < 4; ++each) to[at + each] = data[pixel * 4 + each]! / 255;
  };
}

// Which column and row (from the top) of the image a point of the format lies in; null outside.
function place_in(header: FrameHeader, x: number, y: number): { column: number; row: number } | null {
  const [x0, y0, x1, y1] = header.area;
  if (!(x >= x0 && x < x1 && y >= y0 && y < y1)) return null;
  const column = Math.floor(((x - x0) * header.width) / (x1 - x0));
  const row = Math.ceil(((y1 - y) * header.height) / (y1 - y0)) - 1;
  return {
    column: Math.min(header.width - 1, Math.max(0, column)),
    row: Math.min(header.height - 1, Math.max(0, row)),
  };
}

// The floats that stand in the picture at a point of the format; null outside.
export function picture_value(picture: Picture, x: number, y: number): Float32Array | null {
  const place = complete(picture) ? place_in(picture.header, x, y) : null;
  if (!place) return null;
  const value = new Float32Array(4);
  pixel_reader(picture)(place.row * picture.header.width + place.column, value, 0);
  return value;
}
