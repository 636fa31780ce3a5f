import { effect, signal } from "@preact/signals";
import { get } from "../net/api";
import type { FindReply } from "../protocol";
import { loud, picture_a, zoom } from "../state";
import { said } from "./display";
import { query_of } from "./probing";
import { scene } from "./scene";
import { centre, marked, pointer } from "./settings";

// Goes to pixels that no picture should have.

export const kinds = ["nan", "infinite", "negative"] as const;
export type Kind = (typeof kinds)[number];

export const kind_words: Record<Kind, string> = { nan: "NaN", infinite: "infinite", negative: "negative" };

export interface Found {
  words: string;
  made_by: string; // a node; "": none was found
}
export const found = signal<Found | null>(null);
export const searching = signal(false);

export function forget_found(): void {
  found.value = null;
  marked.value = null;
}

effect(() => {
  if (!loud.value) forget_found();
});

let last: Kind | null = null;

// The first pixel of the next kind after the one that was found last, that there is.
export async function next_bad_pixel(): Promise<void> {
  const start = last ? kinds.indexOf(last) + 1 : 0;
  await search(kinds.map((_, index) => kinds[(start + index) % kinds.length]!));
}

export async function find_kind(kind: Kind): Promise<void> {
  await search([kind]);
}

async function search(wanted: Kind[]): Promise<void> {
  const header = picture_a.value?.header;
  if (!header || searching.value) return;
  searching.value = true;
  marked.value = null;
  try {
    for (const kind of wanted) {
      const reply = await get<FindReply>(`/find?${query_of(header, { kind })}`);
      if (reply.found) return go_to(kind, reply);
    }
    last = null;
    const none = wanted.length > 1 ? "no NaN, infinite or negative pixel" : `no ${kind_words[wanted[0]!]} pixel`;
    found.value = { words: `Frame ${header.frame} of ${header.node} has ${none}.`, made_by: "" };
  } catch (error) {
    found.value = { words: said(error), made_by: "" };
  } finally {
    searching.value = false;
  }
}

function capital(word: string): string {
  return word.charAt(0).toUpperCase() + word.slice(1);
}

function go_to(kind: Kind, reply: FindReply): void {
  last = kind;
  loud.value = true;
  const middle = { x: reply.x + 0.5, y: reply.y + 0.5 };
  const { ratio } = scene.value.size;
  zoom.value = Math.max(scene.value.view.down, 16 * ratio); // so that one pixel is seen
  centre.value = middle;
  pointer.value = middle;
  marked.value = { x: reply.x, y: reply.y };
  found.value = { words: `${kind === "nan" ? "NaN" : capital(kind)} at ${reply.x}, ${reply.y}, made by`, made_by: reply.made_by };
}
