import { batch, effect, signal } from "@preact/signals";
import { model } from "../document/document";
import { node_of, server_name } from "../document/place";
import { info, selected_node, shown_node } from "../state";

export const adding = signal(false); // the list of types is open
export const search_text = signal("");

export const wanted_view = signal(""); // of nodes that are there once a view; "": the first

function show(name: string): void {
  const full = name === "" ? "" : server_name(model.value, name, wanted_view.value);
  shown_node.value = full === info.value?.outputs[0] ? "" : full;
}

// A node is selected and shown; the first output is what is shown where nothing else is asked for.
export function show_node(name: string): void {
  batch(() => {
    selected_node.value = name;
    show(name);
  });
}

export function show_view(view: string): void {
  batch(() => {
    wanted_view.value = view;
    show(shown_name());
  });
}

// The shown node by its name in the text.
export function shown_name(): string {
  const name = shown_node.value || (info.value?.outputs[0] ?? "");
  return node_of(model.value, name) ?? name;
}

export function shown_view(): string {
  const name = shown_node.value || (info.value?.outputs[0] ?? "");
  return model.value.views.find((view) => !model.value.named.has(name) && name.endsWith(`.${view}`)) ?? "";
}

// Other parts know nodes by the names of the server or by those of the text: selected are those of the text, shown those
// of the server.
effect(() => {
  const name = node_of(model.value, selected_node.value);
  if (name !== null) selected_node.value = name;
});
effect(() => {
  shown_node.value = server_name(model.value, shown_node.value, wanted_view.value);
});

export function matches(name: string, type: string, letters: string): boolean {
  const wanted = letters.trim().toLowerCase();
  return wanted === "" || name.toLowerCase().includes(wanted) || type.toLowerCase().includes(wanted);
}

export function found_nodes(): string[] {
  if (search_text.value.trim() === "") return [];
  return model.value.nodes.filter((node) => matches(node.name, node.type, search_text.value)).map((node) => node.name);
}
