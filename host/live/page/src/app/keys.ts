import { commands } from "../commands";

// "Ctrl+Shift+z", "ArrowLeft", "?": as commands.ts writes keys.
export function chord(event: KeyboardEvent): string {
  const letter = event.key.length === 1;
  const shown = letter && event.key.toLowerCase() === event.key.toUpperCase(); // shift is in the sign itself
  return [
    event.ctrlKey || event.metaKey ? "Ctrl+" : "",
    event.altKey ? "Alt+" : "",
    event.shiftKey && !shown ? "Shift+" : "",
    letter ? event.key.toLowerCase() : event.key,
  ].join("");
}

// As a person reads it.
export function key_name(key: string): string {
  const names: Record<string, string> = { " ": "Space", ArrowLeft: "←", ArrowRight: "→", ArrowUp: "↑", ArrowDown: "↓" };
  const parts = key === "+" ? ["+"] : key.split("+");
  return parts.map((part) => names[part] ?? (part.length === 1 ? part.toUpperCase() : part)).join(" ");
}

// What is typed into a field, or meant for the button that the keyboard stands on, is no command.
function is_for_element(event: KeyboardEvent): boolean {
  const at = event.target;
  if (event.ctrlKey || event.metaKey) return false;
  // It stands above the page wherever the focus has gone: Tab leaves one that has nothing to stand on.
  if (document.querySelector("dialog[open]")) return true;
  if (!(at instanceof Element)) return false;
  if (/^F\d/.test(event.key)) return false;
  if (at.matches("input:not([type=checkbox], [type=button]), textarea, select, [contenteditable]")) return true;
  const presses = event.key === " " || event.key === "Enter";
  return presses && at.matches(":is(button, summary, a, input, [role=button], [role=switch]):focus-visible");
}

// A line that is entered, or left, gives the keys back to the page; Tab goes on from it all the same.
function leave_field(event: KeyboardEvent): void {
  const at = event.target;
  if (event.key !== "Enter" && event.key !== "Escape") return;
  if (at instanceof HTMLInputElement && at.matches("input:not([type=checkbox], [type=button], [type=range])") && !at.closest("dialog, form"))
    at.blur();
}

export function listen_to_keys(): void {
  addEventListener("keydown", (event) => {
    if (!event.isComposing) leave_field(event);
    if (event.defaultPrevented || event.isComposing || is_for_element(event)) return;
    const pressed = chord(event);
    const command = commands.value.find((each) => each.keys?.includes(pressed));
    if (!command) return;
    event.preventDefault();
    command.run();
  });
}
