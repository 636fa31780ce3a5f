import type { Curve, Key } from "../document/keys";
import { selection } from "./edited";
import { to_x, to_y } from "./view";

const arm = 42; // pixels from a key to the handle of its slope

// The keys as handles, each reached by Tab; arrows move what is selected.
export function Keys({ curve }: { curve: Curve }) {
  return (
    <g class="keys-layer">
      {curve.keys.map((key, i) => (
        <Handle key={i} of={key} name={`Key ${i + 1} of ${curve.keys.length}`} />
      ))}
    </g>
  );
}

function Handle({ of, name }: { of: Key; name: string }) {
  const chosen = selection.value.has(of.frame);
  const [x, y] = [to_x(of.frame), to_y(of.value)];
  const words = `${name}: frame ${of.frame}, ${Number(of.value.toPrecision(6))}, ${of.kind}`;
  return (
    <g class={`curve-key${chosen ? " selected" : ""}`}>
      {of.kind === "slopes" && <Slope of={of} side="in" />}
      {of.kind === "slopes" && <Slope of={of} side="out" />}
      <g
        data-frame={of.frame}
        data-value={of.value}
        tabindex={0}
        role="button"
        aria-pressed={chosen}
        aria-label={words}
        transform={`translate(${x} ${y})`}
        onFocus={(event) => {
          if ((event.currentTarget as Element).matches(":focus-visible") && !selection.value.has(of.frame)) selection.value = new Set([of.frame]);
        }}
      >
        <title>{words}</title>
        <rect class="reach" x="-9" y="-9" width="18" height="18" />
        <path class="diamond" d="M0 -5L5 0L0 5L-5 0z" />
      </g>
    </g>
  );
}

function Slope({ of, side }: { of: Key; side: "in" | "out" }) {
  const slope = of[side] ?? 0;
  const sign = side === "out" ? 1 : -1;
  const [x, y] = [to_x(of.frame), to_y(of.value)];
  const [along, down] = [to_x(of.frame + 1) - x, to_y(of.value + slope) - y];
  const length = Math.hypot(along, down) || 1;
  const [end_x, end_y] = [x + (sign * along * arm) / length, y + (sign * down * arm) / length];
  return (
    <g class="slope">
      <path d={`M${x} ${y}L${end_x} ${end_y}`} />
      <circle data-slope={side} data-of={of.frame} cx={end_x} cy={end_y} r="4">
        <title>{`Slope ${side === "in" ? "before" : "after"} the key: ${slope} a frame`}</title>
      </circle>
    </g>
  );
}
