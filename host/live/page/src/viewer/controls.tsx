import type { ComponentChildren } from "preact";
import { useRef, useState } from "preact/hooks";

// Small controls that the viewer's bar is made of.

export function Toggle(props: {
  on: boolean;
  title: string;
  set: (on: boolean) => void;
  part?: string;
  kind?: string;
  children: ComponentChildren;
}) {
  return (
    <button
      type="button"
      class={props.kind ?? "quiet"}
      aria-pressed={props.on}
      aria-label={props.title}
      title={props.title}
      data-part={props.part}
      onClick={() => props.set(!props.on)}
    >
      {props.children}
    </button>
  );
}

// A typed number that is taken with Enter or when it is left, and goes back with Escape.
export function NumberField(props: {
  value: number;
  words: string;
  label: string;
  least: number;
  most: number;
  width?: number;
  part?: string;
  step?: (direction: 1 | -1) => void; // by the arrows up and down
  set: (value: number) => void;
}) {
  const [typed, set_typed] = useState<string | null>(null);
  const take = (): void => {
    const value = Number.parseFloat((typed ?? "").replace("−", "-").replace(",", "."));
    set_typed(null);
    if (Number.isFinite(value)) props.set(Math.min(props.most, Math.max(props.least, value)));
  };
  return (
    <input
      type="text"
      inputMode="decimal"
      class="number-field"
      style={{ width: `${props.width ?? 44}px` }}
      aria-label={props.label}
      title={props.label}
      data-part={props.part}
      value={typed ?? props.words}
      onFocus={(event) => event.currentTarget.select()}
      onInput={(event) => set_typed(event.currentTarget.value)}
      onBlur={() => typed !== null && take()}
      onKeyDown={(event) => {
        if (event.key === "Enter") take();
        if (event.key === "Escape") set_typed(null);
        if (props.step && (event.key === "ArrowUp" || event.key === "ArrowDown")) {
          event.preventDefault();
          set_typed(null);
          props.step(event.key === "ArrowUp" ? 1 : -1);
        }
      }}
    />
  );
}

interface Adjusted {
  name: string;
  label: string;
  value: number;
  words: string;
  initial: number;
  least: number;
  most: number;
  step: number;
  slider?: boolean;
  limits: [number, number]; // of what may be typed
  part: string;
  set: (value: number) => void;
}

const pixels_a_step = 3;

// The name of an adjusted value: dragged sideways it changes the value, pressed it sets it back.
function AdjustName(props: Adjusted) {
  const { value, initial, set } = props;
  const drag = useRef<{ x: number; value: number; moved: boolean } | null>(null);
  const hint = `${props.label}: drag to change, press for ${initial}`;
  const move = (event: PointerEvent): void => {
    const held = drag.current;
    if (!held) return;
    const steps = Math.round((event.clientX - held.x) / pixels_a_step);
    if (steps !== 0) held.moved = true;
    if (held.moved) set(tidy(held.value + steps * props.step, props));
  };
  return (
    <button
      type="button"
      class="quiet adjust-name"
      title={hint}
      aria-label={hint}
      data-changed={value !== initial || undefined}
      onPointerDown={(event) => {
        event.currentTarget.setPointerCapture(event.pointerId);
        drag.current = { x: event.clientX, value, moved: false };
      }}
      onPointerMove={move}
      onClick={() => {
        if (!drag.current?.moved) set(initial);
        drag.current = null;
      }}
    >
      {props.name}
    </button>
  );
}

function tidy(value: number, { least, most }: Adjusted): number {
  return Math.round(Math.min(most, Math.max(least, value)) * 1000) / 1000;
}

// A value that is typed, dragged by its name and, where there is room, by a slider.
export function Adjust(props: Adjusted) {
  const { value, set } = props;
  return (
    <span class="adjust">
      <AdjustName {...props} />
      {props.slider && (
        <input
          type="range"
          min={props.least}
          max={props.most}
          step={props.step}
          value={value}
          aria-label={props.label}
          data-part={`${props.part}-slider`}
          onInput={(event) => set(event.currentTarget.valueAsNumber)}
          onDblClick={() => set(props.initial)}
        />
      )}
      <NumberField
        value={value}
        words={props.words}
        label={props.label}
        least={props.limits[0]}
        most={props.limits[1]}
        part={props.part}
        step={(direction) => set(tidy(value + direction * props.step, props))}
        set={set}
      />
    </span>
  );
}
