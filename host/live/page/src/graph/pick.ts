import { batch, signal } from "@preact/signals";
import { model } from "../document/document";
import { info, selected_node, shown_node } from "../state";

export const adding = signal(false); // the list of types is open
export const search_text = signal("");

// A node is selected and shown; the first output is what is shown where nothing else is asked for.
export function show_node(name: string): void {
  batch(() => {
    selected_node.value = name;
    shown_node.value = info.value?.outputs[0] === name ? "" : name;
  });
}

export function shown_name(): string {
  return shown_node.value || (info.value?.outputs[0] ?? "");
}

export function matches(name: string, type: string, letters: string): boolean {
  const wanted = letters.trim().toLowerCase();
  return wanted === "" || name.toLowerCase().includes(wanted) || type.toLowerCase().includes(wanted);
}

export function found_nodes(): string[] {
  if (search_text.value.trim() === "") return [];
  return model.value.nodes.filter((node) => matches(node.name, node.type, search_text.value)).map((node) => node.name);
}
