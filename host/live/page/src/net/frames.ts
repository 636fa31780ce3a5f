import type { FrameHeader } from "../protocol";
import type { Picture } from "../state";

const magic = 0x31465651; // "QVF1", little endian
const most_octets = 2 ** 31; // more than any image that a server sends

// Octets of a response in pieces of the sizes asked for. Where the browser can, it reads straight into the piece.
class Octets {
  private readonly byob: ReadableStreamBYOBReader | null = null;
  private readonly plain: ReadableStreamDefaultReader<Uint8Array> | null = null;
  private rest: Uint8Array = new Uint8Array(0);

  constructor(body: ReadableStream<Uint8Array>) {
    try {
      this.byob = body.getReader({ mode: "byob" });
    } catch {
      this.plain = body.getReader();
    }
  }

  // Null at the end of the response.
  async take(size: number): Promise<ArrayBuffer | null> {
    let buffer = new ArrayBuffer(size);
    for (let filled = 0; filled < size; ) {
      if (this.byob) {
        const { value, done } = await this.byob.read(new Uint8Array(buffer, filled, size - filled));
        if (done || !value) return null;
        buffer = value.buffer as ArrayBuffer;
        filled += value.byteLength;
        continue;
      }
      if (this.rest.byteLength === 0) {
        const read = await this.plain?.read();
        if (!read || read.done) return null;
        this.rest = read.value;
      }
      const part = this.rest.subarray(0, size - filled);
      new Uint8Array(buffer, filled).set(part);
      this.rest = this.rest.subarray(part.byteLength);
      filled += part.byteLength;
    }
    return buffer;
  }

  cancel(): void {
    void (this.byob ?? this.plain)?.cancel().catch(() => undefined);
  }
}

// Hands on each image of the stream until it ends. Throws where it is no such stream.
export async function read_frames(body: ReadableStream<Uint8Array>, came: (picture: Picture) => void): Promise<void> {
  const octets = new Octets(body);
  try {
    for (;;) {
      const front = await octets.take(12);
      if (!front) return;
      const numbers = new DataView(front);
      const sizes = [numbers.getUint32(4, true), numbers.getUint32(8, true)] as const;
      if (numbers.getUint32(0, true) !== magic || sizes[0] > 65536 || sizes[1] > most_octets)
        throw new Error("The stream of frames is out of step.");
      const json = await octets.take(sizes[0]);
      const data = sizes[1] > 0 ? await octets.take(sizes[1]) : new ArrayBuffer(0);
      if (!json || !data) return;
      came({ header: JSON.parse(new TextDecoder().decode(json)) as FrameHeader, data });
    }
  } finally {
    octets.cancel();
  }
}
