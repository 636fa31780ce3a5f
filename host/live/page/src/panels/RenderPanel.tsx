import { useEffect, useState } from "preact/hooks";
import { info, render_state } from "../state";
import { command_line, type Existing, existing, render_frames, render_refusal, say, start_render, stop_render } from "./render";

const words = { idle: "", running: "rendering", done: "done", failed: "failed", stopped: "stopped" };

export function RenderPanel() {
  const { state, done, total, message } = render_state.value;
  const wrong = render_refusal.value || (state === "failed" ? message : "");
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
        <label>
          Files that are there{" "}
          <select
            value={existing.value}
            disabled={running}
            onChange={(event) => (existing.value = event.currentTarget.value as Existing)}
          >
            <option value="">are an error</option>
            <option value="overwrite">are replaced</option>
            <option value="skip-existing">stay</option>
            <option value="skip-current">stay where they are current</option>
          </select>
        </label>
        <button type="submit">{running ? "Stop" : "Render"}</button>
        <progress aria-label="Frames rendered" max={Math.max(1, total)} value={done} />
        <output class="mono">{render_refusal.value === "" && state !== "idle" && `${total > 0 ? `${done} / ${total} ` : ""}${words[state]}`}</output>
      </form>
      <div role="alert">{wrong !== "" && <p class="mono error">{wrong}</p>}</div>
      {wrong === "" && message !== "" && <p class="mono dim">{message}</p>}
      <CommandLine />
    </div>
  );
}

function CommandLine() {
  const [command, set_command] = useState("");
  const [copied, set_copied] = useState("");
  const words = `${render_frames.value} ${existing.value}`;
  useEffect(() => {
    // A range that is only half typed is none.
    command_line().then(set_command, () => set_command(""));
  }, [words]);
  const copy = () => navigator.clipboard.writeText(command).then(() => set_copied(command), say);
  return (
    <div class="command-line">
      <span class="dim">The saved file, from a shell:</span>
      {command !== "" && <code>{command}</code>}
      <button disabled={command === ""} onClick={() => void copy()}>
        {copied === command && copied !== "" ? "Copied" : "Copy"}
      </button>
    </div>
  );
}
