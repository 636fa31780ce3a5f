import type { NodeType } from "../protocol";
import { inputs_of, type Link, same_input } from "./inputs";
import { type Model, type NodeText, read_model } from "./model";
import { insert, type Path, put, take_out, tree } from "./patch";
import { type Json, written, write } from "./write";
import { findNodeAtLocation } from "jsonc-parser";

// What a person does to a composition, as changes of its text. A node is known by its name. What cannot be done
// throws an Error that says why.

type Catalogue = Map<string, NodeType>;
export type Input = Pick<Link, "name" | "at">;

const no_types: Catalogue = new Map();

function node_in(model: Model, name: string): NodeText {
  const node = model.named.get(name);
  if (!node) throw new Error(`There is no node "${name}".`);
  return node;
}

function path_of(text: string, name: string, ...rest: Path): Path {
  return ["nodes", node_in(read_model(text, no_types), name).at, ...rest];
}

// Takes out a member, and the object that held it where nothing is left in that.
function drop(text: string, path: Path): string {
  const without = take_out(text, path);
  const above = findNodeAtLocation(tree(without), path.slice(0, -1));
  const bare = above !== undefined && /^\{\s*\}$/.test(without.slice(above.offset, above.offset + above.length));
  return bare ? take_out(without, path.slice(0, -1)) : without;
}

// undefined: the default again.
export function with_knob(text: string, node: string, knob: string, value: Json | undefined): string {
  const path = path_of(text, node, "knobs", knob);
  return value === undefined ? drop(text, path) : put(text, path, value);
}

export function with_comment(text: string, node: string, comment: string): string {
  const path = path_of(text, node, "comment");
  return comment === "" ? take_out(text, path) : put(text, path, comment);
}

export function with_disabled(text: string, node: string, disabled: boolean): string {
  const path = path_of(text, node, "disabled");
  return disabled ? put(text, path, true) : take_out(text, path);
}

// Connects an input, "" disconnects it. Layers that were not there are added.
export function with_input(text: string, catalogue: Catalogue, node: string, input: Input, from: string): string {
  const model = read_model(text, catalogue);
  const reader = node_in(model, node);
  const type = catalogue.get(reader.type);
  if (!type) throw new Error(`Node "${node}" is of a type that is not known.`);
  if (from !== "" && reaches(model, node, from)) throw new Error(`"${from}" reads "${node}" itself: that would be a circle.`);
  const links = reader.links.map((link) => (same_input(link, input) ? { ...link, from } : link));
  if (!reader.links.some((link) => same_input(link, input)))
    links.push({ ...input, from, required: false, help: "" });
  return with_links(text, reader, type, links);
}

function with_links(text: string, reader: NodeText, type: NodeType, links: Link[]): string {
  const path: Path = ["nodes", reader.at, "inputs"];
  const inputs = inputs_of(links, type, reader.given);
  if (inputs === undefined) return take_out(text, path);
  if (reader.given !== undefined) return put(text, path, inputs);
  return add_member(text, reader.at, "inputs", inputs);
}

// Inputs stand before knobs, as everywhere else.
function add_member(text: string, at: number, key: string, value: Json): string {
  const node = findNodeAtLocation(tree(text), ["nodes", at]);
  const type = node?.children?.find((each) => each.children?.[0]?.value === "type");
  if (!type) return put(text, ["nodes", at, key], value);
  const end = type.offset + type.length;
  return `${text.slice(0, end)}, ${JSON.stringify(key)}: ${write(value)}${text.slice(end)}`;
}

// Whether `from` is `node` or reads it, near or far.
export function reaches(model: Model, node: string, from: string): boolean {
  const seen = new Set<string>();
  const open = [from];
  for (let name = open.pop(); name !== undefined; name = open.pop()) {
    if (name === node) return true;
    if (seen.has(name)) continue;
    seen.add(name);
    for (const link of model.named.get(name)?.links ?? []) if (link.from !== "") open.push(link.from);
  }
  return false;
}

export function free_name(model: Model, wish: string): string {
  if (!model.named.has(wish)) return wish;
  for (let i = 2; ; ++i) if (!model.named.has(`${wish}${i}`)) return `${wish}${i}`;
}

