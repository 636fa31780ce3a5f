import { commands } from "../commands";
import { key_name } from "../app/keys";
import { model } from "../document/document";
import { catalogue, edited_curve, info, selected_node, shown_node } from "../state";
import { score } from "./fuzzy";

export interface Entry {
  id: string;
  title: string;
  kind: "command" | "node" | "knob";
  hint: string;
  run: () => void;
}

function command_entries(): Entry[] {
  return commands.value.map(({ id, title, group, keys, run }) => ({
    id,
    title: `${group}: ${title}`,
    kind: "command",
    hint: keys?.[0] ? key_name(keys[0]) : "",
    run,
  }));
}

function open_node(name: string): void {
  selected_node.value = name;
  shown_node.value = name;
}

function is_keyed(part: unknown): boolean {
  return typeof part === "object" && part !== null && "keys" in part;
}

// A keyed knob's curve is opened. The knob's field gets the focus as soon as its node's knobs stand there.
function open_knob(node: string, knob: string): void {
  selected_node.value = node;
  const value = model.value.named.get(node)?.knobs[knob];
  const component = (Array.isArray(value) ? value : [value]).findIndex(is_keyed);
  if (component >= 0) edited_curve.value = { node, knob, component };
  // The page is drawn in a microtask: what is typed next goes to the field.
  queueMicrotask(() => {
    const field = document.querySelector<HTMLElement>(`[data-knob="${CSS.escape(knob)}"] :is(input, select, textarea, button)`);
    field?.scrollIntoView({ block: "nearest" });
    field?.focus();
    if (field instanceof HTMLInputElement && field.type === "text") field.select();
  });
}

function node_entries(): Entry[] {
  return (info.value?.nodes ?? []).flatMap(({ name, type }) => {
    const node: Entry = { id: `node ${name}`, title: name, kind: "node", hint: type, run: () => open_node(name) };
    const knobs = (catalogue.value.get(type)?.knobs ?? []).map(
      (knob): Entry => ({
        id: `knob ${name} ${knob.name}`,
        title: `${name} ${knob.name}`,
        kind: "knob",
        hint: knob.help,
        run: () => open_knob(name, knob.name),
      }),
    );
    return [node, ...knobs];
  });
}

// What fits the letters, best first. Where two fit as well, a node stands before its knobs.
export function find(letters: string, most = 60): Entry[] {
  const rank = { node: 0.3, command: 0.2, knob: 0 };
  const scored = [...node_entries(), ...command_entries()]
    .flatMap((entry) => {
      const points = score(letters, entry.title);
      return points === null ? [] : [{ entry, points: points + rank[entry.kind] }];
    })
    .sort((one, other) => other.points - one.points);
  // Letters that stand all over a text are no find where others have the word.
  const least = letters.trim() === "" ? -Infinity : (scored[0]?.points ?? 0) * 0.4;
  return scored
    .filter(({ points }) => points >= least)
    .slice(0, most)
    .map(({ entry }) => entry);
}
