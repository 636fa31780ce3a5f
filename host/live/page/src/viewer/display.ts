import { batch, effect, signal } from "@preact/signals";
import { get } from "../net/api";
import type { DisplayShader } from "../protocol";
import { display_view, displays } from "../state";
import { say } from "./settings";

// The conversion of the chosen display and view; null is the plain sRGB curve.
export const display_shader = signal<DisplayShader | null>(null);
export const display_name = signal(""); // of that one

const known = new Map<string, DisplayShader>();

// Returns what ends it.
export function follow_display(): () => void {
  const endings = [effect(keep_to_config), effect(fetch_shader)];
  return () => {
    for (const end of endings) end();
  };
}

let config = ""; // that the choice was made for

// Another config is looked through its first view, unless it has the one that was chosen.
function keep_to_config(): void {
  const known = displays.value;
  const chosen = display_view.peek();
  if (known.config === config) return;
  config = known.config;
  const has = known.displays.some(({ name, views }) => name === chosen?.display && views.includes(chosen.view));
  const [first] = known.displays;
  if (!has) display_view.value = first?.views[0] ? { display: first.name, view: first.views[0] } : null;
}

function fetch_shader(): void {
  const wanted = display_view.value;
  if (wanted) {
    void take(wanted.display, wanted.view, displays.value.config);
    return;
  }
  display_shader.value = null;
  display_name.value = "";
  say("display", "");
}

async function take(display: string, view: string, file: string): Promise<void> {
  const key = JSON.stringify([file, display, view]);
  try {
    const query = new URLSearchParams({ display, view });
    const shader = known.get(key) ?? (await get<DisplayShader>(`/display/shader?${query}`));
    known.set(key, shader);
    const now = display_view.value;
    if (now?.display !== display || now.view !== view) return;
    batch(() => {
      display_shader.value = shader;
      display_name.value = `${display}, ${view}`;
    });
    say("display", "");
  } catch (error) {
    say("display", `The view ${view} of ${display} cannot be had: ${said(error)}`);
  }
}

export function said(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