// A node of a type behind `after`, which it reads and whose place it takes for those that read it; a node that writes
// files stays the last. "": not connected, at the end of the text.
export function with_node(text: string, catalogue: Catalogue, type: string, name: string, after: string): string {
  const model = read_model(text, catalogue);
  if (model.named.has(name)) throw new Error(`The name "${name}" is taken.`);
  const spec = catalogue.get(type);
  const place = model.named.get(after);
  const last = place !== undefined && (catalogue.get(place.type)?.writes_files ?? false);
  const source = last ? (place.links[0]?.from ?? "") : (place?.name ?? "");
  const reads = source !== "" && (spec?.inputs.length ?? 0) > 0;
  const between = reads && spec !== undefined && !spec.writes_files && spec.inputs.filter((each) => each.required).length < 2;
  let changed = text;
  for (const reader of between ? model.nodes : []) {
    const known = catalogue.get(reader.type);
    const taken = (link: Link) => link.from === source && (!last || (reader === place && link === reader.links[0]));
    if (!known || !reader.links.some(taken)) continue;
    changed = with_links(changed, reader, known, reader.links.map((link) => (taken(link) ? { ...link, from: name } : link)));
  }
  const content = write({ name, type, ...(reads ? { inputs: source } : {}) });
  const at = place ? place.at + (last ? 0 : 1) : count_of(text);
  return insert(changed, ["nodes"], at, content);
}

function count_of(text: string): number {
  return findNodeAtLocation(tree(text), ["nodes"])?.children?.length ?? 0;
}

// Those that read it read its first input from then on.
export function without_node(text: string, catalogue: Catalogue, name: string): string {
  const model = read_model(text, catalogue);
  const gone = node_in(model, name);
  const instead = gone.links[0]?.from ?? "";
  let changed = text;
  for (const reader of model.nodes) {
    const type = catalogue.get(reader.type);
    if (reader === gone || !type || !reader.links.some((link) => link.from === name)) continue;
    const links = reader.links.map((link) => (link.from === name ? { ...link, from: instead } : link));
    changed = with_links(changed, reader, type, links);
  }
  changed = take_out(changed, ["nodes", gone.at]);
  return with_outputs(changed, (output) => (output === name ? instead : output));
}

// All that refers to it follows.
export function with_name(text: string, name: string, wish: string): string {
  const model = read_model(text, no_types);
  const node = node_in(model, name);
  if (wish === name) return text;
  if (wish === "") throw new Error("A node has a name.");
  if (model.named.has(wish)) throw new Error(`The name "${wish}" is taken.`);
  let changed = put(text, ["nodes", node.at, "name"], wish);
  for (const reader of model.nodes) {
    const renamed = in_inputs(reader.given, (from) => (from === name ? wish : from));
    if (renamed !== undefined) changed = put(changed, ["nodes", reader.at, "inputs"], renamed);
  }
  return with_outputs(changed, (output) => {
    if (output === name) return wish;
    const view = model.views.find((each) => output === `${name}.${each}`);
    return view === undefined ? output : `${wish}.${view}`;
  });
}

function in_inputs(given: Json | undefined, change: (from: string) => string): Json | undefined {
  if (typeof given === "string") return change(given);
  if (Array.isArray(given)) return given.map((each) => in_inputs(each, change) ?? each);
  if (given === null || typeof given !== "object") return undefined;
  return Object.fromEntries(Object.entries(given).map(([key, each]) => [key, in_inputs(each, change) ?? each]));
}

function with_outputs(text: string, change: (output: string) => string): string {
  const { outputs } = read_model(text, no_types);
  const changed = outputs.map(change).filter((output) => output !== "");
  if (outputs.length === 0 || outputs.every((output, i) => output === changed[i])) return text;
  if (changed.length === 0) return take_out(text, ["output"]);
  const listed = findNodeAtLocation(tree(text), ["output"])?.type === "array";
  return put(text, ["output"], listed ? changed : (changed[0] ?? ""));
}

export function with_outputs_set(text: string, outputs: string[]): string {
  if (outputs.length === 0) return take_out(text, ["output"]);
  return put(text, ["output"], outputs.length === 1 ? (outputs[0] ?? "") : outputs);
}

export function with_format(text: string, format: { width: number; height: number; pixel_aspect: number }): string {
  let changed = put(text, ["format", "width"], format.width);
  changed = put(changed, ["format", "height"], format.height);
  const there = findNodeAtLocation(tree(changed), ["format", "pixel_aspect"]);
  if (!there && format.pixel_aspect === 1) return changed;
  return put(changed, ["format", "pixel_aspect"], Number(written(format.pixel_aspect)));
}

export function with_frames(text: string, frames: string): string {
  return put(text, ["frames"], frames);
}
