import { effect, signal } from "@preact/signals";

// How the page is cut up, kept by the browser from one visit to the next.
export type Dock = "curves" | "scopes" | "time" | "render" | "messages";

function kept<T>(name: string, start: T) {
  let first = start;
  try {
    const text = localStorage.getItem(`quorvel.${name}`);
    if (text !== null) first = JSON.parse(text) as T;
  } catch {
    // Kept by another release, or nothing may be kept here: the start it is.
  }
  const value = signal<T>(first);
  effect(() => {
    const text = JSON.stringify(value.value);
    try {
      localStorage.setItem(`quorvel.${name}`, text);
    } catch {
      // Private windows keep nothing.
    }
  });
  return value;
}

export const side_width = kept("side", 384); // of graph and knobs
export const dock_height = kept("dock", 164); // below the timeline
export const graph_height = kept("graph", 320);
export const dock = kept<Dock>("dock-tab", "curves");
export const theme = kept<"system" | "light" | "dark">("theme", "system");

const prefers_light = matchMedia("(prefers-color-scheme: light)");

function apply_theme(): void {
  const system = prefers_light.matches ? "light" : "dark";
  document.documentElement.dataset.theme = theme.value === "system" ? system : theme.value;
}

effect(apply_theme);
prefers_light.addEventListener("change", apply_theme);
