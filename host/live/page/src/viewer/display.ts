import { effect, signal } from "@preact/signals";
import { get } from "../net/api";
import type { DisplayShader } from "../protocol";
import { display_view, displays } from "../state";
import { viewer_message } from "./settings";

// The conversion of the chosen display and view; null is the plain sRGB curve.
export const display_shader = signal<DisplayShader | null>(null);

const known = new Map<string, DisplayShader>();

export function follow_display(): () => void {
  return effect(() => {
    const wanted = display_view.value;
    if (!wanted) {
      display_shader.value = null;
      return;
    }
    void take(wanted.display, wanted.view, displays.value.config);
  });
}

async function take(display: string, view: string, config: string): Promise<void> {
  const key = JSON.stringify([config, display, view]);
  try {
    const query = new URLSearchParams({ display, view });
    const shader = known.get(key) ?? (await get<DisplayShader>(`/display/shader?${query}`));
    known.set(key, shader);
    const now = display_view.value;
    if (now?.display !== display || now.view !== view) return;
    display_shader.value = shader;
    viewer_message.value = "";
  } catch (error) {
    viewer_message.value = `The view ${view} of ${display} cannot be had: ${said(error)}`;
  }
}

export function said(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
