import type { Signal } from "@preact/signals";

interface Props {
  size: Signal<number>;
  grows: "left" | "up" | "down"; // which way the thing whose size this is gets larger
  least: number;
  most: number;
  label: string;
}

// A line between two parts of the page that is dragged, or moved by the arrows.
export function Splitter({ size, grows, least, most, label }: Props) {
  const upright = grows === "left";
  const sign = grows === "down" ? 1 : -1;
  const set = (value: number) => (size.value = Math.round(Math.min(most, Math.max(least, value))));

  const grab = (event: PointerEvent) => {
    const line = event.currentTarget as HTMLElement;
    const from = upright ? event.clientX : event.clientY;
    const start = size.value;
    line.setPointerCapture(event.pointerId);
    line.onpointermove = (move) => set(start + sign * ((upright ? move.clientX : move.clientY) - from));
    line.onlostpointercapture = () => (line.onpointermove = null);
    event.preventDefault();
  };
  const key = (event: KeyboardEvent) => {
    const [less, more] = upright ? ["ArrowRight", "ArrowLeft"] : sign < 0 ? ["ArrowDown", "ArrowUp"] : ["ArrowUp", "ArrowDown"];
    if (event.key !== less && event.key !== more) return;
    set(size.value + (event.key === more ? 1 : -1) * (event.shiftKey ? 64 : 16));
    event.preventDefault();
    event.stopPropagation();
  };
  return (
    <div
      class="splitter"
      role="separator"
      tabIndex={0}
      aria-label={label}
      aria-orientation={upright ? "vertical" : "horizontal"}
      aria-valuenow={size.value}
      aria-valuemin={least}
      aria-valuemax={most}
      onPointerDown={grab}
      onKeyDown={key}
    />
  );
}
