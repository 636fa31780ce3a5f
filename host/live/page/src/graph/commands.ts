import { add_commands } from "../commands";
import { selected_node } from "../state";
import { fit, look_at } from "./camera";
import { remove_selected, toggle_disabled } from "./keyboard";
import { adding, show_node, shown_name } from "./pick";

const group = "Graph";

function focus(selector: string): void {
  document.querySelector<HTMLElement | SVGElement>(selector)?.focus();
}

add_commands(
  { id: "graph.add", title: "Add a node", group, keys: ["Shift+a"], run: () => (adding.value = true) },
  { id: "graph.search", title: "Find a node by its name", group, keys: ["/"], run: () => focus("[data-graph-search]") },
  { id: "graph.remove", title: "Remove the selected node", group, keys: ["Delete"], run: remove_selected },
  { id: "graph.disable", title: "Disable or enable the selected node", group, keys: ["Shift+d"], run: toggle_disabled },
  { id: "graph.rename", title: "Rename the selected node", group, keys: ["F6"], run: () => focus("[data-node-name]") },
  { id: "graph.fit", title: "Fit the graph into its panel", group, keys: ["Shift+f"], run: () => fit() },
  { id: "graph.centre", title: "Centre the selected node", group, keys: ["Shift+c"], run: () => look_at(selected_node.value) },
  { id: "graph.show", title: "Show the selected node", group, keys: ["Enter"], run: () => show_node(selected_node.value || shown_name()) },
  { id: "graph.output", title: "Show the output again", group, keys: ["Escape"], run: () => show_node("") },
  { id: "graph.focus", title: "Go to the graph", group, keys: ["Shift+g"], run: () => focus("[data-graph]") },
);
