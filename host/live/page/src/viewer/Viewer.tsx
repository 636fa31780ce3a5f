import { useEffect, useRef } from "preact/hooks";
import { compare, dragging, frame_problem, paused, picture_a, playhead, selected_node } from "../state";
import { display_name, follow_display } from "./display";
import { follow_gestures } from "./gestures";
import "./keys";
import { Legend } from "./Legend";
import { Painter, set_painter } from "./painter";
import { follow_probe } from "./probing";
import { Probe } from "./Probe";
import { Region } from "./Region";
import { canvas_size, viewer_message, waiting } from "./settings";
import "./viewer.css";
import { Sides } from "./Sides";

// What the browser tells where that is near to what is reckoned: with a screen that is only simulated it is not.
function device_pixels(exact: number | undefined, reckoned: number): number {
  return exact !== undefined && Math.abs(exact - reckoned) < 2 ? exact : Math.round(reckoned);
}

// Device pixels of an element.
function follow_size(element: HTMLElement): () => void {
  const measure = (entry?: ResizeObserverEntry): void => {
    const ratio = window.devicePixelRatio || 1;
    const exact = entry?.devicePixelContentBoxSize?.[0];
    const width = device_pixels(exact?.inlineSize, element.clientWidth * ratio);
    const height = device_pixels(exact?.blockSize, element.clientHeight * ratio);
    const now = canvas_size.peek();
    if (now.width === width && now.height === height && now.ratio === ratio) return;
    canvas_size.value = { width, height, ratio };
  };
  const observer = new ResizeObserver((entries) => measure(entries.at(-1)));
  try {
    observer.observe(element, { box: "device-pixel-content-box" });
  } catch {
    observer.observe(element); // not every browser knows that box
  }
  measure();
  return () => observer.disconnect();
}

function picture_words(): string {
  const header = picture_a.value?.header;
  if (!header) return "No picture yet";
  const { width, height } = header.format;
  const beside = compare.value.mode === "off" ? "" : ", compared with B";
  return `Picture of ${header.node}, frame ${header.frame}, ${width} by ${height}${beside}`;
}

function Waiting() {
  if (!waiting.value || paused.value || frame_problem.value) return null;
  return (
    <div class="viewer-waiting" role="status">
      drawing frame {playhead.value}
    </div>
  );
}

function Message() {
  const problem = frame_problem.value;
  if (problem) {
    return (
      <div class="viewer-message viewer-error" role="alert">
        {problem.node && (
          <button type="button" onClick={() => (selected_node.value = problem.node)}>
            {problem.node}
          </button>
        )}
        <span>{problem.message}</span>
      </div>
    );
  }
  if (!viewer_message.value) return null;
  return (
    <div class="viewer-message" role="status">
      {viewer_message.value}
    </div>
  );
}

export function Viewer() {
  const stage = useRef<HTMLDivElement>(null);
  const picture = useRef<HTMLCanvasElement>(null);
  const overlay = useRef<HTMLCanvasElement>(null);
  useEffect(() => {
    if (!stage.current || !picture.current || !overlay.current) return;
    const painter = new Painter(picture.current, overlay.current);
    set_painter(painter);
    const endings = [
      follow_size(stage.current),
      follow_gestures(overlay.current),
      follow_probe(),
      follow_display(),
      () => painter.dispose(),
      () => set_painter(null),
    ];
    return () => {
      for (const end of endings) end();
    };
  }, []);

  const header = picture_a.value?.header;
  return (
    <section
      class="viewer"
      aria-label="Viewer"
      data-part="viewer"
      data-node={header?.node}
      data-frame={header?.frame}
      data-version={header?.version}
      data-scale={header?.scale}
      data-pixels={header?.pixels}
      data-display={display_name.value}
      data-moving={dragging.value ? "" : undefined}
    >
      <div class="viewer-stage" ref={stage}>
        <canvas ref={picture} data-part="viewer-picture" role="img" aria-label={picture_words()} />
        <canvas ref={overlay} data-part="viewer-overlay" tabIndex={0} role="group" aria-label="Picture: drag to pan, wheel to zoom, Shift and drag to sample" />
        <Sides />
        <Legend />
        <Region />
        <Waiting />
        <Message />
      </div>
      <Probe />
    </section>
  );
}
