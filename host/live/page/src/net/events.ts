import type { Events } from "../protocol";

export type Event = { [Name in keyof Events]: { name: Name; data: Events[Name] } }[keyof Events];

// Hands on each event of a text/event-stream until it ends.
export async function read_events(body: ReadableStream<Uint8Array>, came: (event: Event) => void): Promise<void> {
  const reader = body.pipeThrough(new TextDecoderStream() as ReadableWritablePair<string, Uint8Array>).getReader();
  let text = "";
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    text += value;
    const whole = text.split("\n\n");
    text = whole.pop() ?? "";
    for (const block of whole) {
      const lines = block.split("\n");
      const name = lines.find((line) => line.startsWith("event: "))?.slice(7);
      const data = lines.filter((line) => line.startsWith("data: ")).map((line) => line.slice(6));
      if (name && data.length > 0) came({ name, data: JSON.parse(data.join("\n")) } as Event);
    }
  }
}
