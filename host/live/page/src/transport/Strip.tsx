import { useEffect, useMemo, useRef, useState } from "preact/hooks";
import { scrubbing } from "../net/wishes";
import * as state from "../state";
import { key_frames } from "./keyed";
import { nearest } from "./range";

const height = 40;
const steps = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000];

// The frames of the composition as a line: in memory, within the points, with keys, and the playhead.
export function Strip() {
  const element = useRef<HTMLDivElement>(null);
  const [width, set_width] = useState(800);
  useEffect(() => {
    if (!element.current) return undefined;
    const watch = new ResizeObserver((entries) => set_width(entries[0]?.contentRect.width ?? 800));
    watch.observe(element.current);
    return () => watch.disconnect();
  }, []);

  const first = state.first_frame.value;
  const last = state.last_frame.value;
  const across = width / (last - first + 1);
  // What stands still while it plays is drawn once.
  const line = useMemo(() => <Line width={width} />, [width]);

  const seek = (event: PointerEvent) => {
    const box = element.current?.getBoundingClientRect();
    if (!box) return;
    const frame = first + Math.floor((event.clientX - box.left) / across);
    state.playhead.value = nearest(Math.min(last, Math.max(first, frame)), state.info.value?.frames ?? []);
  };
  const grab = (event: PointerEvent) => {
    if (event.button !== 0) return;
    element.current?.setPointerCapture(event.pointerId);
    scrubbing.value = true;
    seek(event);
  };
  return (
    <div
      ref={element}
      class="strip"
      role="slider"
      tabIndex={0}
      aria-label="Playhead"
      aria-valuemin={first}
      aria-valuemax={last}
      aria-valuenow={state.playhead.value}
      aria-valuetext={`Frame ${state.playhead.value}`}
      onPointerDown={grab}
      onPointerMove={(event) => scrubbing.value && seek(event)}
      onLostPointerCapture={() => (scrubbing.value = false)}
    >
      {line}
      <Playhead frame={state.playhead.value} x={(state.playhead.value - first) * across} across={across} width={width} />
    </div>
  );
}

function Line({ width }: { width: number }) {
  const first = state.first_frame.value;
  const last = state.last_frame.value;
  const across = width / (last - first + 1);
  const left = (frame: number) => (frame - first) * across;
  return (
    <svg width={width} height={height} aria-hidden="true">
      <Ticks first={first} last={last} across={across} />
      {state.cached_frames.value.map(([from, to]) => (
        <rect key={from} class="strip-cached" x={left(from)} y={21} width={(to - from + 1) * across} height={4} />
      ))}
      <Points width={width} across={across} left={left} />
      {key_frames.value.map((frame) => {
        const x = left(frame) + across / 2;
        return <path key={frame} class="strip-key" d={`M${x} 28l4 4-4 4-4-4z`} />;
      })}
    </svg>
  );
}

function Ticks({ first, last, across }: { first: number; last: number; across: number }) {
  const digits = Math.max(String(first).length, String(last).length);
  const every = steps.find((each) => each * across >= digits * 7 + 14) ?? 20000;
  const marks = [];
  for (let frame = Math.ceil(first / every) * every; frame <= last; frame += every) marks.push(frame);
  if (marks[0] !== first && ((marks[0] ?? last) - first) * across > digits * 7 + 14) marks.unshift(first);
  const each = across >= 5 ? Array.from({ length: last - first + 1 }, (_, at) => first + at) : [];
  return (
    <g>
      {each.map((frame) => (
        <rect key={frame} class="strip-frame" x={(frame - first) * across} y={18} width={1} height={9} />
      ))}
      {marks.map((frame) => (
        <text key={frame} class="strip-label" x={(frame - first + 0.5) * across} y={13} text-anchor="middle">
          {frame}
        </text>
      ))}
    </g>
  );
}

function Points({ width, across, left }: { width: number; across: number; left: (frame: number) => number }) {
  const from = state.in_point.value;
  const to = state.out_point.value;
  return (
    <g class="strip-points">
      {from !== null && (
        <>
          <rect class="strip-outside" x={0} y={0} width={Math.max(0, left(from))} height={height} />
          <path d={`M${left(from) + 5} 18h-4v12h4`} />
        </>
      )}
      {to !== null && (
        <>
          <rect class="strip-outside" x={left(to) + across} y={0} width={Math.max(0, width - left(to) - across)} height={height} />
          <path d={`M${left(to) + across - 5} 18h4v12h-4`} />
        </>
      )}
    </g>
  );
}

// In layers of its own, which move without being drawn anew.
function Playhead({ frame, x, across, width }: { frame: number; x: number; across: number; width: number }) {
  const middle = x + across / 2;
  const half = String(frame).length * 3.5 + 5;
  const label = Math.min(width - half, Math.max(half, middle));
  const moved = (to: number) => ({ transform: `translateX(${to}px)` });
  return (
    <div aria-hidden="true">
      <div class="strip-here" style={{ ...moved(x), width: `${Math.max(1, across)}px` }} />
      <div class="strip-line" style={moved(Math.round(middle))} />
      <div class="strip-number" style={{ ...moved(label - half), width: `${2 * half}px` }}>
        {frame}
      </div>
    </div>
  );
}
