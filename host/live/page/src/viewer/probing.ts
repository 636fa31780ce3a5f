import { effect, signal } from "@preact/signals";
import { get } from "../net/api";
import type { FrameHeader, PixelReply, RegionReply, Value } from "../protocol";
import { compare, dragging, type Picture, picture_a, picture_b, playing, sample } from "../state";
import { Latest } from "./latest";
import { picture_value } from "./pixels";
import { pointer } from "./settings";

// What the pixels under the pointer and of the sampled rectangle are.

export interface Probed {
  x: number;
  y: number;
  value: Value[];
  exact: boolean; // the node's own floats, not the shown image's
}
export const probed_a = signal<Probed | null>(null);
export const probed_b = signal<Probed | null>(null);
export const region = signal<RegionReply | null>(null);

export function number_of(value: Value): number {
  if (typeof value === "number") return value;
  return value === "nan" ? NaN : value === "inf" ? Infinity : -Infinity;
}

export function query_of(header: FrameHeader, more: Record<string, number | string>): URLSearchParams {
  const query = new URLSearchParams({
    version: String(header.version),
    node: header.node,
    frame: String(header.frame),
  });
  for (const [name, value] of Object.entries(more)) query.set(name, String(value));
  return query;
}

interface Wanted {
  picture: Picture;
  x: number;
  y: number;
}

const playing_pause = 150; // milliseconds between two values while it plays: nobody reads faster

function prober(result: typeof probed_a): (picture: Picture | null, at: { x: number; y: number } | null) => void {
  const latest = new Latest<Wanted, PixelReply>(
    ({ picture, x, y }) => get<PixelReply>(`/pixel?${query_of(picture.header, { x, y })}`),
    ({ x, y }, reply) => {
      const now = result.peek();
      if (reply && now && now.x === x && now.y === y) result.value = { x, y, value: reply.value, exact: true };
    },
  );
  let written = 0;
  return (picture, at) => {
    latest.forget();
    const now = performance.now();
    if (playing.value !== 0 && at && now - written < playing_pause) return;
    written = now;
    if (!picture || !at) {
      result.value = null;
      return;
    }
    const x = Math.floor(at.x);
    const y = Math.floor(at.y);
    const shown = picture_value(picture, x + 0.5, y + 0.5) ?? [0, 0, 0, 0];
    result.value = { x, y, value: [...shown].map(value_of), exact: false };
    // While something moves the floats of whole frames would be in the way of the next picture.
    if (playing.value === 0 && !dragging.value) latest.want({ picture, x, y });
  };
}

function value_of(value: number): Value {
  if (Number.isFinite(value)) return value;
  return Number.isNaN(value) ? "nan" : value < 0 ? "-inf" : "inf";
}

export function follow_probe(): () => void {
  const probe_a = prober(probed_a);
  const probe_b = prober(probed_b);
  const regions = new Latest<URLSearchParams, RegionReply>(
    (query) => get<RegionReply>(`/region?${query}`),
    (_, reply) => {
      if (sample.peek()) region.value = reply;
    },
  );
  const endings = [
    effect(() => probe_a(picture_a.value, pointer.value)),
    effect(() => probe_b(compare.value.mode === "off" ? null : picture_b.value, pointer.value)),
    effect(() => {
      const box = sample.value;
      const header = picture_a.value?.header;
      if (!box || !header) {
        regions.forget();
        region.value = null;
      } else if (playing.value === 0 && !dragging.value) {
        regions.want(query_of(header, { ...box }));
      }
    }),
  ];
  return () => {
    for (const end of endings) end();
  };
}
