import { first_frame, last_frame, playhead } from "../state";
import { gutter, ruler, size, ticks, to_x, to_y, view } from "./view";

// Lines and numbers behind the curve; outside the composition's frames the ground is darker.
export function Axes() {
  const { width, height } = size.value;
  const { left, right, low, high } = view.value;
  const frames = ticks(left, right, width - gutter, 60, 1);
  const values = ticks(low, high, height - ruler, 28);
  const from = Math.max(gutter, to_x(first_frame.value));
  const to = Math.max(from, Math.min(width, to_x(last_frame.value)));
  return (
    <g class="axes" aria-hidden="true">
      <rect class="inside" x={from} y={ruler} width={to - from} height={Math.max(0, height - ruler)} />
      {frames.map((frame) => {
        const x = to_x(frame);
        return (
          x >= gutter && (
            <g key={frame}>
              <path d={`M${x} ${ruler}V${height}`} />
              <text x={x} y={12} text-anchor="middle">
                {frame}
              </text>
            </g>
          )
        );
      })}
      {values.map((value) => {
        const y = to_y(value);
        return (
          <g key={value}>
            <path class={value === 0 ? "zero" : ""} d={`M${gutter} ${y}H${width}`} />
            {y > ruler + 6 && y < height - 3 && (
              <text x={gutter - 5} y={y + 3.5} text-anchor="end">
                {value}
              </text>
            )}
          </g>
        );
      })}
      <path class="edge-line" d={`M${gutter} ${height}V${ruler}H${width}`} />
    </g>
  );
}

// A layer of its own, so that play moves it without drawing the curve again.
export function Playhead() {
  const x = to_x(playhead.value);
  return <div class="curve-playhead" aria-hidden="true" hidden={x < gutter} style={{ transform: `translateX(${x}px)` }} />;
}
