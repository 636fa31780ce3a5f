import "./graph.css";
import "./commands";
import { useSignal, useSignalEffect } from "@preact/signals";
import { useSurface } from "../app/surface";
import { model } from "../document/document";
import { info, selected_node } from "../state";
import { AddNode } from "./AddNode";
import { camera, fit, is_far, is_very_far, look_at, panel, readable, seen, transform } from "./camera";
import { Edges, LooseEdge } from "./Edges";
import { GraphBar } from "./GraphBar";
import { grab, turn_wheel } from "./gestures";
import { walk } from "./keyboard";
import { arranging, layout } from "./layout";
import { Messages } from "./Messages";
import { NodeBox } from "./NodeBox";
import { adding, matches, search_text, shown_name } from "./pick";
import "./steady";
import { wire } from "./wiring";

export function Graph() {
  const surface = useSurface(panel, turn_wheel);
  const fitted = useSignal(false);

  useSignalEffect(() => {
    if (fitted.value || panel.value.width === 0 || info.value === null || layout.value.width === 0) return;
    fitted.value = true;
    fit(readable);
    if (layout.value.height * camera.peek().scale > panel.peek().height) look_at(shown_name(), "foot");
  });

  const { nodes } = model.value;
  const near = seen.value;
  const looked_for = search_text.value;
  const shown = shown_name();
  return (
    <div class="graph">
      <GraphBar />
      <svg
        ref={surface}
        class={`graph-surface${is_far.value ? " far" : ""}${wire.value ? " wiring" : ""}`}
        data-graph
        tabindex={0}
        role="listbox"
        aria-busy={arranging.value}
        aria-label="Nodes. Arrows go along the edges, Enter shows a node."
        aria-activedescendant={selected_node.value ? `graph-node-${selected_node.value}` : undefined}
        onPointerDown={grab}
        onKeyDown={walk}
        onDblClick={(event) => {
          if (!(event.target as Element).closest("[data-node]")) fit();
        }}
      >
        <g transform={transform}>
          <Edges model={model.value} layout={layout.value} />
          {nodes.map((node) => {
            const at = layout.value.places.get(node.name);
            return (
              at &&
              near.has(node.name) && (
                <NodeBox
                  key={node.name}
                  node={node}
                  at={at}
                  coarse={is_very_far.value}
                  selected={selected_node.value === node.name}
                  shown={shown === node.name}
                  faint={!matches(node.name, node.type, looked_for)}
                />
              )
            );
          })}
          <LooseEdge model={model.value} layout={layout.value} />
          <Messages />
        </g>
      </svg>
      {adding.value && <AddNode />}
      {nodes.length === 0 && info.value !== null && <p class="graph-empty">No nodes can be read from the text.</p>}
    </div>
  );
}
