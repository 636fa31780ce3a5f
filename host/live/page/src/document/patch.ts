import { findNodeAtLocation, getNodeValue, type Node, parseTree } from "jsonc-parser";
import { type Json, rounded, same, write } from "./write";

// Changes of a JSON text that leave everything else as somebody wrote it: comments, order, indentation, what
// stands on one line. A value that differs in one place is changed in that place.

export type Path = (string | number)[];

const widest = 120; // columns; a member that would reach beyond begins a line
const unit = "  ";

const most_trees = 4;
const trees = new Map<string, Node>(); // of the last texts: one edit asks for the same ones again and again

// Undefined: there is nothing in the text.
export function tree_of(text: string): Node | undefined {
  const root = trees.get(text) ?? parseTree(text);
  if (!root) return undefined;
  trees.set(text, root);
  for (const oldest of trees.keys()) if (trees.size > most_trees) trees.delete(oldest);
  return root;
}

export function tree(text: string): Node {
  const root = tree_of(text);
  if (!root) throw new Error("There is nothing in this text.");
  return root;
}

// The text with `value` at `path`; objects on the way that are missing are made.
export function put(text: string, path: Path, value: Json): string {
  const root = tree(text);
  const node = findNodeAtLocation(root, path);
  if (node) return become(text, path, rounded(value));
  const above = path.slice(0, -1);
  const key = path.at(-1) ?? "";
  const parent = path.length > 0 ? findNodeAtLocation(root, above) : undefined;
  if (!parent || (parent.type !== "object" && parent.type !== "array")) {
    if (path.length === 0) throw new Error("There is nothing in this text.");
    return put(text, above, { [key]: value });
  }
  const content = parent.type === "object" ? `${JSON.stringify(key)}: ${write(value)}` : write(value);
  return insert_entry(text, parent, parent.children?.length ?? 0, content);
}

// The text without what is at `path`.
export function take_out(text: string, path: Path): string {
  const node = findNodeAtLocation(tree(text), path);
  const entry = node?.parent?.type === "property" ? node.parent : node;
  const parent = entry?.parent;
  const at = entry ? (parent?.children?.indexOf(entry) ?? -1) : -1;
  return parent && at >= 0 ? remove_entry(text, parent, at) : text;
}

// The text with one more element in the list at `path`, before the one that is at `at` now.
export function insert(text: string, path: Path, at: number, content: string): string {
  const list = findNodeAtLocation(tree(text), path);
  if (list?.type !== "array") throw new Error(`There is no list at ${path.join(".")}.`);
  return insert_entry(text, list, at, content);
}

// One difference after another, so that each is found in a text that is up to date.
function become(text: string, path: Path, value: Json): string {
  for (;;) {
    const node = findNodeAtLocation(tree(text), path);
    const next = node ? first_change(text, node, value) : null;
    if (next === null) return text;
    text = next;
  }
}

function first_change(text: string, node: Node, value: Json): string | null {
  if (same(getNodeValue(node) as Json, value)) return null;
  const children = node.children ?? [];
  if (node.type === "array" && Array.isArray(value) && children.length > 0 && value.length > 0)
    return change_list(text, node, children, value);
  if (node.type === "object" && value !== null && typeof value === "object" && !Array.isArray(value))
    return change_object(text, node, children, value);
  return replace(text, node.offset, node.offset + node.length, write(value));
}

// What is alike at both ends stays; of the rest, pairs become one another.
function change_list(text: string, node: Node, children: Node[], value: Json[]): string | null {
  const old = children.map((each) => getNodeValue(each) as Json);
  let front = 0;
  while (front < old.length && front < value.length && same(old[front], value[front])) ++front;
  let back = 0;
  const most = Math.min(old.length, value.length) - front;
  while (back < most && same(old.at(-1 - back), value.at(-1 - back))) ++back;
  if (old.length - back === front) return insert_entry(text, node, front, write(value[front] ?? null));
  if (value.length - back === front) return remove_entry(text, node, front);
  return first_change(text, children[front] as Node, value[front] as Json);
}

function change_object(text: string, node: Node, children: Node[], value: Record<string, Json>): string | null {
  for (let i = 0; i < children.length; ++i) {
    const [key, child] = children[i]?.children ?? [];
    const wanted = value[String(key?.value)];
    if (wanted === undefined) return remove_entry(text, node, i);
    const changed = child ? first_change(text, child, wanted) : null;
    if (changed !== null) return changed;
  }
  const there = new Set(children.map((each) => String(each.children?.[0]?.value)));
  for (const [key, wanted] of Object.entries(value))
    if (!there.has(key)) return insert_entry(text, node, children.length, `${JSON.stringify(key)}: ${write(wanted)}`);
  return null;
}

export function replace(text: string, from: number, to: number, content: string): string {
  return text.slice(0, from) + content + text.slice(to);
}

