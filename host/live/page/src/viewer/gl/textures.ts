import type { Pixels } from "../../protocol";
import type { Picture } from "../../state";
import { complete } from "../pixels";

interface Held {
  texture: WebGLTexture;
  pixels: Pixels;
  width: number;
  height: number;
}

type Layout = { internal: number; format: number; type: number; view: (data: ArrayBuffer) => ArrayBufferView };

function layout_of(gl: WebGL2RenderingContext, pixels: Pixels): Layout {
  switch (pixels) {
    case "rgba16f":
      return { internal: gl.RGBA16F, format: gl.RGBA, type: gl.HALF_FLOAT, view: (data) => new Uint16Array(data) };
    case "r11g11b10f":
      return {
        internal: gl.R11F_G11F_B10F,
        format: gl.RGB,
        type: gl.UNSIGNED_INT_10F_11F_11F_REV,
        view: (data) => new Uint32Array(data),
      };
    case "rgba8":
      return { internal: gl.RGBA8, format: gl.RGBA, type: gl.UNSIGNED_BYTE, view: (data) => new Uint8Array(data) };
  }
}

export function new_texture(gl: WebGL2RenderingContext, target: number, filter: number = gl.NEAREST): WebGLTexture {
  const texture = gl.createTexture();
  gl.bindTexture(target, texture);
  for (const side of [gl.TEXTURE_WRAP_S, gl.TEXTURE_WRAP_T]) gl.texParameteri(target, side, gl.CLAMP_TO_EDGE);
  for (const way of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) gl.texParameteri(target, way, filter);
  return texture;
}

// The textures of one slot. Two sizes are kept: the small images while something moves and the full one at rest.
export class PictureTexture {
  private held: Held[] = []; // the last used first
  private shown: Picture | null = null;

  constructor(private readonly gl: WebGL2RenderingContext) {}

  // The picture's texture, uploaded unless it is the last one; null where it cannot be shown.
  texture_of(picture: Picture | null): WebGLTexture | null {
    if (picture && picture === this.shown) return this.held[0]?.texture ?? null;
    if (!picture || !complete(picture) || !this.fits(picture)) return null;
    const held = this.room_for(picture);
    const gl = this.gl;
    const { width, height, pixels } = picture.header;
    const layout = layout_of(gl, pixels);
    gl.bindTexture(gl.TEXTURE_2D, held.texture);
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    gl.texSubImage2D(gl.TEXTURE_2D, 0, 0, 0, width, height, layout.format, layout.type, layout.view(picture.data));
    this.held = [held, ...this.held.filter((each) => each !== held)];
    this.shown = picture;
    return held.texture;
  }

  fits(picture: Picture): boolean {
    const most = this.gl.getParameter(this.gl.MAX_TEXTURE_SIZE) as number;
    return picture.header.width <= most && picture.header.height <= most;
  }

  private room_for(picture: Picture): Held {
    const { width, height, pixels } = picture.header;
    const same = this.held.find((each) => each.width === width && each.height === height && each.pixels === pixels);
    if (same) return same;
    const gl = this.gl;
    while (this.held.length > 1) gl.deleteTexture(this.held.pop()!.texture);
    const texture = new_texture(gl, gl.TEXTURE_2D, gl.LINEAR);
    gl.texStorage2D(gl.TEXTURE_2D, 1, layout_of(gl, pixels).internal, width, height);
    return { texture, pixels, width, height };
  }
}
