import { signal } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { type Counts, levels, marks, waveform_columns } from "./counts";

const waveform_kind = signal<"overlay" | "parade" | "luminance">("overlay");

const kinds = [
  { kind: "overlay", name: "RGB" },
  { kind: "parade", name: "Parade" },
  { kind: "luminance", name: "Y" },
] as const;

// How bright a spot is for its count: a few samples are seen, many do not burn out. Counts are those of the level
// twice and of its neighbours, so that the steps of 8 bits do not show as a comb.
function glow_table(counts: Counts): Uint8Array {
  const usual = Math.max(0.2, counts.samples / waveform_columns / 60);
  return Uint8Array.from({ length: 4096 }, (_, count) =>
    count === 0 ? 0 : 255 * (1 - Math.exp(-0.12 - (0.75 * count) / (4 * usual))),
  );
}

function smooth(waveform: Uint16Array, at: number, row: number): number {
  const above = row > 0 ? waveform[at - waveform_columns]! : 0;
  const below = row < levels - 1 ? waveform[at + waveform_columns]! : 0;
  return Math.min(4095, 2 * waveform[at]! + above + below);
}

function paint(context: CanvasRenderingContext2D, counts: Counts): void {
  const image = context.createImageData(waveform_columns, levels);
  const table = glow_table(counts);
  const kind = waveform_kind.value;
  const channel_size = levels * waveform_columns;
  for (let row = 0; row < levels; ++row) {
    for (let column = 0; column < waveform_columns; ++column) {
      const to = (row * waveform_columns + column) * 4;
      for (let channel = 0; channel < 3; ++channel) {
        const from = source(kind, row, column, channel, channel_size);
        image.data[to + channel] = from < 0 ? 0 : table[smooth(counts.waveform, from, row)]!;
      }
      image.data[to + 3] = 255;
    }
  }
  if (kind !== "luminance") soften(image.data);
  context.putImageData(image, 0, 0);
}

// Where the count that lights a channel of a spot stands; -1: it stays dark.
function source(kind: typeof waveform_kind.value, row: number, column: number, channel: number, size: number): number {
  if (kind === "overlay") return channel * size + row * waveform_columns + column;
  if (kind === "luminance") return 3 * size + row * waveform_columns + column;
  const third = Math.floor((column * 3) / waveform_columns);
  if (third !== channel) return -1;
  const inside = Math.min(waveform_columns - 1, Math.floor((column - (third * waveform_columns) / 3) * 3));
  return channel * size + row * waveform_columns + inside;
}

// Pure red and blue are hard to see on black: a little of each goes to the others.
function soften(data: Uint8ClampedArray): void {
  for (let at = 0; at < data.length; at += 4) {
    const r = data[at]!;
    const g = data[at + 1]!;
    const b = data[at + 2]!;
    const grey = 0.22 * Math.max(r, g, b);
    data[at] = Math.max(r, grey);
    data[at + 1] = Math.max(g, grey, 0.42 * b);
    data[at + 2] = Math.max(b, grey);
  }
}

// Which values stand at which place across the picture.
export function Waveform({ counts }: { counts: Counts }) {
  const canvas = useRef<HTMLCanvasElement>(null);
  const kind = waveform_kind.value;
  useEffect(() => {
    const context = canvas.current?.getContext("2d");
    if (context) paint(context, counts);
  }, [counts, kind]);
  return (
    <figure class="scope" data-part="waveform">
      <figcaption>
        <span>Waveform</span>
        <span class="scope-choice" role="group" aria-label="Waveform of">
          {kinds.map((each) => (
            <button key={each.kind} type="button" class="quiet" aria-pressed={kind === each.kind} onClick={() => (waveform_kind.value = each.kind)}>
              {each.name}
            </button>
          ))}
        </span>
      </figcaption>
      <div class="scope-rows">
        <div class="scope-levels">
          {marks[counts.scale].map((mark) => (
            <span key={mark.words} style={{ bottom: `${mark.at * 100}%` }}>
              {mark.words}
            </span>
          ))}
        </div>
        <div class="scope-field">
          <canvas ref={canvas} class="scope-fill" width={waveform_columns} height={levels} role="img" aria-label="Waveform" />
          {marks[counts.scale].map((mark) => (
            <i key={mark.words} class="scope-level" style={{ bottom: `${mark.at * 100}%` }} />
          ))}
        </div>
      </div>
    </figure>
  );
}