function line_break(text: string): string {
  return text.includes("\r\n") ? "\r\n" : "\n";
}

function line_start(text: string, at: number): number {
  return text.lastIndexOf("\n", at - 1) + 1;
}

function indentation(text: string, at: number): string {
  return /^[ \t]*/.exec(text.slice(line_start(text, at), at))?.[0] ?? "";
}

function begins_line(text: string, at: number): boolean {
  return text.slice(line_start(text, at), at).trim() === "";
}

function end_of(node: Node): number {
  return node.offset + node.length;
}

// Of the comma behind `from`, past comments; -1: another thing comes first.
function comma_behind(text: string, from: number): number {
  const blank = /(?:\s|\/\/[^\n]*|\/\*[^]*?\*\/)*/y;
  blank.lastIndex = from;
  blank.exec(text);
  return text[blank.lastIndex] === "," ? blank.lastIndex : -1;
}

// Where the line's own comment behind `at` ends, if nothing else follows in that line; else `at`.
function past_comment(text: string, at: number): number {
  const found = /^[ \t]*(\/\/[^\r\n]*|\/\*[^\r\n]*\*\/[ \t]*(?=[\r\n]))/.exec(text.slice(at, at + 4096));
  return at + (found?.[0].length ?? 0);
}

function insert_entry(text: string, parent: Node, at: number, content: string): string {
  const entries = parent.children ?? [];
  const eol = line_break(text);
  const before = entries[at - 1];
  if (entries.length === 0) return insert_first(text, parent, content);
  if (!before) {
    const first = entries[0] as Node;
    const gap = begins_line(text, first.offset) ? eol + indentation(text, first.offset) : " ";
    return replace(text, first.offset, first.offset, `${content},${gap}`);
  }
  const end = end_of(before);
  const next = entries[at];
  const own_line = begins_line(text, before.offset);
  const columns = end - line_start(text, end) + content.length + 2;
  const fits = columns <= widest || parent.type === "array";
  if (next ? !begins_line(text, next.offset) : !own_line && fits)
    return replace(text, end, end, `, ${content}`);
  const indent = own_line ? indentation(text, before.offset) : indentation(text, end) + unit;
  const comma = next ? comma_behind(text, end) : -1;
  if (comma < 0) {
    const place = past_comment(text, end);
    return `${text.slice(0, end)},${text.slice(end, place)}${eol}${indent}${content}${text.slice(place)}`;
  }
  const place = past_comment(text, comma + 1);
  return replace(text, place, place, `${eol}${indent}${content},`);
}

function insert_first(text: string, parent: Node, content: string): string {
  const from = parent.offset + 1;
  const to = end_of(parent) - 1;
  const inner = text.slice(from, to);
  if (inner.trim() === "") return replace(text, from, to, content);
  // Comments alone: behind them, in a line of its own.
  const eol = line_break(text);
  const kept = inner.trimEnd();
  const indent = indentation(text, from + kept.length);
  return replace(text, from + kept.length, to, `${eol}${indent}${content}${inner.slice(kept.length) || eol}`);
}

function remove_entry(text: string, parent: Node, at: number): string {
  const entries = parent.children ?? [];
  const entry = entries[at] as Node;
  const end = end_of(entry);
  if (entries.length === 1) {
    const around = text.slice(parent.offset + 1, entry.offset) + text.slice(end, end_of(parent) - 1);
    if (around.trim() === "") return replace(text, parent.offset + 1, end_of(parent) - 1, "");
    return cut(text, entry.offset, end);
  }
  if (at + 1 < entries.length) {
    const comma = comma_behind(text, end);
    if (text.slice(end, comma).trim() === "") return cut(text, entry.offset, comma + 1);
    return cut(replace(text, comma, comma + 1, ""), entry.offset, end);
  }
  const before = end_of(entries[at - 1] as Node);
  const comma = comma_behind(text, before);
  if (text.slice(before, entry.offset).replace(",", "").trim() === "") return replace(text, before, end, "");
  return replace(cut(text, entry.offset, end), comma, comma + 1, "");
}

// Takes a piece out, and the blanks that it leaves: of a line that is empty then, the line.
function cut(text: string, from: number, to: number): string {
  const start = line_start(text, from);
  const blank_before = text.slice(start, from).trim() === "";
  const behind = /^[ \t]*(\r?\n)?/.exec(text.slice(to))?.[0] ?? "";
  const blank_behind = behind.endsWith("\n") || to + behind.length === text.length;
  if (blank_before && blank_behind) return text.slice(0, start) + text.slice(to + behind.length);
  if (!blank_behind && !/^[ \t]*[\]}]/.test(text.slice(to))) return text.slice(0, from) + text.slice(to + behind.length);
  return text.slice(0, from).replace(/[ \t]+$/, blank_before ? "$&" : "") + text.slice(to);
}
