import type { DisplayShader } from "../../protocol";
import { fragment_text, vertex_text } from "./shader";
import { new_texture } from "./textures";

function compiled(gl: WebGL2RenderingContext, kind: number, text: string): WebGLShader {
  const shader = gl.createShader(kind)!;
  gl.shaderSource(shader, text);
  gl.compileShader(shader);
  if (!gl.getShaderParameter(shader, gl.COMPILE_STATUS) && !gl.isContextLost())
    throw new Error(gl.getShaderInfoLog(shader) ?? "the shader does not compile");
  return shader;
}

function floats_of(text: string): Float32Array {
  const octets = Uint8Array.from(atob(text), (letter) => letter.charCodeAt(0));
  return new Float32Array(octets.buffer, 0, octets.length >> 2);
}

interface Table {
  unit: number;
  target: number;
  texture: WebGLTexture;
}

// The viewer's program with one display's conversion, and that display's tables. Throws what the compiler says.
export class Program {
  private readonly program: WebGLProgram;
  private readonly places = new Map<string, WebGLUniformLocation | null>();
  private readonly tables: Table[] = [];

  constructor(
    private readonly gl: WebGL2RenderingContext,
    display: DisplayShader | null,
  ) {
    this.program = gl.createProgram();
    const vertex = compiled(gl, gl.VERTEX_SHADER, vertex_text);
    const fragment = compiled(gl, gl.FRAGMENT_SHADER, fragment_text(display?.shader ?? ""));
    gl.attachShader(this.program, vertex);
    gl.attachShader(this.program, fragment);
    gl.linkProgram(this.program);
    gl.deleteShader(vertex);
    gl.deleteShader(fragment);
    if (!gl.getProgramParameter(this.program, gl.LINK_STATUS) && !gl.isContextLost())
      throw new Error(gl.getProgramInfoLog(this.program) ?? "the program does not link");
    gl.useProgram(this.program);
    for (const [index, table] of (display?.tables ?? []).entries()) this.add_table(table, 2 + index);
  }

  place(name: string): WebGLUniformLocation | null {
    if (!this.places.has(name)) this.places.set(name, this.gl.getUniformLocation(this.program, name));
    return this.places.get(name) ?? null;
  }

  use(): void {
    this.gl.useProgram(this.program);
    for (const table of this.tables) {
      this.gl.activeTexture(this.gl.TEXTURE0 + table.unit);
      this.gl.bindTexture(table.target, table.texture);
    }
  }

  dispose(): void {
    for (const table of this.tables) this.gl.deleteTexture(table.texture);
    this.gl.deleteProgram(this.program);
  }

  // Texels are fetched one by one, so that no filtering of 32-bit floats is asked for.
  private add_table(table: DisplayShader["tables"][number], unit: number): void {
    const gl = this.gl;
    const target = this.is_volume(table.sampler) ? gl.TEXTURE_3D : gl.TEXTURE_2D;
    gl.activeTexture(gl.TEXTURE0 + unit);
    const texture = new_texture(gl, target);
    const values = floats_of(table.rgba);
    if (target === gl.TEXTURE_3D) {
      const { width, height, depth } = table;
      gl.texParameteri(target, gl.TEXTURE_WRAP_R, gl.CLAMP_TO_EDGE);
      gl.texImage3D(target, 0, gl.RGBA32F, width, height, depth, 0, gl.RGBA, gl.FLOAT, values);
    } else {
      const height = Math.max(1, table.height) * Math.max(1, table.depth);
      gl.texImage2D(target, 0, gl.RGBA32F, table.width, height, 0, gl.RGBA, gl.FLOAT, values);
    }
    gl.uniform1i(this.place(table.sampler), unit);
    this.tables.push({ unit, target, texture });
  }

  private is_volume(sampler: string): boolean {
    const gl = this.gl;
    const count = gl.getProgramParameter(this.program, gl.ACTIVE_UNIFORMS) as number;
    for (let index = 0; index < count; ++index) {
      const uniform = gl.getActiveUniform(this.program, index);
      if (uniform?.name === sampler) return uniform.type === gl.SAMPLER_3D;
    }
    return false;
  }
}
