import { vertex_text } from "./shader";

function compiled(gl: WebGL2RenderingContext, kind: number, text: string): WebGLShader | null {
  const shader = gl.createShader(kind);
  if (!shader) return null; // the context is lost
  gl.shaderSource(shader, text);
  gl.compileShader(shader);
  if (!gl.getShaderParameter(shader, gl.COMPILE_STATUS) && !gl.isContextLost())
    throw new Error(gl.getShaderInfoLog(shader) ?? "the shader does not compile");
  return shader;
}

// A program that covers the canvas, and where its uniforms are. Throws what the compiler says.
export class Program {
  private readonly program: WebGLProgram;
  private readonly places = new Map<string, WebGLUniformLocation | null>();

  constructor(
    private readonly gl: WebGL2RenderingContext,
    fragment_text: string,
  ) {
    this.program = gl.createProgram();
    for (const shader of [
      compiled(gl, gl.VERTEX_SHADER, vertex_text),
      compiled(gl, gl.FRAGMENT_SHADER, fragment_text),
    ]) {
      if (!shader) continue;
      gl.attachShader(this.program, shader);
      gl.deleteShader(shader); // goes with the program
    }
    gl.linkProgram(this.program);
    if (!gl.getProgramParameter(this.program, gl.LINK_STATUS) && !gl.isContextLost())
      throw new Error(gl.getProgramInfoLog(this.program) ?? "the program does not link");
  }

  use(): void {
    this.gl.useProgram(this.program);
  }

  // null where the program has no use for it, which setting it takes.
  place(name: string): WebGLUniformLocation | null {
    if (!this.places.has(name)) this.places.set(name, this.gl.getUniformLocation(this.program, name));
    return this.places.get(name) ?? null;
  }

  is_volume(sampler: string): boolean {
    const gl = this.gl;
    const count = (gl.getProgramParameter(this.program, gl.ACTIVE_UNIFORMS) as number | null) ?? 0;
    for (let index = 0; index < count; ++index) {
      const uniform = gl.getActiveUniform(this.program, index);
      if (uniform?.name === sampler) return uniform.type === gl.SAMPLER_3D;
    }
    return false;
  }

  dispose(): void {
    this.gl.deleteProgram(this.program);
  }
}
