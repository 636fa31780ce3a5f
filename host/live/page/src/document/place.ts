import { findNodeAtLocation } from "jsonc-parser";
import type { NodeType, Problem } from "../protocol";
import { type Model, read_model } from "./model";
import { tree_of } from "./patch";

// Where in the text a problem's node or knob stands, from 1; 0: it names none that is there.
export function problem_line(text: string, problem: Problem): number {
  const model = read_model(text, new Map<string, NodeType>());
  const root = tree_of(text);
  const node = model.named.get(node_of(model, problem.node) ?? "");
  if (!root) return 0;
  const knob = node && problem.knob ? findNodeAtLocation(root, ["nodes", node.at, "knobs", problem.knob]) : undefined;
  const offset = knob?.offset ?? node?.offset;
  return offset === undefined ? 0 : text.slice(0, offset).split("\n").length;
}

// The node that is meant by a name as the server gives it, "plate.left" where there are views.
export function node_of(model: Model, name: string): string | null {
  if (model.named.has(name)) return name;
  const view = model.views.find((each) => name.endsWith(`.${each}`));
  const base = view === undefined ? "" : name.slice(0, -view.length - 1);
  return model.named.has(base) ? base : null;
}

// Whether a node is there once a view: a path of its own, or of one upstream, names the view.
export function depends_on_view(model: Model, name: string): boolean {
  const seen = new Set<string>();
  const open = [name];
  for (let next = open.pop(); next !== undefined; next = open.pop()) {
    const node = model.named.get(next);
    if (!node || seen.has(next)) continue;
    seen.add(next);
    if (Object.values(node.knobs).some((value) => typeof value === "string" && /%[Vv]/.test(value))) return true;
    open.push(...node.links.map((link) => link.from));
  }
  return false;
}

// What the server calls a node: "plate.left" where it is there once a view. "": of the first view.
export function server_name(model: Model, name: string, view: string): string {
  const [first] = model.views;
  if (first === undefined || !model.named.has(name) || !depends_on_view(model, name)) return name;
  return `${name}.${model.views.includes(view) ? view : first}`;
}
