import type { Box, DisplayShader } from "../../protocol";
import type { Channels, Picture } from "../../state";
import { type Size, to_canvas, type View } from "../geometry";
import { DisplayTables } from "./display_tables";
import { Program } from "./program";
import { fragment_text, loud_colours, type modes, type Variant } from "./shader";
import { new_texture, PictureTexture } from "./textures";

export interface Scene {
  a: Picture | null;
  b: Picture | null;
  view: View;
  size: Size;
  mode: keyof typeof modes;
  wipe: number; // 0..1 of the canvas's width
  gain: number;
  exposure: number; // stops
  gamma: number;
  channels: Channels;
  checker: boolean;
  loud: boolean;
  dither: boolean;
  quick: boolean; // speed before exact means of pixels: while it plays
  surround: [number, number, number]; // 0..1 of the screen
}

type Four = [number, number, number, number];

function map_of(picture: Picture | null, view: View): Four {
  if (!picture) return [-1e6, -1e6, 0, 0]; // far outside of it
  const { area, width, height } = picture.header;
  const across = width / (area[2] - area[0]);
  const down = height / (area[3] - area[1]);
  return [
    (view.left - area[0]) * across,
    (area[3] - view.top) * down,
    across / view.across,
    down / view.down,
  ];
}

// Left, top, right, bottom on the canvas.
function box_on(view: View, [x0, y0, x1, y1]: Box): Four {
  const first = to_canvas(view, x0, y1);
  const second = to_canvas(view, x1, y0);
  return [first.x, first.y, second.x, second.y];
}

function box_of(scene: Scene): Four {
  const format = (scene.a ?? scene.b)?.header.format ?? { width: 0, height: 0 };
  return box_on(scene.view, [0, 0, format.width, format.height]);
}

const unit_colour = (colour: readonly number[]): number[] => colour.map((each) => each / 255);

// Draws pictures on a canvas's WebGL2 context. Nothing is kept between contexts: when one was lost a new
// Renderer is made. Throws where there is no WebGL2.
export class Renderer {
  readonly gl: WebGL2RenderingContext;
  private readonly slots: { a: PictureTexture; b: PictureTexture };
  private readonly nothing: WebGLTexture;
  private readonly programs = new Map<string, Program>();
  private display: DisplayShader | null = null;
  private tables: DisplayTables;

  constructor(canvas: HTMLCanvasElement | OffscreenCanvas) {
    const wanted = { alpha: false, antialias: false, depth: false, stencil: false, preserveDrawingBuffer: false };
    const gl = canvas.getContext("webgl2", wanted) as WebGL2RenderingContext | null;
    if (!gl) throw new Error("This browser has no WebGL 2, so the picture cannot be shown.");
    this.gl = gl;
    this.tables = new DisplayTables(gl, []);
    this.slots = { a: new PictureTexture(gl), b: new PictureTexture(gl) };
    this.nothing = new_texture(gl, gl.TEXTURE_2D);
    gl.texStorage2D(gl.TEXTURE_2D, 1, gl.RGBA8, 1, 1);
    gl.bindVertexArray(gl.createVertexArray());
  }

  set_display(display: DisplayShader | null): void {
    if (display === this.display) return;
    for (const program of this.programs.values()) program.dispose();
    this.programs.clear();
    this.tables.dispose();
    this.tables = new DisplayTables(this.gl, display?.tables ?? []);
    this.display = display;
  }

  // Whether the picture is too large for this browser.
  too_large(picture: Picture | null): boolean {
    return picture !== null && !this.slots.a.fits(picture);
  }

  // Throws what the compiler says to the display's conversion.
  draw(scene: Scene): void {
    this.gl.bindFramebuffer(this.gl.FRAMEBUFFER, null);
    this.paint(scene, false);
  }

  // Draws A alone in `size`, each pixel that of the nearest of the picture, into what is bound.
  draw_samples(scene: Scene): void {
    const plain: Scene = { ...scene, mode: "off", channels: "rgb", checker: false, loud: false, dither: false };
    this.paint(plain, true);
  }

