import { computed, signal } from "@preact/signals";
import type { DisplayReply, DocumentInfo, FrameHeader, NodeState, NodeType, Problem, RenderState } from "./protocol";

// What all parts of the page look at. Each signal is written in one place, said beside it; others read it.

// From the server (net/session).
export const info = signal<DocumentInfo | null>(null);
export const catalogue = signal<Map<string, NodeType>>(new Map());
export const displays = signal<DisplayReply>({ config: "", displays: [] });
export const node_states = signal<Map<string, NodeState>>(new Map());
export const cached_frames = signal<[number, number][]>([]);
export const memory = signal({ held: 0, budget: 0 });
export const render_state = signal<RenderState>({ state: "idle", done: 0, total: 0, message: "" });
export const disk_changed = signal(false);
export const paused = signal(false);
export const connected = signal(false);
export const notices = signal<string[]>([]);

// A frame as it came.
export interface Picture {
  header: FrameHeader;
  data: ArrayBuffer;
}
export const picture_a = signal<Picture | null>(null);
export const picture_b = signal<Picture | null>(null);
export const frame_problem = signal<Problem | null>(null); // of the newest frame that could not be drawn

// The text that a person edits, and what is wrong with it (document/document).
export const text = signal("");
export const problems = signal<Problem[]>([]);
export const dirty = signal(false); // the file does not say this yet
export const can_undo = signal(false);
export const can_redo = signal(false);
export const dragging = signal(false); // a knob or a key is in somebody's hand

// What is looked at (anybody may write).
export const shown_node = signal(""); // "": the first output
export const selected_node = signal(""); // whose knobs are open; "": none
export const edited_curve = signal<{ node: string; knob: string; component: number } | null>(null);
export const playhead = signal(1);
export const in_point = signal<number | null>(null); // null: the composition's first and last frame
export const out_point = signal<number | null>(null);
export const playing = signal<-1 | 0 | 1>(0);
export const loop_mode = signal<"loop" | "bounce" | "once">("loop");
export const asked_rate = signal(24);
export const reached_rate = signal(0); // (transport)

export type Channels = "rgb" | "r" | "g" | "b" | "a" | "luminance" | "matte";
export const channels = signal<Channels>("rgb");
export const exposure = signal(0); // stops
export const gamma = signal(1);
export const display_view = signal<{ display: string; view: string } | null>(null); // null: plain sRGB
export const show_outlines = signal(true);
export const loud = signal(false); // NaN, infinite and negative pixels in loud colours
export const zoom = signal<number | "fit">("fit"); // screen pixels a pixel of the format
export const view_scale = signal(0); // pixels of the image a pixel of the format that the viewer can show; 0: it has no size yet (viewer)
export const compare = signal<{
  mode: "off" | "wipe" | "side" | "difference";
  node: string;
  version: number; // 0: the newest
  gain: number;
  wipe: number; // 0..1 of the viewer's width
}>({ mode: "off", node: "", version: 0, gain: 1, wipe: 0.5 });
export const sample = signal<{ x0: number; y0: number; x1: number; y1: number } | null>(null); // y up

export const first_frame = computed(() => info.value?.frames[0] ?? 1);
export const last_frame = computed(() => info.value?.frames.at(-1) ?? 1);
