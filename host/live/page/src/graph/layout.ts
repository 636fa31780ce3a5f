import { graphlib, layout as place } from "@dagrejs/dagre";
import { computed } from "@preact/signals";
import { model } from "../document/document";
import type { NodeText } from "../document/model";

export const node_width = 124;
export const node_height = 34;

export interface Point {
  x: number;
  y: number;
}

export interface Edge {
  from: string;
  to: string;
  input: number; // its place among the reader's links
  between: Point[]; // where it passes by other nodes
}

export interface Layout {
  places: Map<string, Point>; // of the node's middle
  edges: Edge[];
  width: number;
  height: number;
}

// What the layout depends on: a knob that moves leaves all nodes where they are.
const topology = computed(() =>
  JSON.stringify(model.value.nodes.map((node) => [node.name, node.links.map((link) => link.from)])),
);

export const layout = computed((): Layout => make_layout(JSON.parse(topology.value) as [string, string[]][]));

export function make_layout(nodes: [string, string[]][]): Layout {
  const graph = new graphlib.Graph({ multigraph: true });
  graph.setGraph({ rankdir: "TB", nodesep: 16, ranksep: 19, edgesep: 10 });
  const names = new Set(nodes.map(([name]) => name));
  for (const [name] of nodes) graph.setNode(name, { width: node_width, height: node_height });
  const edges: Edge[] = [];
  for (const [to, links] of nodes)
    links.forEach((from, input) => {
      if (!names.has(from)) return;
      graph.setEdge(from, to, {}, String(input));
      edges.push({ from, to, input, between: [] });
    });
  place(graph);
  for (const edge of edges) {
    const points: Point[] = graph.edge(edge.from, edge.to, String(edge.input)).points ?? [];
    edge.between = points.slice(1, -1).filter((_, i, all) => all.length > 1 || i > 0);
  }
  const label = graph.graph();
  const places = new Map(nodes.map(([name]): [string, Point] => [name, { x: graph.node(name).x, y: graph.node(name).y }]));
  return { places, edges, width: label.width ?? 0, height: label.height ?? 0 };
}

// Of an input on the upper edge of its node, from the node's middle.
export function port_at(input: number, count: number): Point {
  return { x: node_width * ((input + 1) / (count + 1) - 0.5), y: -node_height / 2 };
}

export function port_of(node: NodeText, input: number, at: Point): Point {
  const port = port_at(input, node.links.length);
  return { x: at.x + port.x, y: at.y + port.y };
}

// Leaves and arrives upright, and goes through what lies between.
export function edge_path(from: Point, between: Point[], to: Point): string {
  const points = [from, ...between, to];
  let path = `M${from.x} ${from.y}`;
  for (let i = 1; i < points.length; ++i) {
    const [one, other] = [points[i - 1] as Point, points[i] as Point];
    const bend = Math.max(10, Math.abs(other.y - one.y) * 0.45);
    path += `C${one.x} ${one.y + bend} ${other.x} ${other.y - bend} ${other.x} ${other.y}`;
  }
  return path;
}
