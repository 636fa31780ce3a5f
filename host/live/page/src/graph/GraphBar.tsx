import { model } from "../document/document";
import { selected_node } from "../state";
import { fit, look_at } from "./camera";
import { adding, found_nodes, search_text, show_view, shown_view } from "./pick";

// Search, which leaves what is found bright and brings it to the middle, and what else is done to the whole.
export function GraphBar() {
  const found = found_nodes();
  const find = (letters: string) => {
    search_text.value = letters;
    const first = found_nodes()[0];
    if (first) look_at(first);
  };
  const key = (event: KeyboardEvent) => {
    if (event.key === "Escape") {
      search_text.value = "";
      document.querySelector<SVGElement>("[data-graph]")?.focus();
    } else if (event.key === "Enter" && found.length > 0) {
      const at = found.indexOf(selected_node.value) + (event.shiftKey ? -1 : 1);
      const next = found[(at + found.length) % found.length] ?? "";
      selected_node.value = next;
      look_at(next);
    } else return;
    event.preventDefault();
    event.stopPropagation();
  };
  return (
    <div class="graph-bar" role="toolbar" aria-label="Graph">
      <input
        type="search"
        data-graph-search
        aria-label="Find a node by name or type"
        placeholder="Find a node  /"
        value={search_text.value}
        onInput={(event) => find(event.currentTarget.value)}
        onKeyDown={key}
      />
      <span class="dim mono" role="status">
        {search_text.value.trim() === "" ? `${model.value.nodes.length} nodes` : `${found.length} found`}
      </span>
      <span class="gap" />
      <Views />
      <button data-add-node title="Add a node behind the selected one (Shift A)" onClick={() => (adding.value = true)}>
        + Node
      </button>
      <button class="quiet" title="Fit the graph into the panel (Shift F)" onClick={() => fit()}>
        Fit
      </button>
    </div>
  );
}

// Which of the views is shown of a node that is there once each.
function Views() {
  const { views } = model.value;
  if (views.length === 0) return null;
  const now = shown_view();
  return (
    <span role="group" aria-label="View">
      {views.map((view) => (
        <button key={view} class="quiet" data-view={view} aria-pressed={now === view} onClick={() => show_view(view)}>
          {view}
        </button>
      ))}
    </span>
  );
}
