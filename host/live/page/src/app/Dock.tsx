import { effect } from "@preact/signals";
import { CurveEditor } from "../curves/CurveEditor";
import { Messages } from "../panels/Messages";
import { RenderPanel } from "../panels/RenderPanel";
import { TimePanel } from "../panels/TimePanel";
import { Scopes } from "../scopes/Scopes";
import { edited_curve, notices, problems } from "../state";
import { dock, type Dock } from "./layout";

effect(() => {
  if (edited_curve.value !== null) dock.value = "curves";
});

const tabs: [Dock, string][] = [
  ["curves", "Curves"],
  ["scopes", "Scopes"],
  ["time", "Where time goes"],
  ["render", "Render"],
  ["messages", "Messages"],
];

export function DockTabs() {
  const step = (event: KeyboardEvent) => {
    const by = event.key === "ArrowRight" ? 1 : event.key === "ArrowLeft" ? -1 : 0;
    if (by === 0) return;
    const at = tabs.findIndex(([id]) => id === dock.value);
    const next = tabs[(at + by + tabs.length) % tabs.length];
    if (next) {
      dock.value = next[0];
      document.getElementById(`tab-${next[0]}`)?.focus();
    }
    event.preventDefault();
    event.stopPropagation();
  };
  const count = problems.value.length + notices.value.length;
  return (
    <div class="tabs" role="tablist" aria-label="Panels" onKeyDown={step}>
      {tabs.map(([id, title]) => (
        <button
          key={id}
          id={`tab-${id}`}
          role="tab"
          aria-selected={dock.value === id}
          aria-controls="dock"
          tabIndex={dock.value === id ? 0 : -1}
          onClick={() => (dock.value = id)}
        >
          {title}
          {id === "messages" && count > 0 && <span class="count">{count}</span>}
        </button>
      ))}
    </div>
  );
}

export function DockPanel() {
  return (
    <section class="pane" id="dock" role="tabpanel" aria-labelledby={`tab-${dock.value}`}>
      {panel(dock.value)}
    </section>
  );
}

function panel(which: Dock) {
  switch (which) {
    case "curves":
      return <CurveEditor />;
    case "scopes":
      return <Scopes />;
    case "time":
      return <TimePanel />;
    case "render":
      return <RenderPanel />;
    case "messages":
      return <Messages />;
  }
}
