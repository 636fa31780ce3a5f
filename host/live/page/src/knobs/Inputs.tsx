import { useSignal } from "@preact/signals";
import { connect } from "../document/actions";
import { model } from "../document/document";
import { reaches } from "../document/edits";
import { type Link, takes_layers } from "../document/inputs";
import type { NodeText } from "../document/model";
import type { NodeType } from "../protocol";
import { NodeOptions } from "./NodeOptions";

// Each input as a list of the nodes that it can read without a circle.
export function Inputs({ node, type }: { node: NodeText; type: NodeType | undefined }) {
  if (node.links.length === 0) return null;
  const others = model.value.nodes.map((each) => each.name).filter((name) => !reaches(model.value, node.name, name));
  return (
    <div class="inputs">
      {node.links.map((link) => (
        <Input key={`${link.name} ${link.at}`} node={node} link={link} others={others} />
      ))}
      {type && takes_layers(type) && <NewLayer node={node} others={others} />}
    </div>
  );
}

function Input({ node, link, others }: { node: NodeText; link: Link; others: string[] }) {
  const missing = link.from !== "" && !model.value.named.has(link.from);
  const label = `${link.name}${link.at > 0 ? ` ${link.at + 1}` : ""}`;
  return (
    <div class={`knob input${missing || (link.required && link.from === "") ? " wrong" : ""}`} data-link={label}>
      <span class="knob-name" title={link.help}>
        {label || "input"}
      </span>
      <div class="control">
        <select
          aria-label={`Input ${label}`}
          value={link.from}
          onChange={(event) => {
            if (connect(node.name, link, event.currentTarget.value) !== "") event.currentTarget.value = link.from;
          }}
        >
          <option value="">{link.required ? "not connected" : "nothing"}</option>
          {missing && <option value={link.from}>{link.from} (there is no such node)</option>}
          <NodeOptions names={[...new Set([link.from, ...others])].filter((name) => model.value.named.has(name)).sort()} />
        </select>
      </div>
    </div>
  );
}

// A file takes further images under names of their own.
function NewLayer({ node, others }: { node: NodeText; others: string[] }) {
  const name = useSignal("");
  const wanted = name.value.trim();
  const taken = node.links.some((link) => link.name === wanted);
  return (
    <div class="knob input">
      <input type="text" aria-label="Name of a new layer" placeholder="+ layer" value={name.value} onInput={(event) => (name.value = event.currentTarget.value)} />
      <div class="control">
        <select
          aria-label="What the new layer is"
          disabled={wanted === "" || taken}
          value=""
          onChange={(event) => {
            connect(node.name, { name: wanted, at: 0 }, event.currentTarget.value);
            name.value = "";
          }}
        >
          <option value="">{taken ? "there is such a layer" : "reads"}</option>
          <NodeOptions names={[...others].sort()} />
        </select>
      </div>
    </div>
  );
}
