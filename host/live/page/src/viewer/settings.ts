import { computed, signal } from "@preact/signals";
import { channels, compare, info, picture_a, playhead, playing, shown_node } from "../state";

// What only the viewer, its bar and the scopes look at.

// Of the viewer's canvas in device pixels; `ratio` of them make a CSS pixel.
export const canvas_size = signal({ width: 0, height: 0, ratio: 1 });
export const centre = signal<{ x: number; y: number } | null>(null); // of the format's pixels, y up; null: the middle
export const marked = signal<{ x: number; y: number } | null>(null); // a pixel that was found, or is probed by keys
export const background = signal<"black" | "checker">("black"); // behind what is transparent
export const pointer = signal<{ x: number; y: number } | null>(null); // of the format's pixels, y up

// Why the picture is not shown as asked, by what is at fault; "" where nothing is.
const messages = signal({ context: "", display: "", size: "" });
export const viewer_message = computed(() => {
  const { context, display, size } = messages.value;
  return context || size || display;
});
export function say(fault: keyof typeof messages.value, words: string): void {
  if (messages.peek()[fault] !== words) messages.value = { ...messages.peek(), [fault]: words };
}

// Whether a packed image without alpha would not do.
export const needs_alpha = computed(
  () => channels.value === "a" || channels.value === "matte" || background.value === "checker",
);

export const shown_format = computed(
  () => picture_a.value?.header.format ?? info.value?.format ?? { width: 1, height: 1, pixel_aspect: 1 },
);

// The name of the shown node, also where it is the first output.
export const shown_name = computed(
  () => shown_node.value || info.value?.outputs[0] || picture_a.value?.header.node || "",
);

// Another picture than the one on the canvas is wanted.
export const waiting = computed(() => {
  const header = picture_a.value?.header;
  const document = info.value;
  if (!header || !document || playing.value !== 0) return false;
  const old = header.version < document.version || header.frame !== playhead.value;
  return old || (shown_node.value !== "" && header.node !== shown_node.value);
});

export const side_by_side = computed(() => compare.value.mode === "side");
