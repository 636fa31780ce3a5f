import { graphlib, layout as place } from "@dagrejs/dagre";
import { edges_of, type Layout, node_height, node_width, type Point, row_gap, type Topology } from "./boxes";

// Nodes in rows from top to bottom, few crossings, short edges. Some hundred milliseconds for some hundred nodes.
export function arrange(nodes: Topology): Layout {
  const graph = new graphlib.Graph({ multigraph: true });
  graph.setGraph({ rankdir: "TB", nodesep: 16, ranksep: row_gap, edgesep: 10 });
  for (const [name] of nodes) graph.setNode(name, { width: node_width, height: node_height });
  const edges = edges_of(nodes);
  for (const { from, to, input } of edges) graph.setEdge(from, to, {}, String(input));
  place(graph);
  for (const edge of edges) {
    const points: Point[] = graph.edge(edge.from, edge.to, String(edge.input)).points ?? [];
    edge.between = points.slice(1, -1).filter((_, i, all) => all.length > 1 || i > 0);
  }
  const label = graph.graph();
  const places = new Map(nodes.map(([name]): [string, Point] => [name, { x: graph.node(name).x, y: graph.node(name).y }]));
  return { places, edges, width: Math.max(0, label.width ?? 0), height: Math.max(0, label.height ?? 0) };
}
