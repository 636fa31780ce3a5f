import { signal } from "@preact/signals";

// Everything that a person can do by a key or from the palette. A part of the page adds its own when it loads.
export interface Command {
  id: string; // "viewer.fit"
  title: string; // as the palette shows it
  group: string; // heading in the list of keys
  keys?: string[]; // "f", "Ctrl+k", "ArrowLeft", "Shift+ArrowLeft", " "
  run: () => void;
}

export const commands = signal<Command[]>([]);

export function add_commands(...added: Command[]): void {
  const ids = new Set(added.map((each) => each.id));
  commands.value = [...commands.value.filter((each) => !ids.has(each.id)), ...added];
}
