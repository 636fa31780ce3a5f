import { computed } from "@preact/signals";
import { parse } from "jsonc-parser";
import { selected_node, text } from "../state";

interface Keyed {
  nodes?: { name?: string; knobs?: Record<string, unknown> }[];
}

// The frames at which the selected node's knobs have keys.
export const key_frames = computed<number[]>(() => {
  if (selected_node.value === "") return [];
  const root = parse(text.value) as Keyed | undefined;
  const node = root?.nodes?.find((each) => each?.name === selected_node.value);
  const found = new Set<number>();
  for (const knob of Object.values(node?.knobs ?? {}))
    for (const part of Array.isArray(knob) ? knob : [knob]) {
      const keys: unknown = (part as { keys?: unknown } | null)?.keys;
      if (!Array.isArray(keys)) continue;
      for (const key of keys) if (Array.isArray(key) && typeof key[0] === "number") found.add(key[0]);
    }
  return [...found].sort((one, other) => one - other);
});
