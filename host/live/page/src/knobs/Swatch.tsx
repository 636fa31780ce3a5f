import "./swatch.css";
import { useSignal } from "@preact/signals";
import { useRef } from "preact/hooks";
import { end_drag, follow_pointer, start_drag } from "../document/drag";
import { colour_of, css_of, type Hsv, hsv_of } from "./colour";
import { NumberField } from "./NumberField";

interface Props {
  label: string;
  colour: number[];
  change: (colour: number[], merge_key: string) => void;
}

const picker = { width: 210, height: 192 }; // pixels that it takes

// The colour as a screen shows it; opens a picker, which the panel's edges do not cut.
export function Swatch({ label, colour, change }: Props) {
  const open = useSignal(false);
  const place = useRef({ left: 0, top: 0 });
  const whole = useRef<HTMLDivElement>(null);
  const leave = (event: FocusEvent) => {
    if (!whole.current?.contains(event.relatedTarget as Node | null)) open.value = false;
  };
  const key = (event: KeyboardEvent) => {
    if (event.key !== "Escape" || !open.value) return;
    open.value = false;
    whole.current?.querySelector("button")?.focus();
    event.stopPropagation();
  };
  return (
    <div class="swatch" ref={whole} onFocusOut={leave} onKeyDown={key}>
      <button
        data-swatch={label}
        aria-label={`Choose ${label}`}
        aria-expanded={open.value}
        title="Choose a colour"
        style={{ backgroundColor: css_of(colour) }}
        onClick={(event) => {
          const { left, top, bottom } = event.currentTarget.getBoundingClientRect();
          const below = bottom + 3 + picker.height <= innerHeight;
          place.current = { left: Math.min(left, innerWidth - picker.width), top: below ? bottom + 3 : top - 3 - picker.height };
          open.value = !open.value;
        }}
      />
      {open.value && (
        <div class="picker" style={{ left: `${place.current.left}px`, top: `${place.current.top}px` }}>
          <Picker label={label} colour={colour} change={change} />
        </div>
      )}
    </div>
  );
}

function Picker({ label, colour, change }: Props) {
  // Hue and saturation of black and grey are what they were before.
  const kept = useRef<Hsv>(hsv_of(colour));
  const now = hsv_of(colour);
  if (now.saturation === 0) now.hue = kept.current.hue;
  if (now.brightness === 0) now.saturation = kept.current.saturation;
  kept.current = now;
  const set = (part: Partial<Hsv>, key: string) => {
    kept.current = { ...now, ...part };
    change([...colour_of(kept.current), ...colour.slice(3)], key);
  };
  const clear = css_of(colour_of({ hue: now.hue, saturation: 1, brightness: 1, intensity: 1 }));
  return (
    <div role="dialog" aria-label={`Colour of ${label}`} tabIndex={-1}>
      <Pad
        class="field"
        style={{ background: `linear-gradient(to top, #000, transparent), linear-gradient(to right, #fff, ${clear})` }}
        at={[now.saturation, 1 - now.brightness]}
        label="Saturation and brightness"
        move={(x, y, key) => set({ saturation: x, brightness: 1 - y }, key)}
      />
      <Pad class="hue" at={[now.hue / 6, 0.5]} label="Hue" move={(x, _y, key) => set({ hue: Math.min(5.999, x * 6) }, key)} />
      <div class="intensity">
        <span>times</span>
        <NumberField
          value={now.intensity}
          step={0.01}
          label={`Intensity of ${label}`}
          id={`${label} intensity`}
          limit={(value) => Math.max(1, value)}
          change={(value, key) => set({ intensity: Math.max(1, value) }, key || `intensity ${label}`)}
        />
        <span class="dim">of white</span>
      </div>
    </div>
  );
}

interface PadProps {
  class: string;
  style?: Record<string, string>;
  at: [number, number]; // 0..1 to the right and down
  label: string;
  move: (x: number, y: number, merge_key: string) => void;
}

function Pad({ class: kind, style, at, label, move }: PadProps) {
  const inside = (value: number) => Math.min(1, Math.max(0, value));
  const grab = (event: PointerEvent) => {
    const box = (event.currentTarget as Element).getBoundingClientRect();
    const key = start_drag();
    const to = (now: PointerEvent) =>
      move(inside((now.clientX - box.left) / box.width), inside((now.clientY - box.top) / box.height), key);
    to(event);
    follow_pointer(event, (_x, _y, now) => to(now), end_drag);
  };
  const press = (event: KeyboardEvent) => {
    const step = event.shiftKey ? 0.002 : 0.02;
    const way = { ArrowLeft: [-step, 0], ArrowRight: [step, 0], ArrowUp: [0, -step], ArrowDown: [0, step] }[event.key];
    if (!way) return;
    move(inside(at[0] + (way[0] ?? 0)), inside(at[1] + (way[1] ?? 0)), `pad ${label}`);
    event.preventDefault();
    event.stopPropagation();
  };
  return (
    <div
      class={`pad ${kind}`}
      role="slider"
      tabIndex={0}
      aria-label={label}
      aria-valuenow={Math.round(at[0] * 100)}
      {...(style ? { style } : {})}
      onPointerDown={grab}
      onKeyDown={press}
    >
      <span class="spot" style={{ left: `${at[0] * 100}%`, top: `${at[1] * 100}%` }} />
    </div>
  );
}
