import { useComputed } from "@preact/signals";
import { memo } from "preact/compat";
import type { NodeText } from "../document/model";
import { catalogue } from "../state";
import { node_height, node_width, type Point } from "./boxes";
import { family_hue } from "./families";
import { port_at } from "./layout";
import { messages, milliseconds, octets, states } from "./states";
import { wire } from "./wiring";

interface Props {
  node: NodeText;
  at: Point;
  coarse: boolean; // too small for letters and ports
  selected: boolean;
  shown: boolean;
  faint: boolean; // the search looks for others
}

const letters = 17; // that fit a node
const mark = { cached: "in memory", computed: "drawn", error: "error" };

function shortened(text: string): string {
  return text.length > letters ? `${text.slice(0, letters - 1)}…` : text;
}

function Box({ node, at, coarse, selected, shown, faint }: Props) {
  const { name } = node;
  const state = useComputed(() => states.value.get(name)?.state ?? "none");
  const wrong = useComputed(() => messages.value.get(name)?.join("\n") ?? "");
  const figures = useComputed(() => {
    const now = states.value.get(name);
    return now ? [milliseconds(now.ms), octets(now.bytes)].filter((each) => each !== "").join(" · ") : "";
  });
  const type = catalogue.value.get(node.type);
  const error = wrong.value !== "";
  const kind = error ? "error" : state.value;
  const words = [
    `${name}, ${node.type}`,
    node.disabled ? "disabled" : "",
    kind === "none" ? "" : mark[kind as keyof typeof mark],
    figures.value,
    wrong.value,
    node.comment,
  ];
  const classes = ["node", kind, selected && "selected", shown && "shown", faint && "faint", coarse && "coarse", node.disabled && "disabled"];
  const [left, top] = [-node_width / 2, -node_height / 2];
  return (
    <g
      id={`graph-node-${name}`}
      class={classes.filter(Boolean).join(" ")}
      data-node={name}
      data-state={kind}
      role="option"
      aria-selected={selected}
      aria-label={words.filter((each) => each !== "").join(", ")}
      transform={`translate(${at.x} ${at.y})`}
      style={{ "--hue": String(family_hue(type?.family ?? "")) }}
    >
      <title>{words.filter((each) => each !== "").join("\n")}</title>
      <rect class="body" x={left} y={top} width={node_width} height={node_height} rx="4" />
      <path class="family" d={`M${left + 4} ${top}h1v${node_height}h-1a4 4 0 0 1 -4 -4v${8 - node_height}a4 4 0 0 1 4 -4z`} />
      {!coarse && <Letters node={node} figures={figures.value.split(" · ")[0] ?? ""} />}
      <State kind={kind} x={-left - 10} />
      {node.disabled && <path class="struck" d={`M${left} ${-top}L${-left} ${top}`} />}
      {!coarse && <Ports node={node} />}
    </g>
  );
}

function Letters({ node, figures }: { node: NodeText; figures: string }) {
  const left = -node_width / 2;
  return (
    <>
      <text class="name" x={left + 12} y={-2}>
        {shortened(node.name)}
      </text>
      <text class="type" x={left + 12} y={11}>
        {shortened(node.type)}
      </text>
      <text class="figures" x={-left - 6} y={11}>
        {figures}
      </text>
    </>
  );
}

// Cached: full. Computed: a ring. Error: a triangle.
function State({ kind, x }: { kind: string; x: number }) {
  if (kind === "error") return <path class="mark" d={`M${x} -11l5 9h-10z`} />;
  return kind === "none" ? null : <circle class={`mark ${kind}`} cx={x} cy="-6" r="3.5" />;
}

function Ports({ node }: { node: NodeText }) {
  const target = wire.value?.target;
  return (
    <>
      {node.links.map((link, i) => {
        const { x, y } = port_at(i, node.links.length);
        const meant = target?.node === node.name && target.input === i;
        const kind = ["port", link.from !== "" && "connected", link.required && "required", meant && "meant"];
        return (
          <g key={i} class={kind.filter(Boolean).join(" ")} data-port={link.name} data-input={i} transform={`translate(${x} ${y})`}>
            <title>{`${link.name || "input"}${link.required ? "" : " (optional)"}: ${link.from || "not connected"}\n${link.help}`}</title>
            <circle class="reach" r="9" />
            <circle class="dot" r="3.2" />
            <text class="port-name" y="-6">
              {link.name}
            </text>
          </g>
        );
      })}
      <g class={`port out${target?.node === node.name && target.input === null ? " meant" : ""}`} data-output={node.name} transform={`translate(0 ${node_height / 2})`}>
        <title>{`Result of ${node.name}: drag it to an input`}</title>
        <circle class="reach" r="9" />
        <circle class="dot" r="3.2" />
      </g>
    </>
  );
}

// A knob that moves makes all nodes anew, most of them as they were.
function same_box(one: Props, other: Props): boolean {
  const facts = ({ node }: Props) => JSON.stringify([node.name, node.type, node.disabled, node.comment, node.links]);
  const { at, coarse, selected, shown, faint } = other;
  return (
    one.at.x === at.x &&
    one.at.y === at.y &&
    one.coarse === coarse &&
    one.selected === selected &&
    one.shown === shown &&
    one.faint === faint &&
    facts(one) === facts(other)
  );
}

export const NodeBox = memo(Box, same_box);
