import "./theme.css";
import "./app.css";
import { Graph } from "../graph/Graph";
import { Knobs } from "../knobs/Knobs";
import { Banners } from "../panels/Banners";
import { TitleBar } from "../panels/TitleBar";
import { KeyList } from "../palette/KeyList";
import { Palette } from "../palette/Palette";
import { Timeline } from "../transport/Timeline";
import { Viewer } from "../viewer/Viewer";
import { ViewerBar } from "../viewer/ViewerBar";
import { DockPanel, DockTabs } from "./Dock";
import { dock_height, graph_height, side_width } from "./layout";
import { Splitter } from "./Splitter";

export function App() {
  const sizes = {
    "--side": `${side_width.value}px`,
    "--dock": `${dock_height.value}px`,
    "--graph": `${graph_height.value}px`,
  };
  return (
    <div class="app" style={sizes}>
      <TitleBar />
      <Banners />
      <div class="app-body">
        <div class="app-left">
          <ViewerBar />
          <main class="pane pane-view" aria-label="Viewer">
            <Viewer />
          </main>
          <Splitter size={dock_height} grows="up" least={0} most={480} label="Height of the panels below" />
          <Timeline />
          <DockTabs />
          <DockPanel />
        </div>
        <Splitter size={side_width} grows="left" least={260} most={760} label="Width of graph and knobs" />
        <div class="app-right">
          <section class="pane" aria-label="Graph">
            <Graph />
          </section>
          <Splitter size={graph_height} grows="down" least={80} most={600} label="Height of the graph" />
          <section class="pane" aria-label="Knobs">
            <Knobs />
          </section>
        </div>
      </div>
      <Palette />
      <KeyList />
    </div>
  );
}
