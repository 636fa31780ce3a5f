import { memo } from "preact/compat";
import type { Model } from "../document/model";
import { type Edge, type Layout, node_height, type Point } from "./boxes";
import { edge_path, port_of } from "./layout";
import { wire } from "./wiring";

function ends(edge: Edge, model: Model, layout: Layout): [Point, Point] | null {
  const reader = model.named.get(edge.to);
  const from = layout.places.get(edge.from);
  const to = layout.places.get(edge.to);
  if (!reader || !from || !to) return null;
  return [{ x: from.x, y: from.y + node_height / 2 }, port_of(reader, edge.input, to)];
}

interface Props {
  model: Model;
  layout: Layout;
}

// The edge itself, and a wide one that nobody sees to take hold of. A layout is another one as soon as any input is.
export const Edges = memo(all_edges, (one, other) => one.layout === other.layout);

function all_edges({ model, layout }: Props) {
  return (
    <g class="edges">
      {layout.edges.map((edge) => {
        const at = ends(edge, model, layout);
        if (!at) return null;
        const path = edge_path(at[0], edge.between, at[1]);
        const link = model.named.get(edge.to)?.links[edge.input];
        return (
          <g key={`${edge.from} ${edge.to} ${edge.input}`} class={link?.name === "mask" ? "edge mask" : "edge"} data-edge={`${edge.from} ${edge.to}`}>
            <path class="line" d={path} />
            <path class="grip" d={path} data-reader={edge.to} data-input={edge.input} />
          </g>
        );
      })}
    </g>
  );
}

// The one in somebody's hand.
export function LooseEdge({ model, layout }: Props) {
  const now = wire.value;
  const at = now && layout.places.get(now.fast.node);
  const node = now && model.named.get(now.fast.node);
  if (!now || !at || !node) return null;
  let loose = now.loose;
  const place = now.target && layout.places.get(now.target.node);
  const target = now.target && model.named.get(now.target.node);
  if (now.target && place && target)
    loose = now.target.input === null ? { x: place.x, y: place.y + node_height / 2 } : port_of(target, now.target.input, place);
  const fast = now.fast.input === null ? { x: at.x, y: at.y + node_height / 2 } : port_of(node, now.fast.input, at);
  const [from, to] = now.fast.input === null ? [fast, loose] : [loose, fast];
  return <path class={`loose${now.target ? " lands" : ""}`} d={edge_path(from, [], to)} />;
}
