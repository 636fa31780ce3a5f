import { dragging } from "../state";

// A movement of the hand that is one step of the document. What is dragged gives the key on to `edit`.
let count = 0;

export function start_drag(): string {
  dragging.value = true;
  return `drag ${++count}`;
}

export function end_drag(): void {
  dragging.value = false;
}

// Follows the pointer from the one that went down until it is let go or Escape is pressed; `moved` gets the way so
// far and the event, `done` whether it holds.
export function follow_pointer(
  event: PointerEvent,
  moved: (x: number, y: number, event: PointerEvent) => void,
  done: (held: boolean) => void = () => undefined,
): void {
  const at = event.currentTarget as Element;
  at.setPointerCapture(event.pointerId);
  const stop = new AbortController();
  const finish = (held: boolean) => {
    if (stop.signal.aborted) return;
    stop.abort();
    if (at.hasPointerCapture(event.pointerId)) at.releasePointerCapture(event.pointerId);
    done(held);
  };
  const options = { signal: stop.signal };
  const follow = (move: Event) => {
    const now = move as PointerEvent;
    moved(now.clientX - event.clientX, now.clientY - event.clientY, now);
  };
  at.addEventListener("pointermove", follow, options);
  at.addEventListener("pointerup", () => finish(true), options);
  at.addEventListener("pointercancel", () => finish(false), options);
  at.addEventListener("lostpointercapture", () => finish(true), options);
  // What is held may leave the page meanwhile, and hears nothing then.
  addEventListener("pointerup", () => finish(true), options);
  const key = (pressed: KeyboardEvent) => {
    if (pressed.key !== "Escape") return;
    pressed.stopPropagation();
    finish(false);
  };
  addEventListener("keydown", key, { ...options, capture: true });
}
