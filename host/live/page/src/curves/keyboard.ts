import { fineness } from "../knobs/NumberField";
import { range_of } from "../knobs/ranges";
import { edited, move_keys, remove_keys, selection } from "./edited";
import { frame_all } from "./view";

// Arrows move the selected keys: a frame (Shift: a tenth, Ctrl: ten), a step of the knob up and down. Enter goes to their
// numbers: by Tab the way there leads over other keys, which would be selected.
export function press(event: KeyboardEvent): void {
  const now = edited.value;
  if (!now) return;
  const { curve, spec, component } = now;
  const size = fineness(event);
  const step = range_of(spec, component, curve.keys[0]?.value ?? 0).step * size;
  const ways: Record<string, [number, number]> = {
    ArrowLeft: [-size, 0],
    ArrowRight: [size, 0],
    ArrowUp: [0, step],
    ArrowDown: [0, -step],
  };
  const way = ways[event.key];
  if (way) {
    if (selection.value.size === 0) return;
    nudge(way[0], way[1]);
  } else if (event.key === "Enter" && selection.value.size > 0) go_to_numbers(event.currentTarget as Element);
  else if (event.key === "Delete" || event.key === "Backspace") remove_keys(selection.value);
  else if (event.key === "a" && (event.ctrlKey || event.metaKey)) selection.value = new Set(curve.keys.map((key) => key.frame));
  else if (event.key === "f" && !event.ctrlKey && !event.metaKey) frame_all(curve, []);
  else if (event.key === "Escape" && selection.value.size > 0) selection.value = new Set();
  else return;
  event.preventDefault();
  event.stopPropagation();
}

function go_to_numbers(surface: Element): void {
  const number = surface.parentElement?.querySelector<HTMLInputElement>(".curve-bar [role=spinbutton]");
  number?.focus();
  number?.select();
}

// Not onto another key, which would be gone.
function nudge(frames: number, values: number): void {
  const keys = edited.value?.curve.keys ?? [];
  const moved = selection.value;
  const taken = new Set(keys.filter((key) => !moved.has(key.frame)).map((key) => key.frame));
  const order = (list: number[]) => list.every((frame, i) => i === 0 || frame > (list[i - 1] ?? frame));
  const after = keys.map((key) => (moved.has(key.frame) ? key.frame + frames : key.frame));
  if (frames !== 0 && (after.some((frame, i) => moved.has(keys[i]?.frame ?? 0) && taken.has(frame)) || !order(after))) return;
  move_keys(keys, moved, frames, values, "nudge keys");
}
