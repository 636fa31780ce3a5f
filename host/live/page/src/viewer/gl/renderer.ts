import type { DisplayShader } from "../../protocol";
import type { Channels, Picture } from "../../state";
import type { Size, View } from "../geometry";
import { Program } from "./program";
import { channel_numbers, loud_colours, modes } from "./shader";
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

function box_of(scene: Scene): Four {
  const format = (scene.a ?? scene.b)?.header.format ?? { width: 0, height: 0 };
  const { view } = scene;
  return [
    -view.left * view.across,
    (view.top - format.height) * view.down,
    (format.width - view.left) * view.across,
    view.top * view.down,
  ];
}

const unit_colour = (colour: readonly number[]): number[] => colour.map((each) => each / 255);

// Draws pictures on a canvas's WebGL2 context. Nothing is kept between contexts: when one was lost a new
// Renderer is made. Throws where there is no WebGL2.
export class Renderer {
  readonly gl: WebGL2RenderingContext;
  private readonly slots: { a: PictureTexture; b: PictureTexture };
  private readonly nothing: WebGLTexture;
  private display: DisplayShader | null = null;
  private program: Program;

  constructor(canvas: HTMLCanvasElement | OffscreenCanvas) {
    const wanted = { alpha: false, antialias: false, depth: false, stencil: false, preserveDrawingBuffer: false };
    const gl = canvas.getContext("webgl2", wanted) as WebGL2RenderingContext | null;
    if (!gl) throw new Error("This browser has no WebGL 2, so the picture cannot be shown.");
    this.gl = gl;
    this.program = new Program(gl, null);
    this.slots = { a: new PictureTexture(gl), b: new PictureTexture(gl) };
    this.nothing = new_texture(gl, gl.TEXTURE_2D);
    gl.texStorage2D(gl.TEXTURE_2D, 1, gl.RGBA8, 1, 1);
    gl.bindVertexArray(gl.createVertexArray());
  }

  // Throws what the compiler says and stays with the display before.
  set_display(display: DisplayShader | null): void {
    if (display === this.display) return;
    const next = new Program(this.gl, display);
    this.program.dispose();
    this.program = next;
    this.display = display;
  }

  // Whether the picture is too large for this browser.
  too_large(picture: Picture | null): boolean {
    return picture !== null && !this.slots.a.fits(picture);
  }

  draw(scene: Scene): void {
    const gl = this.gl;
    gl.bindFramebuffer(gl.FRAMEBUFFER, null);
    this.paint(scene, false);
  }

  // Draws A alone in `size`, each pixel that of the nearest of the picture, into what is bound.
  draw_samples(scene: Scene): void {
    const plain: Scene = { ...scene, mode: "off", channels: "rgb", checker: false, loud: false, dither: false };
    this.paint(plain, true);
  }

  private paint(scene: Scene, point: boolean): void {
    const gl = this.gl;
    const { program } = this;
    const two = scene.mode !== "off";
    gl.activeTexture(gl.TEXTURE0);
    const a = this.slots.a.texture_of(scene.a);
    const b = two ? this.slots.b.texture_of(scene.b) : null;
    program.use();
    gl.activeTexture(gl.TEXTURE0);
    gl.bindTexture(gl.TEXTURE_2D, a ?? this.nothing);
    gl.activeTexture(gl.TEXTURE1);
    gl.bindTexture(gl.TEXTURE_2D, b ?? this.nothing);
    gl.uniform1i(program.place("picture_a"), 0);
    gl.uniform1i(program.place("picture_b"), 1);
    gl.uniform4fv(program.place("map_a"), map_of(a ? scene.a : null, scene.view));
    gl.uniform4fv(program.place("map_b"), map_of(b ? scene.b : null, scene.view));
    this.set_uniforms(scene, point);
    gl.viewport(0, 0, scene.size.width, scene.size.height);
    gl.drawArrays(gl.TRIANGLES, 0, 3);
  }

  private set_uniforms(scene: Scene, point: boolean): void {
    const { gl, program } = this;
    const number = (name: string, value: number): void => gl.uniform1f(program.place(name), value);
    const whole = (name: string, value: number | boolean): void => gl.uniform1i(program.place(name), Number(value));
    gl.uniform2f(program.place("canvas"), scene.size.width, scene.size.height);
    gl.uniform4fv(program.place("format_box"), point ? [-1e9, -1e9, 1e9, 1e9] : box_of(scene));
    whole("mode", modes[scene.mode]);
    number("wipe", scene.wipe * scene.size.width);
    number("panel", scene.view.panel);
    number("gain", scene.gain);
    number("exposure", 2 ** scene.exposure);
    number("gamma", 1 / scene.gamma);
    whole("channels", channel_numbers[scene.channels]);
    whole("point", point);
    whole("checker", scene.checker);
    number("checker_size", 10 * scene.size.ratio);
    whole("loud", scene.loud);
    gl.uniform3fv(program.place("loud_nan"), unit_colour(loud_colours.nan));
    gl.uniform3fv(program.place("loud_infinite"), unit_colour(loud_colours.infinite));
    gl.uniform3fv(program.place("loud_negative"), unit_colour(loud_colours.negative));
    whole("dither", scene.dither);
    gl.uniform3fv(program.place("surround"), scene.surround);
  }
}
