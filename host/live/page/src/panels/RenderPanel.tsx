import { useEffect, useState } from "preact/hooks";
import { get } from "../net/api";
import { info, render_state } from "../state";
import { copy_command, render_frames, say, start_render, stop_render } from "./render";

const words = { idle: "", running: "rendering", done: "done", failed: "failed", stopped: "stopped" };

export function RenderPanel() {
  const { state, done, total, message } = render_state.value;
  const running = state === "running";
  const all = info.value?.frames ?? [];
  const range = all.length > 1 ? `${all[0]}-${all.at(-1)}` : String(all[0] ?? "");
  return (
    <div class="panel render-panel">
      <form
        onSubmit={(event) => {
          event.preventDefault();
          void (running ? stop_render() : start_render());
        }}
      >
        <label>
          Frames{" "}
          <input
            type="text"
            class="mono"
            placeholder={range}
            value={render_frames.value}
            disabled={running}
            onInput={(event) => (render_frames.value = event.currentTarget.value)}
          />
        </label>
        <button type="submit">{running ? "Stop" : "Render"}</button>
        <progress aria-label="Frames rendered" max={Math.max(1, total)} value={done} />
        <output class="mono">{state === "idle" ? "" : `${done} / ${total} ${words[state]}`}</output>
      </form>
      {message !== "" && <p class={state === "failed" ? "mono error" : "mono dim"}>{message}</p>}
      <CommandLine />
    </div>
  );
}

function CommandLine() {
  const [command, set_command] = useState("");
  const [copied, set_copied] = useState(false);
  useEffect(() => {
    get<{ command: string }>("/render/command").then((reply) => set_command(reply.command), say);
  }, []);
  const copy = () => copy_command().then(() => set_copied(true), say);
  return (
    <div class="command-line">
      <span class="dim">The saved file, from a shell:</span>
      <code>{command}</code>
      <button onClick={() => void copy()}>{copied ? "Copied" : "Copy"}</button>
    </div>
  );
}
