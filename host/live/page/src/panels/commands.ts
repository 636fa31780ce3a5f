import { dock, theme } from "../app/layout";
import { add_commands } from "../commands";
import { redo, save, undo } from "../document/document";
import { key_list_open, palette_open } from "../palette/open";
import { start_render, stop_render } from "./render";

const document = "Document";
const page = "Page";

add_commands(
  { id: "document.save", title: "Save", group: document, keys: ["Ctrl+s"], run: () => void save() },
  { id: "document.undo", title: "Undo", group: document, keys: ["Ctrl+z"], run: () => undo() },
  { id: "document.redo", title: "Redo", group: document, keys: ["Ctrl+Shift+z", "Ctrl+y"], run: () => redo() },
  { id: "document.render", title: "Render", group: document, keys: ["Ctrl+Enter"], run: () => void start_render() },
  { id: "document.stop-render", title: "Stop the render", group: document, run: () => void stop_render() },
  { id: "page.palette", title: "Find a command, node or knob", group: page, keys: ["Ctrl+k"], run: () => (palette_open.value = true) },
  { id: "page.keys", title: "List the keys", group: page, keys: ["?"], run: () => (key_list_open.value = true) },
  { id: "page.curves", title: "Show the curves", group: page, keys: ["F1"], run: () => (dock.value = "curves") },
  { id: "page.scopes", title: "Show the scopes", group: page, keys: ["F2"], run: () => (dock.value = "scopes") },
  { id: "page.time", title: "Show where time goes", group: page, keys: ["F3"], run: () => (dock.value = "time") },
  { id: "page.render", title: "Show the render", group: page, keys: ["F4"], run: () => (dock.value = "render") },
  { id: "page.messages", title: "Show the messages", group: page, run: () => (dock.value = "messages") },
  { id: "page.light", title: "Light page", group: page, run: () => (theme.value = "light") },
  { id: "page.dark", title: "Dark page", group: page, run: () => (theme.value = "dark") },
  { id: "page.system", title: "Page as light or dark as the system", group: page, run: () => (theme.value = "system") },
);
