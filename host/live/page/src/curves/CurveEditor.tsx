import "./curves.css";
import { useComputed, useSignalEffect } from "@preact/signals";
import { useSurface } from "../app/surface";
import type { CurveReply } from "../protocol";
import { edited_curve } from "../state";
import { Axes, Playhead } from "./Axes";
import { type Edited, edited, keyed_knobs, selection } from "./edited";
import { add_here, box, grab, turn_wheel } from "./gestures";
import { press } from "./keyboard";
import { Keys } from "./Keys";
import { type Asked, number_of, useCurve, useValueAtPlayhead } from "./samples";
import { knob_title, Toolbar } from "./Toolbar";
import { frame_all, gutter, ruler, size, to_x, to_y, view } from "./view";

export function CurveEditor() {
  const now = edited.value;
  return now ? <Open now={now} /> : <Choice />;
}

function Choice() {
  const knobs = keyed_knobs.value;
  return (
    <div class="curve-choice">
      <p class="dim">
        {knobs.length > 0 ? "Curves of this composition:" : "Nothing is keyed yet: ◇ beside a knob makes it so."}
      </p>
      {knobs.map((each) => (
        <button key={`${each.node} ${each.knob} ${each.component}`} onClick={() => (edited_curve.value = each)}>
          {knob_title(each)}
        </button>
      ))}
    </div>
  );
}

const samples = 400; // over what is seen

// What is seen and half as much at each side, so that panning asks seldom.
function asked_for(): Asked | null {
  const open = edited_curve.value;
  if (!open || size.value.width === 0) return null;
  const { left, right } = view.value;
  const span = 2 ** Math.ceil(Math.log2(right - left));
  const block = span / 2;
  const first = Math.floor((left - block / 2) / block) * block;
  const last = Math.ceil((right + block / 2) / block) * block;
  return { ...open, first, last, step: span / samples };
}

function path_of(reply: CurveReply | null): string {
  let path = "";
  let pen = "M";
  reply?.values.forEach((each, i) => {
    const value = number_of(each);
    if (!Number.isFinite(value)) {
      pen = "M";
      return;
    }
    path += `${pen}${to_x(reply.first + i * reply.step).toFixed(1)} ${Math.max(-1e4, Math.min(1e4, to_y(value))).toFixed(1)}`;
    pen = "L";
  });
  return path;
}

function Open({ now }: { now: Edited }) {
  const surface = useSurface(size, turn_wheel);
  const { node, spec, component, curve } = now;
  const reply = useCurve(useComputed(asked_for));
  const path = useComputed(() => path_of(reply.value));
  const at_playhead = useValueAtPlayhead(node.name, spec.name, component);

  useSignalEffect(() => {
    if (edited_curve.value === null) return;
    const opened = edited.peek();
    selection.value = new Set();
    if (opened) frame_all(opened.curve, []);
  });

  const values = (reply.value?.values ?? []).map(number_of);
  const { width, height } = size.value;
  const drawn = box.value;
  return (
    <div class="curves" data-curve-editor={`${node.name}.${spec.name}.${component}`}>
      <Toolbar now={now} at_playhead={at_playhead} values={values} />
      <svg
        ref={surface}
        class="curve-surface"
        data-curve-surface
        tabindex={0}
        role="group"
        aria-label={`Curve of ${node.name} ${spec.name}. Tab goes through the keys, arrows move them, Enter goes to their numbers.`}
        onPointerDown={grab}
        onDblClick={add_here}
        onKeyDown={press}
        onContextMenu={(event) => event.preventDefault()}
      >
        <Axes />
        <svg x={gutter} y={ruler} width={Math.max(0, width - gutter)} height={Math.max(0, height - ruler)} viewBox={`${gutter} ${ruler} ${Math.max(1, width - gutter)} ${Math.max(1, height - ruler)}`}>
          <path class="curve-line" data-curve-line d={path} />
          <Keys curve={curve} />
        </svg>
        {drawn && <rect class="curve-box" x={drawn.x0} y={drawn.y0} width={drawn.x1 - drawn.x0} height={drawn.y1 - drawn.y0} />}
      </svg>
      <Playhead />
    </div>
  );
}
