import { set_knob } from "../document/actions";
import { model } from "../document/document";
import type { NodeText } from "../document/model";
import { node_of, problem_line } from "../document/place";
import { type Json, same } from "../document/write";
import type { KnobSpec, Problem } from "../protocol";
import { problems, text } from "../state";
import { FlagKnob } from "./FlagKnob";
import { NumberKnob } from "./NumberKnob";
import { ChoiceKnob, ObjectKnob, TextKnob, TextsKnob } from "./TextKnobs";

interface Props {
  node: NodeText;
  spec: KnobSpec;
}

function control(props: Props) {
  switch (props.spec.kind) {
    case "number":
    case "integer":
      return <NumberKnob {...props} />;
    case "flag":
      return <FlagKnob {...props} />;
    case "choice":
      return <ChoiceKnob {...props} />;
    case "texts":
      return <TextsKnob {...props} />;
    case "object":
      return <ObjectKnob {...props} />;
    case "text":
    case "file":
      return <TextKnob {...props} />;
  }
}

function default_of(spec: KnobSpec): Json {
  const numbers: Json[] = spec.kind === "flag" ? spec.defaults.map((each) => each !== 0) : spec.defaults;
  if (numbers.length > 0) return numbers.length === 1 ? (numbers[0] ?? 0) : numbers;
  return spec.kind === "texts" ? [] : spec.kind === "object" ? {} : spec.default_text;
}

function differs(value: Json | undefined, spec: KnobSpec): boolean {
  const usual = default_of(spec);
  const alone = Array.isArray(usual) && usual.every((each) => same(each, value));
  return value !== undefined && !same(value, usual) && !alone;
}

export function KnobRow({ node, spec }: Props) {
  const value = node.knobs[spec.name];
  const changed = differs(value, spec);
  const wrong = problems.value.filter((each) => each.knob === spec.name && node_of(model.value, each.node) === node.name);
  const unit = spec.pixels && (spec.kind === "number" || spec.kind === "integer") ? " px" : "";
  return (
    <div class={`knob kind-${spec.kind}${changed ? " changed" : ""}${wrong.length > 0 ? " wrong" : ""}`} data-knob={spec.name}>
      <span class="knob-name" title={`${spec.help}\nExpects ${spec.expects}. Default: ${JSON.stringify(default_of(spec))}.`}>
        {spec.name.replaceAll("_", " ")}
        {unit && <i>{unit}</i>}
      </span>
      <div class="control">{control({ node, spec })}</div>
      <span class="after">
        {changed && (
          <button
            class="quiet"
            data-reset={spec.name}
            title={`Back to the default, ${JSON.stringify(default_of(spec))}`}
            aria-label={`Reset ${spec.name}`}
            onClick={() => set_knob(node.name, spec.name, undefined)}
          >
            ↺
          </button>
        )}
      </span>
      {wrong.map((each) => (
        <ProblemLine key={each.message} problem={each} />
      ))}
    </div>
  );
}

export function ProblemLine({ problem }: { problem: Problem }) {
  const line = problem_line(text.value, problem);
  const suggested = problem.suggestion !== "" && !problem.message.includes(problem.suggestion);
  return (
    <p class="problem" role="alert">
      {line > 0 && <span class="mono">line {line}: </span>}
      {problem.message}
      {suggested && ` (did you mean "${problem.suggestion}"?)`}
    </p>
  );
}
