import { set_format, set_frames, set_outputs } from "../document/actions";
import { model } from "../document/document";
import { info, problems } from "../state";
import { ProblemLine } from "./KnobRow";
import { NodeOptions } from "./NodeOptions";
import { NumberField } from "./NumberField";

// What the composition says beside its nodes, while none of them is selected.
export function Composition() {
  const { format, frames, outputs, nodes } = model.value;
  const general = problems.value.filter((each) => each.node === "");
  const side = (value: number) => Math.min(65536, Math.max(1, Math.round(value)));
  const number = (label: string, value: number, step: number, change: (value: number) => void) => (
    <NumberField
      value={value}
      step={step}
      label={label}
      id={label}
      limit={(next) => (step < 1 ? Math.max(0.01, next) : side(next))}
      change={change}
    />
  );
  return (
    <div class="knobs-body">
      <header class="knobs-head">
        <div class="line">
          <b>Composition</b>
          <span class="type">{info.value?.path}</span>
        </div>
      </header>
      {general.map((each) => (
        <ProblemLine key={each.message} problem={each} />
      ))}
      <div class="knob">
        <span class="knob-name">format</span>
        <div class="control parts">
          {number("width", format.width, 1, (value) => set_format(side(value), format.height, format.pixel_aspect))}
          <span class="dim">×</span>
          {number("height", format.height, 1, (value) => set_format(format.width, side(value), format.pixel_aspect))}
          <span class="dim">aspect</span>
          {number("pixel aspect", format.pixel_aspect, 0.01, (value) => set_format(format.width, format.height, value))}
        </div>
      </div>
      <div class="knob">
        <span class="knob-name" title="1-24, 1-24x2 for every second, 1,5,9; ^7 leaves one out">
          frames
        </span>
        <div class="control">
          <input type="text" aria-label="Frames" value={frames} onChange={(event) => set_frames(event.currentTarget.value)} />
        </div>
      </div>
      <div class="knob">
        <span class="knob-name" title="What is rendered">
          output
        </span>
        <div class="control">
          <select
            aria-label="Output"
            value={outputs.length === 1 ? outputs[0] : ""}
            onChange={(event) => set_outputs(event.currentTarget.value === "" ? [] : [event.currentTarget.value])}
          >
            <option value="">{outputs.length > 1 ? outputs.join(", ") : "all that write files"}</option>
            <NodeOptions names={nodes.map(({ name }) => name)} />
          </select>
        </div>
      </div>
      <p class="help">Click a node to see its knobs.</p>
    </div>
  );
}
