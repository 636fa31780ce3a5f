import { batch, computed, effect, signal } from "@preact/signals";
import { ApiError, get, post } from "../net/api";
import type { DocumentInfo, DocumentText, Problem } from "../protocol";
import * as state from "../state";
import { History } from "./history";
import { read_model } from "./model";
import { Sender } from "./sender";

// The document: the text of the composition, its steps, and what the server knows of it. Every change of the text
// goes through `edit`, is a step that can be undone, and is brought to the server at once.

// Something that a person has to choose between, in words; null: nothing.
export interface Offer {
  message: string;
  choices: { title: string; run: () => void }[];
}
export const offer = signal<Offer | null>(null);
export const undo_title = signal<string | null>(null);
export const redo_title = signal<string | null>(null);
export const model = computed(() => read_model(state.text.value, state.catalogue.value));

const history = new History();
const join_within = 1000; // ms
let last_edit = 0;

let base = 0; // the version that the server has of this document
const server_text = signal(""); // of that version
let refused: string | null = null; // is not sent again
let theirs: DocumentText | null = null; // another page's version that somebody has to choose about
let heard: DocumentInfo | null = null; // while a request was on its way

const sender = new Sender(
  () => {
    const text = state.text.value;
    const nothing = base === 0 || theirs !== null || text === refused || text === server_text.value;
    return nothing ? null : { base, text };
  },
  (name) => model.value.named.has(name),
  {
    accepted: (text, info) => accept(text, info, false),
    refused: (text, problems) => refuse(text, problems),
    overtaken: (text) => take_theirs_or_ask(text),
    failed: (message) => notice(`The change did not reach the server: ${message}`),
  },
);

function notice(message: string): void {
  state.notices.value = [...state.notices.value.slice(-99), message];
}

function accept(text: string, info: DocumentInfo, whole: boolean): void {
  batch(() => {
    base = info.version;
    server_text.value = text;
    refused = null;
    state.info.value = info;
    if (whole) state.text.value = text;
    if (state.text.value === text) state.problems.value = [];
  });
}

function refuse(text: string, problems: Problem[]): void {
  refused = text;
  if (state.text.value === text) state.problems.value = problems;
}

export function open_document(opened: DocumentText): void {
  batch(() => {
    history.clear();
    theirs = null;
    offer.value = null;
    accept(opened.text, opened, true);
    tell_steps();
  });
}

function tell_steps(): void {
  undo_title.value = history.next_undo;
  redo_title.value = history.next_redo;
  state.can_undo.value = undo_title.value !== null;
  state.can_redo.value = redo_title.value !== null;
}

// Changes the text. Steps with the same `merge_key` become one while something is dragged or within a second.
// Returns what is wrong where the change cannot be made, else "".
export function edit(title: string, change: (text: string) => string, merge_key = ""): string {
  let changed: string;
  try {
    changed = change(state.text.value);
  } catch (error) {
    const message = error instanceof Error ? error.message : String(error);
    notice(message);
    return message;
  }
  if (changed !== state.text.value) set_text(changed, title, merge_key);
  return "";
}

function set_text(changed: string, title: string, merge_key = ""): void {
  const now = performance.now();
  const join = state.dragging.value || now - last_edit < join_within;
  last_edit = now;
  batch(() => {
    history.add(state.text.value, changed, title, merge_key, join);
    state.text.value = changed;
    tell_steps();
  });
  settle_refused();
  void sender.send();
}

// Back at a text that the server has: what was wrong is gone.
function settle_refused(): void {
  if (state.text.value === server_text.value) state.problems.value = [];
}

function go(text: string | null): void {
  if (text === null) return;
  batch(() => {
    state.text.value = text;
    tell_steps();
  });
  last_edit = 0;
  settle_refused();
  void sender.send();
}

export function undo(): void {
  go(history.undo(state.text.value));
}

export function redo(): void {
  go(history.redo(state.text.value));
}

