import { signal } from "@preact/signals";
import { connect, disconnect, reconnect } from "../document/actions";
import { model } from "../document/document";
import { reaches } from "../document/edits";
import { node_height, node_width, type Point } from "./boxes";
import { layout, port_of } from "./layout";

// An edge that is in somebody's hand: one end is fast, the other follows the pointer.
export interface Wire {
  fast: { node: string; input: number | null }; // null: the node's output
  loose: Point;
  target: { node: string; input: number | null } | null; // where it would be connected
  taken: { node: string; input: number } | null; // the input that it was taken from
}

export const wire = signal<Wire | null>(null);

const reach = 16; // beyond a node's edges

export function begin_from_output(node: string, at: Point): void {
  wire.value = { fast: { node, input: null }, loose: at, target: null, taken: null };
}

// A connected input gives its edge into the hand, a free one looks for an output.
export function begin_from_input(node: string, input: number, at: Point): void {
  const from = model.value.named.get(node)?.links[input]?.from ?? "";
  wire.value =
    from === "" || !model.value.named.has(from)
      ? { fast: { node, input }, loose: at, target: null, taken: null }
      : { fast: { node: from, input: null }, loose: at, target: { node, input }, taken: { node, input } };
}

export function move_wire(at: Point): void {
  const now = wire.value;
  if (now) wire.value = { ...now, loose: at, target: target_at(now, at) };
}

function target_at(now: Wire, at: Point): Wire["target"] {
  for (const node of model.value.nodes) {
    const place = layout.value.places.get(node.name);
    if (!place || node.name === now.fast.node) continue;
    const [x, y] = [Math.abs(at.x - place.x), at.y - place.y];
    if (x > node_width / 2 + reach || y < -node_height / 2 - reach || y > node_height / 2 + reach) continue;
    if (now.fast.input !== null) return reaches(model.value, now.fast.node, node.name) ? null : { node: node.name, input: null };
    if (node.links.length === 0 || reaches(model.value, node.name, now.fast.node)) return null;
    const away = (input: number) => Math.abs(port_of(node, input, place).x - at.x);
    const inputs = node.links.map((_, input) => input).sort((one, other) => away(one) - away(other));
    return { node: node.name, input: inputs[0] ?? 0 };
  }
  return null;
}

export function end_wire(held: boolean): void {
  const now = wire.value;
  wire.value = null;
  if (!now || !held) return;
  const input_of = (node: string, input: number) => model.value.named.get(node)?.links[input];
  const { fast, target, taken } = now;
  const old = taken && input_of(taken.node, taken.input);
  if (target === null) {
    if (taken && old) disconnect(taken.node, old);
    return;
  }
  const [reader, input, from] =
    target.input === null ? [fast.node, fast.input ?? 0, target.node] : [target.node, target.input, fast.node];
  const link = input_of(reader, input);
  if (!link || (taken?.node === reader && taken.input === input)) return;
  if (taken && old) reconnect(from, taken.node, old, reader, link);
  else connect(reader, link, from);
}
