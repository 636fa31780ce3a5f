import { follow_pointer } from "../document/drag";
import { camera, pan, to_graph, zoom_about } from "./camera";
import { show_node } from "./pick";
import { begin_from_input, begin_from_output, end_wire, move_wire, wire } from "./wiring";

const still = 4; // pixels that a click may move

function in_panel(event: MouseEvent, surface: Element): [number, number] {
  const box = surface.getBoundingClientRect();
  return [event.clientX - box.left, event.clientY - box.top];
}

export function turn_wheel(event: WheelEvent): void {
  event.preventDefault();
  const lines = event.deltaMode === 1 ? 16 : 1;
  if (event.shiftKey) {
    pan(-event.deltaX * lines - event.deltaY * lines, 0);
    return;
  }
  const [x, y] = in_panel(event, event.currentTarget as Element);
  zoom_about(x, y, Math.exp(-Math.max(-120, Math.min(120, event.deltaY * lines)) * 0.0025));
}

// A port gives an edge into the hand, an edge its lower end; a node is clicked; all else moves the graph.
export function grab(event: PointerEvent): void {
  const surface = event.currentTarget as SVGElement;
  const at = event.target as Element;
  surface.focus({ preventScroll: true });
  if (event.button > 1) return;
  const node = at.closest("[data-node]")?.getAttribute("data-node") ?? null;
  const port = at.closest("[data-port]");
  const output = at.closest("[data-output]");
  const edge = at.closest("[data-reader]");
  const place = to_graph(...in_panel(event, surface));
  if (event.button === 0 && node !== null && port) {
    begin_from_input(node, Number(port.getAttribute("data-input")), place);
  } else if (event.button === 0 && node !== null && output) {
    begin_from_output(node, place);
  } else if (event.button === 0 && edge) {
    begin_from_input(edge.getAttribute("data-reader") ?? "", Number(edge.getAttribute("data-input")), place);
  }
  if (wire.value) {
    follow_pointer(event, (_x, _y, move) => move_wire(to_graph(...in_panel(move, surface))), end_wire);
    return;
  }
  const start = camera.value;
  let moved = false;
  follow_pointer(
    event,
    (x, y) => {
      moved ||= Math.hypot(x, y) > still;
      if (moved) camera.value = { ...start, x: start.x + x, y: start.y + y };
    },
    () => {
      if (!moved && node !== null && event.button === 0) show_node(node);
    },
  );
}
