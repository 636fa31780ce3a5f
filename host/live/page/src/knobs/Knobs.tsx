import "./knobs.css";
import { model } from "../document/document";
import { node_of } from "../document/place";
import { states } from "../graph/states";
import { catalogue, problems, selected_node } from "../state";
import { Composition } from "./Composition";
import { Head } from "./Head";
import { Inputs } from "./Inputs";
import { KnobRow, ProblemLine } from "./KnobRow";

// The panel of the selected node.
export function Knobs() {
  const node = model.value.named.get(selected_node.value);
  if (!node) return <div class="knobs">{model.value.nodes.length > 0 && <Composition />}</div>;
  const type = catalogue.value.get(node.type);
  const known = new Set(type?.knobs.map((spec) => spec.name));
  const own = problems.value.filter((each) => node_of(model.value, each.node) === node.name && !known.has(each.knob));
  const state = states.value.get(node.name);
  return (
    <div class="knobs" data-knobs={node.name}>
      <div class="knobs-body" key={node.name}>
        <Head node={node} type={type} />
        {own.map((each) => (
          <ProblemLine key={each.message} problem={each} />
        ))}
        {state?.state === "error" && (
          <p class="problem" role="alert">
            {state.message}
          </p>
        )}
        <Inputs node={node} type={type} />
        {type?.knobs.map((spec) => (
          <KnobRow key={spec.name} node={node} spec={spec} />
        ))}
      </div>
    </div>
  );
}
