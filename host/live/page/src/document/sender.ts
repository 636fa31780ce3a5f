import { ApiError, put } from "../net/api";
import { view_with_edit } from "../net/wishes";
import type { DocumentInfo, DocumentText, Problem } from "../protocol";
import { connected, dragging, picture_a } from "../state";

// Brings the text to the server: one request at a time, the last text always. While something is dragged, the next
// waits until a frame of the version before has come, so that each movement that is sent is seen.

export interface Outcome {
  accepted(text: string, info: DocumentInfo): void;
  refused(text: string, problems: Problem[]): void;
  overtaken(theirs: DocumentText): void; // somebody else changed the document meanwhile
  failed(message: string): void;
}

const frame_wait = 300; // ms

export class Sender {
  private busy: Promise<void> | null = null;

  // `next` tells what is to be sent: null when the server has it, or has refused it. `has_node` knows its nodes.
  constructor(
    private readonly next: () => { base: number; text: string } | null,
    private readonly has_node: (name: string) => boolean,
    private readonly outcome: Outcome,
  ) {}

  get sending(): boolean {
    return this.busy !== null;
  }

  // Resolves when nothing is left to send.
  send(): Promise<void> {
    this.busy ??= this.run().finally(() => (this.busy = null));
    return this.busy;
  }

  private async run(): Promise<void> {
    // What changes at the same moment goes in one.
    await Promise.resolve();
    for (let now = this.next(); now !== null; now = this.next()) {
      const ahead = view_with_edit(now.base + 1, this.has_node);
      try {
        const info = await put<DocumentInfo>("/composition", ahead ? { ...now, view: ahead.view } : now);
        this.outcome.accepted(now.text, info);
        ahead?.answered(true);
        if (dragging.value) await frame_of(info.version);
      } catch (error) {
        ahead?.answered(false);
        if (!(error instanceof ApiError)) throw error;
        if (!this.take_refusal(now.text, error)) return;
      }
    }
  }

  private take_refusal(text: string, error: ApiError): boolean {
    if (error.status === 422) this.outcome.refused(text, (error.body as { problems: Problem[] }).problems);
    else if (error.status === 409) this.outcome.overtaken(error.body as DocumentText);
    else {
      // Without an answer it is sent again as soon as the server is back.
      if (error.status !== 0 || connected.value) this.outcome.failed(error.message);
      return false;
    }
    return true;
  }
}

// Until the viewer has a frame of the version, the hand lets go, or it has taken too long.
function frame_of(version: number): Promise<void> {
  return new Promise((done) => {
    let stops: (() => void)[] = [];
    const finish = () => {
      clearTimeout(timer);
      for (const stop of stops) stop();
      done();
    };
    const timer = setTimeout(finish, frame_wait);
    stops = [
      picture_a.subscribe((picture) => {
        if (picture && picture.header.version >= version) queueMicrotask(finish);
      }),
      dragging.subscribe((now) => {
        if (!now) queueMicrotask(finish);
      }),
    ];
  });
}
