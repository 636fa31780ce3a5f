import { signal } from "@preact/signals";
import { dock } from "../app/layout";
import { get, post } from "../net/api";
import { notices } from "../state";

export const render_frames = signal(""); // as `quorvel render -f` takes them; "": all

// What becomes of files that are there already, as `quorvel render` has it.
export type Existing = "" | "overwrite" | "skip-existing" | "skip-current";
export const existing = signal<Existing>("skip-current");

// Why the last one was not even begun; "": it was.
export const render_refusal = signal("");

function said(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}

export function say(error: unknown): void {
  notices.value = [...notices.value, said(error)];
}

export async function start_render(): Promise<void> {
  dock.value = "render";
  render_refusal.value = "";
  try {
    await post("/render", { frames: render_frames.value.trim(), existing: existing.value });
  } catch (error) {
    render_refusal.value = said(error);
  }
}

export async function stop_render(): Promise<void> {
  await post("/render/stop").catch(say);
}

export async function command_line(): Promise<string> {
  const query = new URLSearchParams({ frames: render_frames.value.trim(), existing: existing.value });
  return (await get<{ command: string }>(`/render/command?${query}`)).command;
}
