import { open_document } from "../document/document";
import type { DisplayReply, DocumentText, NodeType } from "../protocol";
import { catalogue, displays, playhead } from "../state";
import { get } from "./api";

export async function start_session(): Promise<void> {
  const [document, types, display] = await Promise.all([
    get<DocumentText>("/composition"),
    get<NodeType[]>("/catalogue"),
    get<DisplayReply>("/display"),
  ]);
  catalogue.value = new Map(types.map((type) => [type.name, type]));
  displays.value = display;
  playhead.value = document.frames[0] ?? 1;
  open_document(document);
}
