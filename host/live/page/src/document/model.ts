import { getNodeValue, type Node } from "jsonc-parser";
import type { NodeType } from "../protocol";
import { type Link, links_of } from "./inputs";
import { tree_of } from "./patch";
import type { Json } from "./write";

// The composition as its text says it, right or wrong: what has a name is there.

export interface NodeText {
  name: string;
  type: string;
  at: number; // its place in "nodes"
  offset: number; // in the text
  comment: string;
  disabled: boolean;
  given: Json | undefined; // "inputs" as it stands
  links: Link[];
  knobs: Record<string, Json>;
}

export interface Model {
  nodes: NodeText[];
  named: Map<string, NodeText>;
  outputs: string[]; // as "output" says; empty where it says nothing
  format: { width: number; height: number; pixel_aspect: number };
  frames: string;
  views: string[];
}

type Members = Record<string, Json | undefined>;

function members(value: unknown): Members {
  return value !== null && typeof value === "object" && !Array.isArray(value) ? (value as Members) : {};
}

function texts(value: Json | undefined): string[] {
  const list = Array.isArray(value) ? value : [value];
  return list.filter((each): each is string => typeof each === "string");
}

export function read_model(text: string, catalogue: Map<string, NodeType>): Model {
  const root = tree_of(text);
  const top = members(root && getNodeValue(root));
  const nodes: NodeText[] = [];
  for (const [at, element] of (list_of(root)?.children ?? []).entries()) {
    const node = node_text(element, at, catalogue);
    if (node) nodes.push(node);
  }
  const format = members(top["format"]);
  const number = (value: Json | undefined, other: number) => (typeof value === "number" ? value : other);
  return {
    nodes,
    named: new Map(nodes.map((node) => [node.name, node])),
    outputs: texts(top["output"]),
    format: {
      width: number(format["width"], 0),
      height: number(format["height"], 0),
      pixel_aspect: number(format["pixel_aspect"], 1),
    },
    frames: String(top["frames"] ?? "1"),
    views: texts(top["views"]),
  };
}

function list_of(root: Node | undefined): Node | undefined {
  for (const property of root?.children ?? [])
    if (property.children?.[0]?.value === "nodes") return property.children[1];
  return undefined;
}

function node_text(element: Node, at: number, catalogue: Map<string, NodeType>): NodeText | null {
  const given = members(getNodeValue(element));
  const { name, type, comment, disabled, inputs, knobs } = given;
  if (typeof name !== "string" || name === "") return null;
  const kind = typeof type === "string" ? type : "";
  return {
    name,
    type: kind,
    at,
    offset: element.offset,
    comment: typeof comment === "string" ? comment : "",
    disabled: disabled === true,
    given: inputs,
    links: links_of(inputs, catalogue.get(kind)),
    knobs: members(knobs) as Record<string, Json>,
  };
}
