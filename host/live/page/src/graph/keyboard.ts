import { remove_node, set_disabled } from "../document/actions";
import { model } from "../document/document";
import { selected_node } from "../state";
import { look_at } from "./camera";
import { layout } from "./layout";
import { adding, show_node, shown_name } from "./pick";

// Up: to the first input. Down: to the first reader. Left and right: to the next one at the same height, or else to
// another one that reads the same.
function neighbour(name: string, key: string): string | undefined {
  const { nodes, named } = model.value;
  if (key === "ArrowUp") return named.get(name)?.links.find((link) => named.has(link.from))?.from;
  if (key === "ArrowDown") return nodes.find((node) => node.links.some((link) => link.from === name))?.name;
  const at = layout.value.places.get(name);
  if (!at) return undefined;
  const side = key === "ArrowLeft" ? -1 : 1;
  const others = nodes
    .map((node) => ({ name: node.name, place: layout.value.places.get(node.name) ?? at }))
    .filter(({ place }) => (place.x - at.x) * side > 1)
    .map((each) => ({ ...each, away: Math.abs(each.place.x - at.x) + 3 * Math.abs(each.place.y - at.y) }));
  return others.sort((one, other) => one.away - other.away)[0]?.name;
}

export function toggle_disabled(): void {
  const node = model.value.named.get(selected_node.value);
  if (node) set_disabled(node.name, !node.disabled);
}

export function remove_selected(): void {
  if (model.value.named.has(selected_node.value)) remove_node(selected_node.value);
}

// Keys while the graph has the focus.
export function walk(event: KeyboardEvent): void {
  if (event.ctrlKey || event.metaKey || event.altKey) return;
  const selected = selected_node.value || shown_name();
  switch (event.key) {
    case "ArrowUp":
    case "ArrowDown":
    case "ArrowLeft":
    case "ArrowRight": {
      if (event.shiftKey) return;
      const next = selected_node.value === "" ? selected : neighbour(selected, event.key);
      if (next) {
        selected_node.value = next;
        look_at(next, "in");
      }
      break;
    }
    case "Enter":
      if (model.value.named.has(selected)) show_node(selected);
      break;
    case "Delete":
    case "Backspace":
      remove_selected();
      break;
    case "d":
      toggle_disabled();
      break;
    case "n":
      adding.value = true;
      break;
    default:
      return;
  }
  event.preventDefault();
  event.stopPropagation();
}
