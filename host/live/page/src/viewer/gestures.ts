import { sample, zoom } from "../state";
import { to_format, type Point } from "./geometry";
import { found } from "./bad_pixels";
import { fit, pan_by, set_zoom, zoom_by } from "./navigate";
import { view } from "./scene";
import { canvas_size, marked, pointer } from "./settings";

// What mouse, pen and fingers do on the picture: dragging pans, the wheel and two fingers zoom about where they
// are, dragging with Shift samples a rectangle. Returns what ends it.
export function follow_gestures(element: HTMLElement): () => void {
  const gestures = new Gestures(element);
  const ending = new AbortController();
  const on = <Name extends keyof HTMLElementEventMap>(
    name: Name,
    run: (event: HTMLElementEventMap[Name]) => void,
    passive = true,
  ): void => element.addEventListener(name, run, { signal: ending.signal, passive });
  on("pointerdown", (event) => gestures.down(event), false);
  on("pointermove", (event) => gestures.move(event));
  on("pointerup", (event) => gestures.up(event));
  on("pointercancel", (event) => gestures.up(event));
  on("pointerleave", () => gestures.leave());
  on("dblclick", (event) => gestures.twice(event));
  on("wheel", (event) => gestures.wheel(event), false);
  return () => ending.abort();
}

const lines = 16; // pixels of a line where the wheel counts lines

class Gestures {
  private readonly fingers = new Map<number, Point>();
  private sampling: Point | null = null; // where the rectangle was begun, of the format

  constructor(private readonly element: HTMLElement) {}

  down(event: PointerEvent): void {
    if (event.button === 2) return;
    event.preventDefault(); // no text is marked, no page is scrolled by the middle button
    this.element.setPointerCapture(event.pointerId);
    const place = this.place_of(event);
    this.fingers.set(event.pointerId, place);
    if (!event.shiftKey || event.button !== 0) return;
    this.sampling = to_format(view.value, place.x, place.y);
    sample.value = null;
  }

  move(event: PointerEvent): void {
    const place = this.place_of(event);
    const before = this.fingers.get(event.pointerId);
    if (before) {
      this.drag(event.pointerId, before, place);
      this.fingers.set(event.pointerId, place);
    }
    pointer.value = to_format(view.value, place.x, place.y); // after the picture went along
    if (!found.value) marked.value = null;
  }

  up(event: PointerEvent): void {
    this.fingers.delete(event.pointerId);
    this.sampling = null;
  }

  leave(): void {
    if (this.fingers.size === 0) pointer.value = null;
  }

  wheel(event: WheelEvent): void {
    event.preventDefault();
    const amount = event.deltaMode === WheelEvent.DOM_DELTA_LINE ? event.deltaY * lines : event.deltaY;
    const held = Math.min(240, Math.max(-240, amount));
    const place = this.place_of(event);
    zoom_by(Math.exp(-held * (event.ctrlKey ? 0.01 : 0.0025)), place); // with Ctrl it is a pinch on a pad
    pointer.value = to_format(view.value, place.x, place.y);
  }

  // Between the whole picture and one pixel on one, at the place.
  twice(event: MouseEvent): void {
    if (event.shiftKey) return;
    if (zoom.value === "fit") set_zoom(1, this.place_of(event));
    else fit();
  }

  private place_of(event: MouseEvent): Point {
    const box = this.element.getBoundingClientRect();
    const { ratio } = canvas_size.value;
    return { x: (event.clientX - box.left) * ratio, y: (event.clientY - box.top) * ratio };
  }

  private drag(finger: number, before: Point, now: Point): void {
    if (this.sampling) this.stretch(this.sampling, to_format(view.value, now.x, now.y));
    else if (this.fingers.size === 2) this.pinch(finger, before, now);
    else pan_by(now.x - before.x, now.y - before.y);
  }

  private pinch(finger: number, before: Point, now: Point): void {
    const other = [...this.fingers].find(([each]) => each !== finger)?.[1];
    if (!other) return;
    const apart = (place: Point): number => Math.max(1, Math.hypot(place.x - other.x, place.y - other.y));
    pan_by((now.x - before.x) / 2, (now.y - before.y) / 2);
    zoom_by(apart(now) / apart(before), { x: (now.x + other.x) / 2, y: (now.y + other.y) / 2 });
  }

  // Whole pixels, at least one.
  private stretch(from: Point, to: Point): void {
    sample.value = {
      x0: Math.floor(Math.min(from.x, to.x)),
      y0: Math.floor(Math.min(from.y, to.y)),
      x1: Math.floor(Math.max(from.x, to.x)) + 1,
      y1: Math.floor(Math.max(from.y, to.y)) + 1,
    };
  }
}
