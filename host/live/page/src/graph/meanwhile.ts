import { type Edge, edges_of, type Layout, node_height, node_width, type Point, row_gap, type Topology } from "./boxes";

const row = node_height + row_gap;

// An arrangement to look at until that of the changed nodes is made: what was there stays, a new name takes the place of
// the one that it replaces in the text, and a new node stands beneath what it reads, in a row of its own if need be.
export function meanwhile(nodes: Topology, before: Topology, old: Layout): Layout {
  const places = new Map<string, Point>();
  const named_before = new Map<string, string>();
  const names = new Set(nodes.map(([name]) => name));
  nodes.forEach(([name], at) => {
    const former = before[at]?.[0] ?? "";
    const same = old.places.has(name) ? name : names.has(former) ? "" : former;
    const place = old.places.get(same);
    if (!place) return;
    places.set(name, { ...place });
    named_before.set(name, same);
  });

  const key = (from: string | undefined, to: string | undefined, input: number) => JSON.stringify([from, to, input]);
  const bends = new Map(old.edges.map((edge) => [key(edge.from, edge.to, edge.input), edge.between]));
  const edges = edges_of(nodes);
  for (const edge of edges) {
    const between = bends.get(key(named_before.get(edge.from), named_before.get(edge.to), edge.input)) ?? [];
    edge.between = between.map((point) => ({ ...point }));
  }

  let { height } = old;
  for (const [name, links] of nodes) {
    if (places.has(name)) continue;
    const place = beneath(links.flatMap((from) => places.get(from) ?? []));
    if (is_taken(place, places)) {
      move_down(place.y, places, edges);
      height += row;
    }
    places.set(name, place);
  }
  return { places, edges, width: old.width, height };
}

// What reads nothing stands to the left of all.
function beneath(inputs: Point[]): Point {
  if (inputs.length === 0) return { x: -node_width, y: node_height / 2 };
  const x = inputs.reduce((sum, input) => sum + input.x, 0) / inputs.length;
  return { x, y: Math.max(...inputs.map((input) => input.y)) + row };
}

function is_taken(place: Point, places: Map<string, Point>): boolean {
  for (const { x, y } of places.values())
    if (Math.abs(x - place.x) < node_width && Math.abs(y - place.y) < node_height) return true;
  return false;
}

function move_down(from: number, places: Map<string, Point>, edges: Edge[]): void {
  const points = [...places.values(), ...edges.flatMap((edge) => edge.between)];
  for (const point of points) if (point.y > from - row / 2) point.y += row;
}