  private paint(scene: Scene, point: boolean): void {
    const gl = this.gl;
    gl.activeTexture(gl.TEXTURE0);
    const a = this.slots.a.texture_of(scene.a);
    const b = scene.mode === "off" ? null : this.slots.b.texture_of(scene.b);
    const map_a = map_of(a ? scene.a : null, scene.view);
    const map_b = map_of(b ? scene.b : null, scene.view);
    const most = Math.max(map_a[2], map_a[3], map_b[2], map_b[3]); // pixels of a picture on one of the screen
    const blend = scene.quick && !scene.loud && most < 2;
    const sampling = point || most < 1.0001 ? "nearest" : blend ? "blend" : "mean";
    const program = this.program_for(scene, sampling);
    program.use();
    this.tables.bind(program);
    for (const [unit, name, texture, map] of [
      [0, "a", a, map_a],
      [1, "b", b, map_b],
    ] as const) {
      gl.activeTexture(gl.TEXTURE0 + unit);
      gl.bindTexture(gl.TEXTURE_2D, texture ?? this.nothing);
      gl.uniform1i(program.place(`picture_${name}`), unit);
      gl.uniform4fv(program.place(`map_${name}`), map);
    }
    gl.uniform4fv(program.place("format_box"), point ? [-1e9, -1e9, 1e9, 1e9] : box_of(scene));
    this.set_uniforms(scene, program);
    gl.viewport(0, 0, scene.size.width, scene.size.height);
    if (point || scene.mode === "side") gl.drawArrays(gl.TRIANGLES, 0, 3);
    else this.draw_within(scene, b);
  }

  // Where neither format nor pictures are there is the surround, which a software driver clears faster.
  private draw_within(scene: Scene, b: WebGLTexture | null): void {
    const gl = this.gl;
    const boxes = [box_of(scene)];
    for (const picture of [scene.a, b ? scene.b : null]) if (picture) boxes.push(box_on(scene.view, picture.header.area));
    const { width, height } = scene.size;
    const held = (value: number, most: number): number => Math.min(most, Math.max(0, value));
    const left = held(Math.floor(Math.min(...boxes.map((box) => box[0]))) - 1, width);
    const top = held(Math.floor(Math.min(...boxes.map((box) => box[1]))) - 1, height);
    const right = held(Math.ceil(Math.max(...boxes.map((box) => box[2]))) + 1, width);
    const bottom = held(Math.ceil(Math.max(...boxes.map((box) => box[3]))) + 1, height);
    gl.clearColor(...scene.surround, 1);
    gl.clear(gl.COLOR_BUFFER_BIT);
    gl.enable(gl.SCISSOR_TEST);
    gl.scissor(left, height - bottom, Math.max(0, right - left), Math.max(0, bottom - top));
    gl.drawArrays(gl.TRIANGLES, 0, 3);
    gl.disable(gl.SCISSOR_TEST);
  }

  private program_for(scene: Scene, sampling: Variant["sampling"]): Program {
    const { mode, channels, loud, dither } = scene;
    const checker = scene.checker && mode !== "difference";
    const variant = { mode, channels, sampling, gamma: scene.gamma !== 1, checker, loud, dither };
    const key = JSON.stringify(variant);
    const present = this.programs.get(key);
    if (present) return present;
    const made = new Program(this.gl, fragment_text(this.display?.shader ?? "", variant));
    this.programs.set(key, made);
    return made;
  }

  private set_uniforms(scene: Scene, program: Program): void {
    const { gl } = this;
    const { width, height, ratio } = scene.size;
    const number = (name: string, value: number): void => gl.uniform1f(program.place(name), value);
    gl.uniform2f(program.place("canvas"), width, height);
    number("border", scene.mode === "side" ? scene.view.panel : scene.wipe * width);
    number("gain", scene.gain);
    number("exposure", 2 ** scene.exposure);
    number("gamma", 1 / scene.gamma);
    number("checker_size", 10 * ratio);
    gl.uniform3fv(program.place("loud_nan"), unit_colour(loud_colours.nan));
    gl.uniform3fv(program.place("loud_infinite"), unit_colour(loud_colours.infinite));
    gl.uniform3fv(program.place("loud_negative"), unit_colour(loud_colours.negative));
    gl.uniform3fv(program.place("surround"), scene.surround);
  }
}
