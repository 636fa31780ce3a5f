import { useSignal } from "@preact/signals";
import { remove_node, rename_node, set_comment, set_disabled } from "../document/actions";
import type { NodeText } from "../document/model";
import { family_hue } from "../graph/families";
import { show_node, shown_name } from "../graph/pick";
import type { NodeType } from "../protocol";

// Name, type, what the type does, and what concerns the node as a whole.
export function Head({ node, type }: { node: NodeText; type: NodeType | undefined }) {
  const wrong = useSignal("");
  const rename = (field: HTMLInputElement) => {
    const wish = field.value.trim();
    wrong.value = wish === node.name ? "" : rename_node(node.name, wish);
    if (wrong.value !== "") field.value = node.name;
  };
  const shown = shown_name() === node.name;
  return (
    <header class="knobs-head">
      <div class="line" style={{ "--hue": String(family_hue(type?.family ?? "")) }}>
        <input
          class="node-name"
          type="text"
          data-node-name
          spellcheck={false}
          autocomplete="off"
          aria-label="Name of the node"
          value={node.name}
          onChange={(event) => rename(event.currentTarget)}
          onKeyDown={(event) => {
            if (event.key === "Enter") event.currentTarget.blur();
            if (event.key === "Escape") event.currentTarget.value = node.name;
          }}
        />
        <span class="type" title={type?.help}>
          {node.type}
        </span>
        <span class="gap" />
        <button class="quiet" aria-pressed={shown} title="Show it in the viewer" onClick={() => show_node(node.name)}>
          View
        </button>
        <button
          class="quiet"
          data-disabled
          aria-pressed={node.disabled}
          title="Let its first input through unchanged (Shift D)"
          onClick={() => set_disabled(node.name, !node.disabled)}
        >
          {node.disabled ? "Disabled" : "Disable"}
        </button>
        <button class="quiet" data-remove title="Remove it; what reads it reads its first input (Delete)" onClick={() => remove_node(node.name)}>
          Remove
        </button>
      </div>
      {wrong.value !== "" && (
        <p class="problem" role="alert">
          {wrong.value}
        </p>
      )}
      <p class="help">{type ? type.help : `The type "${node.type}" is not known.`}</p>
      <input
        class="comment"
        type="text"
        data-comment
        aria-label="Comment"
        placeholder="Comment"
        value={node.comment}
        onChange={(event) => set_comment(node.name, event.currentTarget.value.trim())}
        onKeyDown={(event) => {
          if (event.key === "Enter") event.currentTarget.blur();
        }}
      />
    </header>
  );
}
