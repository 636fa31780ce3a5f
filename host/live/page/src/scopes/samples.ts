import type { Box } from "../protocol";
import type { Picture } from "../state";
import { read_samples } from "../viewer/painter";
import { complete, pixel_reader } from "../viewer/pixels";

// A picture thinned out: RGBA of each sample, every `width` of them a row.
export interface Samples {
  values: Float32Array;
  width: number;
  height: number;
}

const most = { still: 320 * 180, moving: 160 * 90 };

// The part of the picture that is looked at: the sampled rectangle where it meets the picture, or all of it.
export function part_of(picture: Picture, sampled: { x0: number; y0: number; x1: number; y1: number } | null): Box {
  const [x0, y0, x1, y1] = picture.header.area;
  if (!sampled) return [x0, y0, x1, y1];
  const part: Box = [
    Math.max(x0, sampled.x0),
    Math.max(y0, sampled.y0),
    Math.min(x1, sampled.x1),
    Math.min(y1, sampled.y1),
  ];
  return part[0] < part[2] && part[1] < part[3] ? part : [x0, y0, x1, y1];
}

interface Rows {
  column: number; // the first, of the image
  row: number;
  columns: number;
  rows: number;
  width: number; // samples
  height: number;
}

function rows_of(picture: Picture, part: Box, moving: boolean): Rows {
  const { area, width, height } = picture.header;
  const across = width / (area[2] - area[0]);
  const down = height / (area[3] - area[1]);
  const column = Math.floor((part[0] - area[0]) * across);
  const row = Math.floor((area[3] - part[3]) * down);
  const columns = Math.max(1, Math.min(width - column, Math.ceil((part[2] - part[0]) * across)));
  const rows = Math.max(1, Math.min(height - row, Math.ceil((part[3] - part[1]) * down)));
  const thin = Math.min(1, Math.sqrt((moving ? most.moving : most.still) / (columns * rows)));
  return {
    column,
    row,
    columns,
    rows,
    width: Math.max(1, Math.round(columns * thin)),
    height: Math.max(1, Math.round(rows * thin)),
  };
}

// Scene-linear: as the picture came.
export function linear_samples(picture: Picture, part: Box, moving: boolean): Samples | null {
  if (!complete(picture)) return null;
  const from = rows_of(picture, part, moving);
  const { width, height } = from;
  const values = new Float32Array(width * height * 4);
  const read = pixel_reader(picture);
  let at = 0;
  for (let y = 0; y < height; ++y) {
    const row = (from.row + Math.floor(((y + 0.5) * from.rows) / height)) * picture.header.width + from.column;
    for (let x = 0; x < width; ++x, at += 4) read(row + Math.floor(((x + 0.5) * from.columns) / width), values, at);
  }
  return { values, width, height };
}

// As the screen shows it: after exposure, display and gamma.
export async function display_samples(picture: Picture, part: Box, moving: boolean): Promise<Samples | null> {
  if (!complete(picture)) return null;
  const { width, height } = rows_of(picture, part, moving);
  const octets = await read_samples(part, width, height);
  if (!octets) return null;
  const values = new Float32Array(octets.length);
  for (let index = 0; index < octets.length; ++index) values[index] = octets[index]! / 255;
  return { values, width, height };
}
