import { effect } from "@preact/signals";
import type { Box } from "../protocol";
import { picture_a, view_scale } from "../state";
import { display_shader, said } from "./display";
import { useful_scale } from "./geometry";
import { Renderer, type Scene } from "./gl/renderer";
import { SampleReader } from "./gl/samples";
import { draw_overlay, overlay_key } from "./overlay";
import { scene, view } from "./scene";
import { canvas_size, say } from "./settings";

// Keeps the two canvases of the viewer up to date: draws once after anything they show has changed and does
// nothing else. One is there while the viewer is on the page.
export class Painter {
  private renderer: Renderer | null = null;
  private samples: SampleReader | null = null;
  private asked = 0; // of requestAnimationFrame
  private overlay_drawn = "";
  private surround: [number, number, number] = [0.1, 0.1, 0.1];
  private readonly endings: (() => void)[] = [];

  constructor(
    private readonly canvas: HTMLCanvasElement,
    private readonly overlay: HTMLCanvasElement,
  ) {
    this.listen();
    this.read_theme();
    this.start();
    this.endings.push(
      effect(() => {
        scene.value;
        display_shader.value;
        overlay_key.value;
        this.ask();
      }),
      effect(() => {
        if (canvas_size.value.width > 0) view_scale.value = useful_scale(view.value);
      }),
    );
  }

  dispose(): void {
    for (const end of this.endings) end();
    cancelAnimationFrame(this.asked);
  }

  // A part of picture A as the screen would show it, small; null where there is none.
  async read_samples(box: Box, width: number, height: number): Promise<Uint8Array | null> {
    return this.samples ? this.samples.read(this.whole_scene(), box, width, height) : null;
  }

  private whole_scene(): Scene {
    return { ...scene.value, surround: this.surround };
  }

  private start(): void {
    try {
      this.renderer = new Renderer(this.canvas);
      this.samples = new SampleReader(this.renderer);
      say("context", "");
    } catch (error) {
      say("context", said(error));
    }
  }

  private listen(): void {
    const on = <T extends EventTarget>(target: T, name: string, run: (event: Event) => void): void => {
      target.addEventListener(name, run);
      this.endings.push(() => target.removeEventListener(name, run));
    };
    on(this.canvas, "webglcontextlost", (event) => {
      event.preventDefault(); // or it would never be restored
      this.renderer = null;
      this.samples = null;
      say("context", "The graphics driver gave up; the picture comes back as soon as it does.");
    });
    on(this.canvas, "webglcontextrestored", () => {
      this.start();
      this.ask();
    });
    const themed = (): void => {
      this.read_theme();
      this.ask();
    };
    const watch = new MutationObserver(themed);
    watch.observe(document.documentElement, { attributes: true, attributeFilter: ["data-theme"] });
    this.endings.push(() => watch.disconnect());
  }

  private read_theme(): void {
    const grey = Number.parseFloat(getComputedStyle(this.canvas).getPropertyValue("--viewer-surround")) || 0.1;
    this.surround = [grey, grey, grey];
  }

  private ask(): void {
    if (this.asked) return;
    this.asked = requestAnimationFrame(() => {
      this.asked = 0;
      this.paint();
    });
  }

  private paint(): void {
    const { width, height } = canvas_size.value;
    if (width < 1 || height < 1) return;
    this.resize(this.canvas, width, height);
    if (this.resize(this.overlay, width, height)) this.overlay_drawn = "";
    this.paint_picture();
    if (this.overlay_drawn === overlay_key.value) return;
    this.overlay_drawn = overlay_key.value;
    const context = this.overlay.getContext("2d");
    if (context) draw_overlay(context);
  }

  private paint_picture(): void {
    if (!this.renderer) return;
    const large = this.renderer.too_large(picture_a.value);
    say("size", large ? "The picture is larger than this browser can show at once." : "");
    try {
      this.renderer.set_display(display_shader.value);
      this.renderer.draw(this.whole_scene());
    } catch (error) {
      say("display", `The display's conversion does not run here: ${said(error)}`);
      this.renderer.set_display(null);
      this.renderer.draw(this.whole_scene());
    }
  }

  // Setting a canvas's size clears it, so only where it is another one.
  private resize(canvas: HTMLCanvasElement, width: number, height: number): boolean {
    if (canvas.width === width && canvas.height === height) return false;
    canvas.width = width;
    canvas.height = height;
    return true;
  }
}

let present: Painter | null = null;

export function set_painter(painter: Painter | null): void {
  present = painter;
}

// Of the viewer that is on the page.
export async function read_samples(box: Box, width: number, height: number): Promise<Uint8Array | null> {
  return present ? present.read_samples(box, width, height) : null;
}
