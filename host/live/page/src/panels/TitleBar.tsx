import "./panels.css";
import "./commands";
import { effect } from "@preact/signals";
import { Icon } from "../app/icons";
import { theme } from "../app/layout";
import { redo, save, undo } from "../document/document";
import { key_list_open, palette_open } from "../palette/open";
import * as state from "../state";
import { start_render } from "./render";

function file_name(path: string): string {
  return path.split("/").at(-1) || "composition";
}

effect(() => {
  const path = state.info.value?.path;
  document.title = path === undefined ? "quorvel live" : `${state.dirty.value ? "● " : ""}${file_name(path)} – quorvel live`;
});

addEventListener("beforeunload", (event) => {
  if (state.dirty.value) event.preventDefault();
});

const themes = ["system", "light", "dark"] as const;

function next_theme(): void {
  theme.value = themes[(themes.indexOf(theme.value) + 1) % themes.length] ?? "system";
}

export function TitleBar() {
  const { path, format, version } = state.info.value ?? { path: "", format: null, version: 0 };
  return (
    <header class="title-bar">
      <h1 title={path}>
        {file_name(path)}
        {state.dirty.value && (
          <span class="dirty" title="Changed since it was saved" aria-label="changed">
            ●
          </span>
        )}
      </h1>
      {format && (
        <span class="dim mono" title="Format; version of the document">
          {format.width}×{format.height}
          {format.pixel_aspect !== 1 && ` : ${format.pixel_aspect}`} · v{version}
        </span>
      )}
      <div role="toolbar" aria-label="Document" class="buttons">
        <button class="quiet press" aria-label="Undo" title="Undo (Ctrl Z)" disabled={!state.can_undo.value} onClick={() => undo()}>
          <Icon name="undo" />
        </button>
        <button class="quiet press" aria-label="Redo" title="Redo (Ctrl Shift Z)" disabled={!state.can_redo.value} onClick={() => redo()}>
          <Icon name="redo" />
        </button>
        <button title="Save (Ctrl S)" disabled={!state.dirty.value} onClick={() => void save()}>
          Save
        </button>
        <button title="Render as quorvel render does (Ctrl Enter)" onClick={() => start_render()}>
          Render
        </button>
      </div>
      <span class="gap" />
      <Connection />
      <button class="quiet" title="Find a command, node or knob (Ctrl K)" onClick={() => (palette_open.value = true)}>
        Find <kbd>Ctrl K</kbd>
      </button>
      <button class="quiet press" aria-label="Keys" title="Keys (?)" onClick={() => (key_list_open.value = true)}>
        ?
      </button>
      <button class="quiet press" aria-label={`Colours of the page: ${theme.value}`} title={`Colours of the page: ${theme.value}`} onClick={next_theme}>
        <Icon name="theme" />
      </button>
    </header>
  );
}

function Connection() {
  const good = state.connected.value || state.info.value === null;
  return (
    <span class={good ? "connection" : "connection gone"} role="status">
      {good ? "" : "no connection"}
    </span>
  );
}
