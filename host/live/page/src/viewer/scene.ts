import { computed } from "@preact/signals";
import { channels, compare, exposure, gamma, loud, picture_a, picture_b, playing, zoom } from "../state";
import { view_of } from "./geometry";
import type { Scene } from "./gl/renderer";
import { background, canvas_size, centre, shown_format, side_by_side } from "./settings";

export const view = computed(() =>
  view_of(shown_format.value, canvas_size.value, zoom.value, centre.value, side_by_side.value),
);

// All that the canvas shows, but for the surround's colour.
export const scene = computed(
  (): Omit<Scene, "surround"> => ({
    a: picture_a.value,
    b: compare.value.mode === "off" ? null : picture_b.value,
    view: view.value,
    size: canvas_size.value,
    mode: compare.value.mode,
    wipe: compare.value.wipe,
    gain: compare.value.gain,
    exposure: exposure.value,
    gamma: gamma.value,
    channels: channels.value,
    checker: background.value === "checker",
    loud: loud.value,
    dither: true,
    quick: playing.value !== 0,
  }),
);
