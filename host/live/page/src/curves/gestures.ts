import { signal } from "@preact/signals";
import { end_drag, follow_pointer, start_drag } from "../document/drag";
import { with_key } from "../document/keys";
import { first_frame, last_frame, playhead } from "../state";
import { edited, move_keys, round, selection, set_keys } from "./edited";
import { frames_a_pixel, gutter, pan, ruler, to_frame, to_value, to_x, to_y, values_a_pixel, zoom_about } from "./view";

export const box = signal<{ x0: number; y0: number; x1: number; y1: number } | null>(null); // being drawn, in pixels

type Place = [number, number];

function in_panel(event: MouseEvent, surface: Element): Place {
  const { left, top } = surface.getBoundingClientRect();
  return [event.clientX - left, event.clientY - top];
}

export function turn_wheel(event: WheelEvent): void {
  event.preventDefault();
  const amount = Math.max(-120, Math.min(120, event.deltaY * (event.deltaMode === 1 ? 16 : 1)));
  if (event.shiftKey) {
    pan(-amount, 0);
    return;
  }
  const factor = Math.exp(amount * 0.0025);
  const [x, y] = in_panel(event, event.currentTarget as Element);
  // Over an axis, or with Alt and Ctrl, one direction alone.
  const frames_alone = event.altKey || y <= ruler;
  const values_alone = event.ctrlKey || x < gutter;
  zoom_about(x, y, values_alone ? 1 : factor, frames_alone ? 1 : factor);
}

// As fine as a pixel is, and no finer.
export function fine(value: number, pixel: number): number {
  const step = 10 ** Math.floor(Math.log10(Math.max(pixel, 1e-9)));
  return round(step >= 1 ? Math.round(value / step) * step : Math.round(value / step) / Math.round(1 / step));
}

export function grab(event: PointerEvent): void {
  const surface = event.currentTarget as SVGSVGElement;
  const target = event.target as Element;
  const [x, y] = in_panel(event, surface);
  if (!surface.contains(document.activeElement)) surface.focus({ preventScroll: true });
  if (event.button === 1 || event.button === 2) {
    grab_view(event);
    return;
  }
  if (event.button !== 0) return;
  const slope = target.closest("[data-slope]");
  const key = target.closest("[data-frame]");
  if (slope) grab_slope(event, surface, Number(slope.getAttribute("data-of")), slope.getAttribute("data-slope") as "in" | "out");
  else if (key) grab_keys(event, Number(key.getAttribute("data-frame")));
  else if (y < ruler) grab_playhead(event, surface);
  else grab_box(event, surface, [x, y]);
}

function grab_view(event: PointerEvent): void {
  event.preventDefault();
  let last: Place = [0, 0];
  follow_pointer(event, (x, y) => {
    pan(x - last[0], y - last[1]);
    last = [x, y];
  });
}

function grab_playhead(event: PointerEvent, surface: Element): void {
  const to = (now: MouseEvent) => {
    const frame = Math.round(to_frame(in_panel(now, surface)[0]));
    playhead.value = Math.min(last_frame.value, Math.max(first_frame.value, frame));
  };
  to(event);
  follow_pointer(event, (_x, _y, now) => to(now));
}

function choose(frame: number, add: boolean): void {
  if (!add) {
    if (!selection.value.has(frame)) selection.value = new Set([frame]);
    return;
  }
  const chosen = new Set(selection.value);
  if (!chosen.delete(frame)) chosen.add(frame);
  selection.value = chosen;
}

// Whole frames, parts of them with Alt; Shift holds the direction that the hand took.
function grab_keys(event: PointerEvent, frame: number): void {
  const alone = !event.shiftKey && !event.ctrlKey && !event.metaKey;
  choose(frame, !alone);
  const keys = edited.value?.curve.keys ?? [];
  const moved = new Set(selection.value);
  const took = keys.find((each) => each.frame === frame);
  if (!took || !moved.has(frame)) return;
  const [along, across] = [frames_a_pixel(), values_a_pixel()];
  let merge = "";
  follow_pointer(
    event,
    (x, y, now) => {
      if (merge === "" && Math.hypot(x, y) < 3) return;
      merge ||= start_drag();
      const held = now.shiftKey;
      const frames = held && Math.abs(y) > Math.abs(x) ? 0 : x * along;
      const values = held && Math.abs(x) >= Math.abs(y) ? 0 : -y * across;
      const to = took.frame + frames;
      const step = now.altKey ? fine(to, along) - took.frame : frames === 0 ? 0 : Math.round(to) - took.frame;
      move_keys(keys, moved, step, values === 0 ? 0 : fine(took.value + values, across) - took.value, merge);
    },
    (kept) => {
      if (merge !== "") {
        if (!kept) {
          selection.value = moved;
          set_keys(keys, merge);
        }
        end_drag();
      } else if (alone) selection.value = new Set([frame]);
    },
  );
}

// Both slopes of a key turn together while they are one, with Alt they part.
function grab_slope(event: PointerEvent, surface: Element, frame: number, side: "in" | "out"): void {
  const keys = edited.value?.curve.keys ?? [];
  const key = keys.find((each) => each.frame === frame);
  if (!key) return;
  const one = key.in === key.out;
  const merge = start_drag();
  follow_pointer(
    event,
    (_x, _y, now) => {
      const [x, y] = in_panel(now, surface);
      const away = side === "out" ? Math.max(4, x - to_x(key.frame)) : Math.min(-4, x - to_x(key.frame));
      const exact = (to_value(y) - key.value) / (away * frames_a_pixel());
      const slope = Number(exact.toPrecision(3));
      const both = one && !now.altKey;
      const changed = { ...key, ...(both ? { in: slope, out: slope } : { [side]: slope }) };
      set_keys(keys.map((each) => (each === key ? changed : each)), merge);
    },
    (kept) => {
      if (!kept) set_keys(keys, merge);
      end_drag();
    },
  );
}

function grab_box(event: PointerEvent, surface: Element, [x0, y0]: Place): void {
  const before = event.shiftKey ? selection.value : new Set<number>();
  selection.value = before;
  follow_pointer(
    event,
    (_x, _y, now) => {
      const [x1, y1] = in_panel(now, surface);
      box.value = { x0: Math.min(x0, x1), y0: Math.min(y0, y1), x1: Math.max(x0, x1), y1: Math.max(y0, y1) };
      const { value } = box;
      const inside = edited.value?.curve.keys.filter((key) => {
        const [x, y] = [to_x(key.frame), to_y(key.value)];
        return x >= value.x0 && x <= value.x1 && y >= value.y0 && y <= value.y1;
      });
      selection.value = new Set([...before, ...(inside ?? []).map((key) => key.frame)]);
    },
    () => (box.value = null),
  );
}

// A double click on nothing adds a key there.
export function add_here(event: MouseEvent): void {
  const now = edited.value;
  const [x, y] = in_panel(event, event.currentTarget as Element);
  if (!now || y < ruler || (event.target as Element).closest("[data-frame], [data-slope]")) return;
  add_key(event.altKey ? fine(to_frame(x), frames_a_pixel()) : Math.round(to_frame(x)), fine(to_value(y), values_a_pixel()));
}

export function add_key(frame: number, value: number): void {
  const now = edited.value;
  if (!now) return;
  set_keys(with_key(now.curve, frame, value).keys);
  selection.value = new Set([frame]);
}
