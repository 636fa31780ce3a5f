import type { Box } from "../../protocol";
import type { Renderer, Scene } from "./renderer";
import { new_texture } from "./textures";

const patience = 5; // milliseconds between two looks at the fence

// Reads a picture back as the screen would show it, small, without waiting for the GPU: for the scopes.
export class SampleReader {
  private readonly frame: WebGLFramebuffer;
  private readonly buffer: WebGLBuffer;
  private texture: WebGLTexture | null = null;
  private width = 0;
  private height = 0;

  constructor(private readonly renderer: Renderer) {
    this.frame = renderer.gl.createFramebuffer();
    this.buffer = renderer.gl.createBuffer();
  }

  // Of a part of the format: RGBA of 8 bits, rows from the bottom; null where there is no picture or the context was lost meanwhile.
  async read(scene: Scene, box: Box, width: number, height: number): Promise<Uint8Array | null> {
    const gl = this.renderer.gl;
    if (!scene.a || gl.isContextLost()) return null;
    this.resize(width, height);
    const [x0, y0, x1, y1] = box;
    const view = { left: x0, top: y1, across: width / (x1 - x0), down: height / (y1 - y0), panel: width };
    gl.bindFramebuffer(gl.FRAMEBUFFER, this.frame);
    this.renderer.draw_samples({ ...scene, view, size: { width, height, ratio: 1 } });
    gl.bindBuffer(gl.PIXEL_PACK_BUFFER, this.buffer);
    gl.bufferData(gl.PIXEL_PACK_BUFFER, width * height * 4, gl.STREAM_READ);
    gl.readPixels(0, 0, width, height, gl.RGBA, gl.UNSIGNED_BYTE, 0);
    gl.bindBuffer(gl.PIXEL_PACK_BUFFER, null);
    gl.bindFramebuffer(gl.FRAMEBUFFER, null);
    if (!(await this.passed())) return null;
    const values = new Uint8Array(width * height * 4);
    gl.bindBuffer(gl.PIXEL_PACK_BUFFER, this.buffer);
    gl.getBufferSubData(gl.PIXEL_PACK_BUFFER, 0, values);
    gl.bindBuffer(gl.PIXEL_PACK_BUFFER, null);
    return values;
  }

  private async passed(): Promise<boolean> {
    const gl = this.renderer.gl;
    const fence = gl.fenceSync(gl.SYNC_GPU_COMMANDS_COMPLETE, 0);
    if (!fence) return false;
    gl.flush();
    for (;;) {
      await new Promise((resolve) => setTimeout(resolve, patience));
      if (gl.isContextLost()) return false;
      const state = gl.clientWaitSync(fence, 0, 0);
      if (state === gl.TIMEOUT_EXPIRED) continue;
      gl.deleteSync(fence);
      return state !== gl.WAIT_FAILED;
    }
  }

  private resize(width: number, height: number): void {
    if (this.width === width && this.height === height) return;
    const gl = this.renderer.gl;
    gl.deleteTexture(this.texture);
    gl.activeTexture(gl.TEXTURE0);
    this.texture = new_texture(gl, gl.TEXTURE_2D);
    gl.texStorage2D(gl.TEXTURE_2D, 1, gl.RGBA8, width, height);
    gl.bindFramebuffer(gl.FRAMEBUFFER, this.frame);
    gl.framebufferTexture2D(gl.FRAMEBUFFER, gl.COLOR_ATTACHMENT0, gl.TEXTURE_2D, this.texture, 0);
    this.width = width;
    this.height = height;
  }
}
