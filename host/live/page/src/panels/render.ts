import { signal } from "@preact/signals";
import { dock } from "../app/layout";
import { get, post } from "../net/api";
import { notices } from "../state";

export const render_frames = signal(""); // as `quorvel render -f` takes them; "": all

export function say(error: unknown): void {
  notices.value = [...notices.value, error instanceof Error ? error.message : String(error)];
}

export async function start_render(): Promise<void> {
  dock.value = "render";
  try {
    await post("/render", { frames: render_frames.value.trim() });
  } catch (error) {
    say(error);
  }
}

export async function stop_render(): Promise<void> {
  await post("/render/stop").catch(say);
}

export async function copy_command(): Promise<string> {
  const { command } = await get<{ command: string }>("/render/command");
  await navigator.clipboard.writeText(command);
  return command;
}
