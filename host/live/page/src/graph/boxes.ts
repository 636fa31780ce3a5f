// The graph as boxes and the lines between them, in units of its own.
export const node_width = 124;
export const node_height = 34;
export const row_gap = 19;

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

// Each node's name and what its inputs read, "" or an unknown name where that is nothing.
export type Topology = [string, string[]][];

export function edges_of(nodes: Topology): Edge[] {
  const names = new Set(nodes.map(([name]) => name));
  return nodes.flatMap(([to, links]) =>
    links.flatMap((from, input) => (names.has(from) ? [{ from, to, input, between: [] }] : [])),
  );
}