// A version that somebody made, as the server tells it; our own come that way as well.
export function follow(newer: DocumentInfo): void {
  if (sender.sending) {
    heard = newer;
    void sender.send().then(() => follow_heard());
    return;
  }
  if (newer.version === base) {
    state.info.value = newer;
    return;
  }
  void get<DocumentText>("/composition").then(take_theirs_or_ask, () => undefined);
}

function follow_heard(): void {
  const newer = heard;
  heard = null;
  if (newer && newer.version !== base && theirs === null) follow(newer);
  else if (newer && newer.version === base) state.info.value = newer;
}

function take_theirs_or_ask(text: DocumentText): void {
  if (text.version === base && text.text === server_text.value) return;
  // A server that was started again counts from 1, and knows nothing of what was not saved.
  const forgotten = text.version < base && state.dirty.value;
  const untouched = state.text.value === server_text.value && !forgotten;
  if (untouched || state.text.value === text.text) {
    take(text, "Change from elsewhere");
    return;
  }
  theirs = text;
  offer.value = {
    message: forgotten
      ? "The server was started again, and does not have what was not saved here."
      : "The composition was changed elsewhere while you changed it here.",
    choices: [
      { title: "Take the other one", run: take_theirs },
      { title: "Keep mine", run: keep_over_theirs },
    ],
  };
}

// Another text becomes this document's, as a step: ours is one undo away.
function take(text: DocumentText, title: string): void {
  batch(() => {
    history.add(state.text.value, text.text, title);
    theirs = null;
    offer.value = null;
    accept(text.text, text, true);
    tell_steps();
  });
  last_edit = 0;
}

export function take_theirs(): void {
  if (theirs) take(theirs, "Change from elsewhere");
}

export function keep_over_theirs(): void {
  if (!theirs) return;
  base = theirs.version;
  server_text.value = theirs.text;
  theirs = null;
  offer.value = null;
  void sender.send();
}

// Writes the file. What the server has refused is not saved; the problems say why.
export async function save(): Promise<void> {
  await save_as(false);
}

async function save_as(force: boolean): Promise<void> {
  await sender.send();
  if (state.text.value !== server_text.value) {
    notice("Not saved: the composition has errors, or the server does not answer.");
    return;
  }
  try {
    const info = await post<DocumentInfo>("/save", { version: base, force });
    batch(() => {
      state.disk_changed.value = false;
      if (info.version === base) state.info.value = info;
    });
  } catch (error) {
    if (!(error instanceof ApiError)) throw error;
    if (error.status === 409) state.disk_changed.value = true;
    else notice(`Not saved: ${error.message}`);
  }
}

// The file as it is on the disk now, in place of what is here.
export async function take_disk(): Promise<void> {
  try {
    const text = await post<DocumentText>("/reload");
    take(text, "File taken from the disk");
    state.disk_changed.value = false;
  } catch (error) {
    if (!(error instanceof ApiError)) throw error;
    notice(`The file could not be taken: ${error.message}`);
  }
}

// What is here in place of the file on the disk.
export async function keep_mine(): Promise<void> {
  await save_as(true);
}

effect(() => {
  const same = state.text.value === server_text.value && (state.info.value?.saved ?? true);
  state.dirty.value = !same;
});

effect(() => {
  if (state.connected.value) void sender.send();
});

const disk_offer: Offer = {
  message: "The file was changed outside, and the composition here says something else.",
  choices: [
    { title: "Take the file", run: () => void take_disk() },
    { title: "Keep mine and save it", run: () => void keep_mine() },
  ],
};
effect(() => {
  if (state.disk_changed.value) offer.value ??= disk_offer;
  else if (offer.peek() === disk_offer) offer.value = null;
});

// The server keeps what it has: only what did not reach it would be lost.
if (typeof window !== "undefined")
  addEventListener("beforeunload", (event) => {
    if (state.text.value !== server_text.value) event.preventDefault();
  });
