import type { ComponentChildren } from "preact";
import { useState } from "preact/hooks";

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
      }}
    />
  );
}

// A slider with its typed value; the name is the button that sets it back.
export function Adjust(props: {
  name: string;
  label: string;
  value: number;
  words: string;
  initial: number;
  least: number;
  most: number;
  step: number;
  limits: [number, number]; // of what may be typed
  part: string;
  set: (value: number) => void;
}) {
  const { value, initial, set } = props;
  return (
    <span class="adjust">
      <button
        type="button"
        class="quiet adjust-name"
        disabled={value === initial}
        title={`${props.label}: back to ${initial}`}
        aria-label={`${props.label}: back to ${initial}`}
        data-changed={value !== initial || undefined}
        onClick={() => set(initial)}
      >
        {props.name}
      </button>
      <input
        type="range"
        min={props.least}
        max={props.most}
        step={props.step}
        value={value}
        aria-label={props.label}
        data-part={`${props.part}-slider`}
        onInput={(event) => set(event.currentTarget.valueAsNumber)}
        onDblClick={() => set(initial)}
      />
      <NumberField
        value={value}
        words={props.words}
        label={props.label}
        least={props.limits[0]}
        most={props.limits[1]}
        part={props.part}
        set={set}
      />
    </span>
  );
}
