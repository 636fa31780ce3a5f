import { signal } from "@preact/signals";
import type { Samples } from "./samples";

// Counts of samples by value. A level is one of `levels` steps of the scale.
export const levels = 256;
export const waveform_columns = 320;

export type Scale = "display" | "linear";

// Scene-linear values stand on decades, so that both a shadow and a lamp are seen.
const first_decade = -3;
const decades = 5;

// 0 at the scale's start, 1 at its end.
function place_on(scale: Scale, value: number): number {
  if (scale === "display") return value;
  return value > 0 ? (Math.log10(value) - first_decade) / decades : -1;
}

function level_of(scale: Scale, value: number): number {
  const level = Math.floor(place_on(scale, value) * (levels - 1) + 0.5);
  return level < 0 ? 0 : level >= levels ? levels - 1 : level;
}

export const marks: Record<Scale, { at: number; words: string }[]> = {
  display: [0, 0.25, 0.5, 0.75, 1].map((at) => ({ at, words: `${at * 100}` })),
  linear: ["0.001", "0.01", "0.1", "1", "10", "100"].map((words, index) => ({ at: index / decades, words })),
};

export interface Counts {
  scale: Scale;
  samples: number;
  bad: number; // NaN and infinite ones, which are counted nowhere else
  histogram: Uint32Array; // red, green, blue, luminance: `levels` each
  waveform: Uint16Array; // the same four, `waveform_columns` a level, the highest level first
  vectors: Uint16Array; // levels × levels, Cr from the top down, Cb to the right
}

const channels = 4;

// Cb and Cr of Rec. 709, -0.5 to 0.5 for what a screen can show.
export function chroma_of(r: number, g: number, b: number): { cb: number; cr: number } {
  const y = 0.2126 * r + 0.7152 * g + 0.0722 * b;
  return { cb: (b - y) / 1.8556, cr: (r - y) / 1.5748 };
}

// Vectors a little beyond the range stay on the scope.
export const vector_span = 1.15;

export const vector_gain = signal(1); // how much closer the middle is looked at

export function vector_place(chroma: number): number {
  return 0.5 + (chroma * vector_gain.value) / vector_span;
}

export function count(samples: Samples, scale: Scale): Counts {
  const histogram = new Uint32Array(channels * levels);
  const waveform = new Uint16Array(channels * levels * waveform_columns);
  const vectors = new Uint16Array(levels * levels);
  const { values, width, height } = samples;
  const spot = new Float64Array(channels);
  const zoom = vector_gain.value / vector_span;
  let bad = 0;
  for (let pixel = 0; pixel < width * height; ++pixel) {
    const r = values[pixel * 4]!;
    const g = values[pixel * 4 + 1]!;
    const b = values[pixel * 4 + 2]!;
    if (!Number.isFinite(r + g + b)) {
      ++bad;
      continue;
    }
    spot[0] = r;
    spot[1] = g;
    spot[2] = b;
    spot[3] = 0.2126 * r + 0.7152 * g + 0.0722 * b;
    const column = Math.floor(((pixel % width) * waveform_columns) / width);
    for (let each = 0; each < channels; ++each) {
      const level = level_of(scale, spot[each]!);
      histogram[each * levels + level]! += 1;
      waveform[(each * levels + levels - 1 - level) * waveform_columns + column]! += 1;
    }
    const { cb, cr } = chroma_of(r, g, b);
    const x = Math.floor((0.5 + cb * zoom) * levels);
    const y = Math.floor((0.5 - cr * zoom) * levels);
    if (x >= 0 && x < levels && y >= 0 && y < levels) vectors[y * levels + x]! += 1;
  }
  spread(waveform, width);
  return { scale, samples: width * height, bad, histogram, waveform, vectors };
}

// Where there are fewer samples in a row than columns, those between are filled from the left.
function spread(waveform: Uint16Array, width: number): void {
  if (width >= waveform_columns) return;
  const sources = Array.from({ length: waveform_columns }, (_, column) => {
    const sample = Math.ceil(((column + 1) * width) / waveform_columns) - 1;
    return Math.floor((sample * waveform_columns) / width);
  });
  for (let start = 0; start < waveform.length; start += waveform_columns) {
    for (let column = waveform_columns - 1; column > 0; --column) {
      waveform[start + column] = waveform[start + sources[column]!]!;
    }
  }
}
