import { useSignal } from "@preact/signals";
import { Fragment } from "preact";
import { useEffect, useLayoutEffect, useRef } from "preact/hooks";
import { add_node } from "../document/actions";
import { score } from "../palette/fuzzy";
import type { NodeType } from "../protocol";
import { catalogue, selected_node } from "../state";
import { look_at } from "./camera";
import { family_hue } from "./families";
import { adding, shown_name } from "./pick";

// By family in the catalogue's order, or those that fit the letters best.
function found_types(letters: string): NodeType[] {
  const types = [...catalogue.value.values()];
  if (letters.trim() === "") return types;
  return types
    .map((type) => {
      const named = score(letters, type.name);
      const told = type.help.toLowerCase().includes(letters.trim().toLowerCase()) ? -5 : null;
      return { type, points: named ?? told };
    })
    .filter((each): each is { type: NodeType; points: number } => each.points !== null)
    .sort((one, other) => other.points - one.points)
    .map(({ type }) => type);
}

// The list of node types; the new node reads the selected one.
export function AddNode() {
  const letters = useSignal("");
  const at = useSignal(0);
  const field = useRef<HTMLInputElement>(null);
  const list = useRef<HTMLUListElement>(null);
  // At once, so that what is typed right behind the key goes here.
  useLayoutEffect(() => field.current?.focus(), []);
  useEffect(() => list.current?.querySelector("[aria-selected=true]")?.scrollIntoView({ block: "nearest" }));

  const types = found_types(letters.value);
  const chosen = Math.min(at.value, types.length - 1);
  const after = selected_node.value || shown_name();
  const close = () => {
    adding.value = false;
    document.querySelector<SVGElement>("[data-graph]")?.focus();
  };
  const add = (type: NodeType | undefined) => {
    if (!type) return;
    close();
    const name = add_node(type.name, after);
    if (name !== "") requestAnimationFrame(() => look_at(name, "in"));
  };
  const key = (event: KeyboardEvent) => {
    if (event.key === "Escape") close();
    else if (event.key === "Enter") add(types[chosen]);
    else if (event.key === "ArrowDown") at.value = Math.min(types.length - 1, chosen + 1);
    else if (event.key === "ArrowUp") at.value = Math.max(0, chosen - 1);
    else return;
    event.preventDefault();
    event.stopPropagation();
  };
  const leave = (event: FocusEvent) => {
    const next = event.relatedTarget as Node | null;
    if (!(event.currentTarget as Element).contains(next)) adding.value = false;
  };
  const by_family = letters.value.trim() === "";
  return (
    <div class="add-node" role="dialog" aria-label="Add a node" onFocusOut={leave}>
      <input
        ref={field}
        type="search"
        role="combobox"
        aria-expanded="true"
        aria-controls="add-node-list"
        aria-activedescendant={types[chosen] ? `add-node-${types[chosen]?.name}` : undefined}
        aria-label="Type of the new node"
        placeholder={after === "" ? "Type of the new node" : `New node behind ${after}`}
        value={letters.value}
        onInput={(event) => {
          letters.value = event.currentTarget.value;
          at.value = 0;
        }}
        onKeyDown={key}
      />
      <ul id="add-node-list" ref={list} role="listbox" aria-label="Node types" tabIndex={-1}>
        {types.map((type, i) => (
          <Fragment key={type.name}>
            {by_family && type.family !== types[i - 1]?.family && (
              <li class="family" role="presentation">
                {type.family}
              </li>
            )}
            <li
              id={`add-node-${type.name}`}
              role="option"
              data-type={type.name}
              aria-selected={i === chosen}
              style={{ "--hue": String(family_hue(type.family)) }}
              onPointerMove={() => (at.value = i)}
              onClick={() => add(type)}
            >
              <b>{type.name}</b>
              <span>{type.help}</span>
            </li>
          </Fragment>
        ))}
        {types.length === 0 && <li class="family">No type is called so.</li>}
      </ul>
    </div>
  );
}
