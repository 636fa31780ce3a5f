import { useSignal } from "@preact/signals";
import { useRef } from "preact/hooks";
import { end_drag, follow_pointer, start_drag } from "../document/drag";
import { calculate } from "./arithmetic";

interface Props {
  value: number;
  step: number;
  label: string; // for those who do not see it
  letter?: string; // before the number
  id: string; // of the knob, so that steps of one join
  keyed?: boolean;
  dim?: boolean; // the default
  limit: (value: number) => number;
  change: (value: number, merge_key: string) => void;
  back?: () => void; // as it was before the hand came
}

export function shown(value: number): string {
  return String(Number(value.toPrecision(6)));
}

const still = 3; // pixels that a click may move

// A number that is dragged sideways, typed (with arithmetic), or moved by the arrows. Shift: finer, Ctrl: coarser.
export function NumberField({ value, step, label, letter, id, keyed, dim, limit, change }: Props) {
  const typed = useSignal<string | null>(null);
  const field = useRef<HTMLInputElement>(null);

  const drag = (event: PointerEvent) => {
    const input = field.current;
    if (event.button !== 0 || !input || document.activeElement === input) return;
    event.preventDefault();
    const start = value;
    let now = value;
    let last = 0;
    let key = "";
    follow_pointer(
      event,
      (x, _y, move) => {
        if (key === "" && Math.abs(x) < still) return;
        if (key === "") {
          key = start_drag();
          last = x;
        }
        const size = step * fineness(move);
        now += (x - last) * size;
        last = x;
        change(limit(to_step(now, size)), key);
      },
      (held) => {
        if (key !== "") {
          if (!held) change(start, key);
          end_drag();
        } else if (held) {
          input.focus();
          input.select();
        }
      },
    );
  };
  const take = () => {
    const result = typed.value === null ? null : calculate(typed.value, value);
    typed.value = null;
    if (result !== null && shown(result) !== shown(value)) change(limit(result), "");
    else if (field.current) field.current.value = shown(value);
  };
  const press = (event: KeyboardEvent) => {
    const by = event.key === "ArrowUp" ? 1 : event.key === "ArrowDown" ? -1 : 0;
    if (event.key === "Enter") {
      take();
      field.current?.select();
    } else if (event.key === "Escape") {
      typed.value = null;
      field.current?.blur();
    } else if (by !== 0) {
      const size = step * fineness(event);
      typed.value = null;
      change(limit(to_step(value + by * size, size)), `arrows ${id}`);
    } else return;
    event.preventDefault();
    event.stopPropagation();
  };
  return (
    <span class={`number${keyed ? " keyed" : ""}${dim ? " default" : ""}`} onPointerDown={drag}>
      {letter && <span class="letter">{letter}</span>}
      <input
        ref={field}
        type="text"
        inputMode="decimal"
        autocomplete="off"
        spellcheck={false}
        role="spinbutton"
        aria-label={label}
        aria-valuenow={value}
        value={typed.value ?? shown(value)}
        onInput={(event) => (typed.value = event.currentTarget.value)}
        onBlur={take}
        onKeyDown={press}
      />
    </span>
  );
}

export function fineness(event: { shiftKey: boolean; ctrlKey: boolean; metaKey: boolean }): number {
  return event.shiftKey ? 0.1 : event.ctrlKey || event.metaKey ? 10 : 1;
}

// The nearest whole number of steps, without the rounding of the division.
export function to_step(value: number, step: number): number {
  return step >= 1 ? Math.round(value / step) * step : Math.round(value / step) / Math.round(1 / step);
}
