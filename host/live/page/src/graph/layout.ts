import { computed, effect, signal, untracked } from "@preact/signals";
import { model } from "../document/document";
import type { NodeText } from "../document/model";
import { notices } from "../state";
import { type Layout, node_height, node_width, type Point, type Topology } from "./boxes";
import { meanwhile } from "./meanwhile";

// What the layout depends on: a knob that moves leaves all nodes where they are.
const topology = computed(() =>
  JSON.stringify(model.value.nodes.map((node) => [node.name, node.links.map((link) => link.from)])),
);

// The last that was made.
const arranged = signal({ topology: "[]", layout: { places: new Map(), edges: [], width: 0, height: 0 } as Layout });

// What is shown is not arranged yet.
export const arranging = computed(() => topology.value !== arranged.value.topology);

export const layout = computed((): Layout => {
  const { topology: before, layout: old } = arranged.value;
  const now = topology.value;
  if (now === before || old.places.size === 0) return old;
  return meanwhile(JSON.parse(now) as Topology, JSON.parse(before) as Topology, old);
});

const arranger = new Worker("arranger.js", { type: "module" });
let asked: string | null = null; // what it works on; a newer one waits until it is done

function ask(): void {
  if (!arranging.value || asked !== null) return;
  asked = topology.value;
  arranger.postMessage(JSON.parse(asked));
}

arranger.onmessage = (event: MessageEvent<Layout>) => {
  const made = asked ?? "";
  asked = null;
  arranged.value = { topology: made, layout: event.data };
  ask();
};
arranger.onerror = (event) => {
  asked = null;
  notices.value = [...notices.value, `The graph's nodes cannot be arranged: ${event.message || "arranger.js does not run"}`];
};
effect(() => {
  topology.value;
  untracked(ask);
});

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
