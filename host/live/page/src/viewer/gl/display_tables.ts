import type { DisplayShader } from "../../protocol";
import type { Program } from "./program";
import { new_texture } from "./textures";

type Table = DisplayShader["tables"][number];

interface Held {
  table: Table;
  target: number;
  texture: WebGLTexture;
}

function floats_of(text: string): Float32Array {
  const octets = Uint8Array.from(atob(text), (letter) => letter.charCodeAt(0));
  return new Float32Array(octets.buffer, 0, octets.length >> 2);
}

// The tables of a display's conversion as textures, from the third unit on. Their texels are fetched one by one, so
// that no filtering of 32-bit floats is asked for.
export class DisplayTables {
  private readonly held = new Map<string, Held>();

  constructor(
    private readonly gl: WebGL2RenderingContext,
    private readonly tables: Table[],
  ) {}

  // Of a program in use.
  bind(program: Program): void {
    const gl = this.gl;
    for (const [index, table] of this.tables.entries()) {
      const place = program.place(table.sampler);
      if (!place) continue; // nothing reads it
      const unit = 2 + index;
      gl.activeTexture(gl.TEXTURE0 + unit);
      const held = this.held.get(table.sampler) ?? this.upload(table, program.is_volume(table.sampler));
      gl.bindTexture(held.target, held.texture);
      gl.uniform1i(place, unit);
    }
  }

  dispose(): void {
    for (const each of this.held.values()) this.gl.deleteTexture(each.texture);
  }

  private upload(table: Table, volume: boolean): Held {
    const gl = this.gl;
    const target = volume ? gl.TEXTURE_3D : gl.TEXTURE_2D;
    const texture = new_texture(gl, target);
    const values = floats_of(table.rgba);
    const { width, height, depth } = table;
    if (volume) {
      gl.texParameteri(target, gl.TEXTURE_WRAP_R, gl.CLAMP_TO_EDGE);
      gl.texImage3D(target, 0, gl.RGBA32F, width, height, depth, 0, gl.RGBA, gl.FLOAT, values);
    } else {
      const rows = Math.max(1, height) * Math.max(1, depth);
      gl.texImage2D(target, 0, gl.RGBA32F, width, rows, 0, gl.RGBA, gl.FLOAT, values);
    }
    const held = { table, target, texture };
    this.held.set(table.sampler, held);
    return held;
  }
}
