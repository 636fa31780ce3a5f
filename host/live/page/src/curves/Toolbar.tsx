import type { Signal } from "@preact/signals";
import { model } from "../document/document";
import { interpolations, type Interpolation } from "../document/keys";
import { NumberField } from "../knobs/NumberField";
import { component_names, range_of } from "../knobs/ranges";
import { catalogue, edited_curve, playhead } from "../state";
import {
  type Edited,
  keyed_knobs,
  type KeyedKnob,
  move_keys,
  remove_keys,
  selected_keys,
  selection,
  set_interpolation,
  set_keys,
} from "./edited";
import { add_key } from "./gestures";
import { slow_playhead } from "./samples";
import { frame_all } from "./view";

export function knob_title({ node, knob, component, of }: KeyedKnob): string {
  const type = model.value.named.get(node)?.type ?? "";
  const spec = catalogue.value.get(type)?.knobs.find((each) => each.name === knob);
  const name = spec && of > 1 ? ` ${component_names(spec)[component] ?? component + 1}` : "";
  return `${node} · ${knob}${name}`;
}

function id_of({ node, knob, component }: { node: string; knob: string; component: number }): string {
  return JSON.stringify([node, knob, component]);
}

function AtPlayhead({ value }: { value: Signal<number | null> }) {
  const now = value.value;
  return <span class="mono dim">{now === null ? "" : `${slow_playhead.value}: ${Number(now.toPrecision(5))}`}</span>;
}

interface Props {
  now: Edited;
  at_playhead: Signal<number | null>; // the curve's value there
  values: number[]; // that are drawn
}

export function Toolbar({ now, at_playhead, values }: Props) {
  const keys = selected_keys();
  const [first] = keys;
  const { curve, spec, component } = now;
  const kinds = new Set(keys.map((key) => key.kind));
  const none = keys.length === 0;
  const step = range_of(spec, component, first?.value ?? 0).step;
  const move = (frames: number, change: number, merge: string) => move_keys(curve.keys, selection.value, frames, change, merge);
  const open = edited_curve.value;
  return (
    <div class="curve-bar" role="toolbar" aria-label="Curve">
      <select
        aria-label="Curve"
        data-curve-choice
        value={open ? id_of({ ...open, component }) : ""}
        onChange={(event) => {
          const [node = "", knob = "", which = 0] = JSON.parse(event.currentTarget.value) as [string, string, number];
          edited_curve.value = { node, knob, component: which };
        }}
      >
        {keyed_knobs.value.map((each) => (
          <option key={id_of(each)} value={id_of(each)}>
            {knob_title(each)}
          </option>
        ))}
      </select>
      <label>
        <span>frame</span>
        {first && keys.length === 1 ? (
          <NumberField
            value={first.frame}
            step={1}
            label="Frame of the key"
            id="key frame"
            limit={(value) => value}
            change={(value, merge) => move(value - first.frame, 0, merge)}
          />
        ) : (
          <output>{none ? "–" : `${keys.length} keys`}</output>
        )}
      </label>
      <label>
        <span>value</span>
        {first ? (
          <NumberField
            value={first.value}
            step={step}
            label="Value of the key"
            id="key value"
            limit={(value) => value}
            change={(value, merge) => move(0, value - first.value, merge)}
          />
        ) : (
          <output>–</output>
        )}
      </label>
      <select
        aria-label="Interpolation from the selected keys to the next"
        data-interpolation
        title="How the curve goes on from the selected keys to the next"
        disabled={none}
        value={kinds.size === 1 ? first?.kind : ""}
        onChange={(event) => set_interpolation(event.currentTarget.value as Interpolation)}
      >
        {kinds.size !== 1 && <option value="">{none ? "interpolation" : "several"}</option>}
        {interpolations.map((kind) => (
          <option key={kind} value={kind}>
            {kind}
          </option>
        ))}
      </select>
      <button
        data-add-key
        title="Add a key at the playhead, on the curve"
        onClick={() => add_key(playhead.value, Number((at_playhead.value ?? curve.keys[0]?.value ?? 0).toPrecision(6)))}
      >
        + Key
      </button>
      <button data-remove-keys disabled={none} title="Remove the selected keys (Delete)" onClick={() => remove_keys(selection.value)}>
        Remove
      </button>
      <label title="Before the first and behind the last key the curve goes on straight; else its value stays">
        <input
          type="checkbox"
          data-extrapolate
          checked={curve.extrapolate}
          onChange={(event) => set_keys(curve.keys, "", event.currentTarget.checked)}
        />
        extrapolate
      </label>
      <span class="gap" />
      <AtPlayhead value={at_playhead} />
      <button class="quiet" title="See all of the curve (F)" onClick={() => frame_all(curve, values)}>
        All
      </button>
    </div>
  );
}
