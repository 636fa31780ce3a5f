import type { Signal } from "@preact/signals";
import { useLayoutEffect, useRef } from "preact/hooks";

// A drawing that keeps `size` at its own and takes the wheel to itself: a listener of preact would be passive.
export function useSurface(size: Signal<{ width: number; height: number }>, turn_wheel: (event: WheelEvent) => void) {
  const surface = useRef<SVGSVGElement>(null);
  useLayoutEffect(() => {
    const element = surface.current;
    if (!element) return undefined;
    const measure = () => {
      size.value = { width: element.clientWidth, height: element.clientHeight };
    };
    measure();
    const observer = new ResizeObserver(measure);
    observer.observe(element);
    element.addEventListener("wheel", turn_wheel, { passive: false });
    return () => {
      observer.disconnect();
      element.removeEventListener("wheel", turn_wheel);
    };
  }, []);
  return surface;
}
