import { useRef } from "preact/hooks";
import { end_drag, start_drag } from "../document/drag";
import { to_step } from "./NumberField";
import type { Range } from "./ranges";

interface Props {
  value: number;
  range: Range;
  label: string;
  id: string;
  change: (value: number, merge_key: string) => void;
  reset: () => void;
}

export function Slider({ value, range, label, id, change, reset }: Props) {
  const drag = useRef("");
  const held = useRef(range);
  // The range stays what it was while it is in somebody's hand.
  if (drag.current === "") held.current = range;
  const { low, high } = held.current;
  const step = held.current.step >= 1 ? held.current.step : held.current.step / 2;
  const part = Math.min(1, Math.max(0, (value - low) / (high - low)));
  const zero = Math.min(1, Math.max(0, -low / (high - low)));
  const let_go = () => {
    if (drag.current === "") return;
    drag.current = "";
    end_drag();
  };
  return (
    <input
      type="range"
      class="slider"
      aria-label={label}
      min={low}
      max={high}
      step="any"
      value={value}
      style={{ "--from": String(Math.min(part, zero)), "--to": String(Math.max(part, zero)) }}
      onPointerDown={() => {
        drag.current = start_drag();
        // It may leave the page meanwhile.
        for (const end of ["pointerup", "pointercancel"]) addEventListener(end, let_go, { once: true });
      }}
      onInput={(event) => change(to_step(event.currentTarget.valueAsNumber, step), drag.current || `slider ${id}`)}
      onKeyDown={(event) => {
        const by = { ArrowRight: 1, ArrowUp: 1, ArrowLeft: -1, ArrowDown: -1 }[event.key];
        if (!by) return;
        const size = held.current.step * (event.shiftKey ? 0.1 : event.ctrlKey ? 10 : 1);
        change(to_step(value + by * size, size), `slider ${id}`);
        event.preventDefault();
        event.stopPropagation();
      }}
      onDblClick={reset}
    />
  );
}
