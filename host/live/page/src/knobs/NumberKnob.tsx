import { slow_playhead, useValueAtPlayhead } from "../curves/samples";
import { set_knob } from "../document/actions";
import { is_curve, type Parts, read_parts } from "../document/keys";
import type { NodeText } from "../document/model";
import type { KnobSpec } from "../protocol";
import { KeyButtons } from "./KeyButtons";
import { change_parts, change_value, key_all, type Subject } from "./keying";
import { NumberField } from "./NumberField";
import { component_names, has_swatch, joined_at_first, range_of, within } from "./ranges";
import { Slider } from "./Slider";
import { Swatch } from "./Swatch";

// The knob as it stands, a knob that nothing is said of as one number where that is how people take it.
export function given_parts(node: NodeText, spec: KnobSpec): Parts {
  const value = node.knobs[spec.name];
  if (value === undefined && joined_at_first(spec)) return { joined: true, parts: [spec.defaults[0] ?? 0] };
  return read_parts(value, spec);
}

export function NumberKnob({ node, spec }: { node: NodeText; spec: KnobSpec }) {
  const given = given_parts(node, spec);
  const subject: Subject = { node, spec, given };
  const several = spec.defaults.length > 1;
  const keyed = given.parts.some(is_curve);
  const names = given.joined ? [""] : component_names(spec);
  const constants = given.parts.filter((part): part is number => typeof part === "number");
  const swatch = has_swatch(spec) && !keyed;
  const lined = given.parts.length === 1 || keyed;
  return (
    <div class="parts">
      {swatch && (
        <Swatch
          label={spec.name}
          colour={given.joined ? spec.defaults.map((each, i) => (i < 3 ? (constants[0] ?? 0) : each)) : constants}
          change={(colour, key) => change_parts(subject, { joined: false, parts: colour }, key)}
        />
      )}
      <div class={lined ? "lines" : `fields of-${given.parts.length}`}>
        {given.parts.map((_, i) => (
          <Component key={i} subject={subject} component={i} name={names[i] ?? String(i + 1)} alone={lined} />
        ))}
      </div>
      {!lined && (
        <button
          class="quiet key"
          data-make-keyed={spec.name}
          title="Make all of them keyed: a key each at the playhead"
          aria-label={`Make ${spec.name} keyed`}
          onClick={() => key_all(subject)}
        >
          ◇
        </button>
      )}
      {several && <Join subject={subject} />}
    </div>
  );
}

interface ComponentProps {
  subject: Subject;
  component: number;
  name: string;
  alone: boolean; // in its line
}

function Component(props: ComponentProps) {
  const part = props.subject.given.parts[props.component];
  return is_curve(part) ? <Keyed {...props} /> : <Value {...props} value={part ?? 0} />;
}

// A key at the playhead says its value itself; between keys the library does.
function Keyed(props: ComponentProps) {
  const { node, spec, given } = props.subject;
  const curve = given.parts[props.component];
  const evaluated = useValueAtPlayhead(node.name, spec.name, props.component);
  const here = is_curve(curve) ? curve.keys.find((key) => key.frame === slow_playhead.value)?.value : undefined;
  return <Value {...props} value={here ?? evaluated.value ?? 0} />;
}

function Value({ subject, component, name, alone, value }: ComponentProps & { value: number }) {
  const { node, spec, given } = subject;
  const range = range_of(spec, component, value);
  const keyed = is_curve(given.parts[component]);
  const label = `${spec.name}${name ? ` ${name}` : ""}${spec.pixels ? " in pixels" : ""}`;
  const id = `${node.name}.${spec.name}.${component}`;
  const change = (next: number, key: string) => change_value(subject, component, within(spec, next), key);
  return (
    <div class="component" data-component={component}>
      <NumberField
        value={value}
        step={range.step}
        label={label}
        letter={name}
        id={id}
        keyed={keyed}
        dim={node.knobs[spec.name] === undefined}
        limit={(next) => within(spec, next)}
        change={change}
      />
      {alone && given.parts.length === 1 && (
        <Slider
          value={value}
          range={range}
          label={`${label}, slider`}
          id={id}
          change={change}
          reset={() => set_knob(node.name, spec.name, undefined)}
        />
      )}
      {alone && <KeyButtons subject={subject} component={component} value={value} label={label} />}
    </div>
  );
}

// One number for all components, or one each.
function Join({ subject }: { subject: Subject }) {
  const { given, spec } = subject;
  const toggle = () => {
    const [first] = given.parts;
    if (first === undefined) return;
    const parts = given.joined ? spec.defaults.map((each, i) => (i === 3 && spec.defaults.length === 4 ? each : first)) : [first];
    change_parts(subject, { joined: !given.joined, parts });
  };
  return (
    <button
      class="quiet join"
      data-join={spec.name}
      aria-pressed={given.joined}
      title={given.joined ? "One number for all: give each its own" : "Give all of them the first one's number"}
      aria-label={given.joined ? `Give each component of ${spec.name} its own number` : `One number for all of ${spec.name}`}
      onClick={toggle}
    >
      {given.joined ? "⋮" : "="}
    </button>
  );
}
