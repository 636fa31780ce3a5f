import { useValueAtPlayhead } from "../curves/samples";
import { is_curve } from "../document/keys";
import type { NodeText } from "../document/model";
import type { KnobSpec } from "../protocol";
import { KeyButtons } from "./KeyButtons";
import { change_value, type Subject } from "./keying";
import { given_parts } from "./NumberKnob";

export function FlagKnob({ node, spec }: { node: NodeText; spec: KnobSpec }) {
  const subject: Subject = { node, spec, given: given_parts(node, spec) };
  const [part] = subject.given.parts;
  return is_curve(part) ? <KeyedFlag subject={subject} /> : <Flag subject={subject} value={part ?? 0} />;
}

function KeyedFlag({ subject }: { subject: Subject }) {
  const value = useValueAtPlayhead(subject.node.name, subject.spec.name, 0);
  return <Flag subject={subject} value={value.value ?? 0} />;
}

function Flag({ subject, value }: { subject: Subject; value: number }) {
  return (
    <div class="component">
      <input
        type="checkbox"
        aria-label={subject.spec.name}
        checked={value !== 0}
        onChange={(event) => change_value(subject, 0, event.currentTarget.checked ? 1 : 0, "")}
      />
      <KeyButtons subject={subject} component={0} value={value} label={subject.spec.name} />
    </div>
  );
}
