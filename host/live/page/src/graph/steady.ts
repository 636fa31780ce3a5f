import { effect, untracked } from "@preact/signals";
import { selected_node } from "../state";
import type { Point } from "./boxes";
import { camera, pan, panel, to_graph } from "./camera";
import { layout } from "./layout";

// What somebody looks at stays where it is on the screen while the nodes around it find other places: the selected node
// where it is seen, else the one nearest to the middle of the panel.
let before = layout.peek().places;
effect(() => {
  const { places } = layout.value;
  untracked(() => keep_still(before, places));
  before = places;
});

function keep_still(old: Map<string, Point>, now: Map<string, Point>): void {
  const { width, height } = panel.value;
  const corner = to_graph(0, 0);
  const end = to_graph(width, height);
  const is_seen = ({ x, y }: Point) => x >= corner.x && x <= end.x && y >= corner.y && y <= end.y;
  const away = ({ x, y }: Point) => Math.hypot(x - (corner.x + end.x) / 2, y - (corner.y + end.y) / 2);
  let still: [Point, Point] | null = null;
  for (const [name, was] of old) {
    const is = now.get(name);
    if (!is || !is_seen(was)) continue;
    if (name === selected_node.value) {
      still = [was, is];
      break;
    }
    if (!still || away(was) < away(still[0])) still = [was, is];
  }
  if (!still) return;
  const { scale } = camera.value;
  const [was, is] = still;
  if (was.x !== is.x || was.y !== is.y) pan((was.x - is.x) * scale, (was.y - is.y) * scale);
}
