import type { DocumentInfo, DocumentText } from "../protocol";
import { info, text } from "../state";

export function open_document(opened: DocumentText): void {
  info.value = opened;
  text.value = opened.text;
}
export function follow(newer: DocumentInfo): void {
  info.value = newer;
}
export function undo(): void {}
export function redo(): void {}
export async function save(): Promise<void> {}
export async function take_disk(): Promise<void> {}
export async function keep_mine(): Promise<void> {}
