import { batch, effect, signal, untracked } from "@preact/signals";
import type { Pixels, Slot, ViewRequest, Wish } from "../protocol";
import * as state from "../state";
import type { Picture } from "../state";
import { frames, type Step } from "../transport/range";
import { needs_alpha } from "../viewer/settings";
import { post } from "./api";
import { PlayQueue } from "./play_queue";

// What the page asks the server for, made from what is looked at. While something moves, an image as large as
// the viewer shows it; as soon as it rests, the whole one with all its precision.

export const client = Array.from(crypto.getRandomValues(new Uint8Array(8)), (octet) =>
  octet.toString(16).padStart(2, "0"),
).join("");

export const scrubbing = signal(false); // the playhead is in somebody's hand; play goes on when it is let go

const rest_after = 150; // ms
const rest_in_hand = 500; // ms, of a playhead or a knob that somebody holds still
const kept = 300; // ms
const depth = 8; // frames of play on their way or waiting to be shown
const scales = [0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 1];

type Look = Omit<Wish, "id" | "area">;

let last_id = 0;
let asked = new Map<number, Wish>(); // by id, in order of preference; what came is not in it
let newest: Record<Slot, Look | null> = { a: null, b: null }; // that came
let begun: Wish | null = null; // that the server is at, as far as the page knows
let begun_at = 0;
let resting = false;
let again = false; // the whole image alone: what is shown is not to turn coarse
let queue: PlayQueue | null = null;
let direction: 1 | -1 = 1;

// Few scales, so that zooming a little finds images that are there. A tenth less than is shown is not seen while
// things move.
export function moving_scale(): number {
  return scales.find((each) => each >= state.view_scale.value * 0.9) ?? 1;
}

function moving_pixels(): Pixels {
  return needs_alpha.value || state.loud.value ? "rgba16f" : "r11g11b10f";
}

function slots(): Slot[] {
  return state.compare.value.mode === "off" ? ["a"] : ["a", "b"];
}

// A node that is gone leaves the output.
export function shown_node(): string {
  const name = state.shown_node.value;
  return state.info.value?.nodes.some((node) => node.name === name) ? name : "";
}

function look(slot: Slot, frame: number, full: boolean, newest_version = state.info.value?.version ?? 0): Look {
  const { node, version } = state.compare.value;
  const of_b = slot === "b";
  return {
    slot,
    version: of_b && version > 0 ? version : newest_version,
    node: of_b && node !== "" ? node : shown_node(),
    frame,
    scale: full ? 1 : moving_scale(),
    pixels: full ? "rgba16f" : moving_pixels(),
  };
}

function same_image(one: Look, other: Look): boolean {
  return one.slot === other.slot && one.version === other.version && one.node === other.node && one.frame === other.frame;
}

function good_for(have: Look | null, want: Look): boolean {
  return (
    have !== null &&
    same_image(have, want) &&
    have.scale >= want.scale &&
    (have.pixels === "rgba16f" || have.pixels === want.pixels)
  );
}

// The wish for this image, with the id that it has if it is asked for already.
function wish(want: Look): Wish {
  for (const each of asked.values()) if (good_for(each, want) && each.scale === want.scale) return each;
  return { ...want, id: ++last_id, area: "format" };
}

function still_wishes(): Wish[] {
  const frame = state.playhead.value;
  const sizes = !resting ? [false] : again ? [true] : [false, true];
  const wanted = sizes.flatMap((full) => slots().map((slot) => look(slot, frame, full)));
  return [...unfinished(frame), ...missing(wanted)];
}

function missing(wanted: Look[]): Wish[] {
  return wanted.filter((want) => !good_for(newest[want.slot], want)).map(wish);
}

// A playhead that moves on does not end what is almost done: one image of it at a time is finished and shown, so
// that a hand in movement sees frames and not the first and the last one alone.
function unfinished(frame: number): Wish[] {
  const now = performance.now();
  if (begun === null || !asked.has(begun.id)) {
    begun = null;
    for (const each of asked.values())
      if (each.slot === "a" && each.scale === moving_scale() && each.pixels === moving_pixels()) begun ??= each;
    begun_at = now;
  }
  const want = look("a", frame, false);
  const stale = begun === null || begun.version !== want.version || begun.node !== want.node || begun.frame === frame;
  return stale || begun === null || now - begun_at > kept ? [] : [begun];
}

function playing_wishes(now: Step): Wish[] {
  queue ??= new PlayQueue(depth, slots());
  queue.fill(now);
  const list: Wish[] = [];
  const taken = new Set<number>();
  for (const coming of queue.coming)
    for (const slot of queue.missing(coming)) {
      const want = look(slot, coming.step.frame, false);
      const before = [...asked.values()].find((each) => good_for(each, want) && !taken.has(each.id));
      const each = before ?? { ...want, id: ++last_id, area: "format" as const };
      taken.add(each.id);
      list.push(each);
    }
  return list;
}

let timer = 0;
let subject = ""; // what is looked at; another one is a movement
let play_subject = "";

// One run makes the list anew; it is sent when the one before has arrived.
function make_wishes(): void {
  if (state.info.value === null || !state.connected.value || state.view_scale.value === 0) return;
  const running = scrubbing.value ? 0 : state.playing.value;
  const all = JSON.stringify([slots().map((slot) => look(slot, 0, false)), frames.value[0], frames.value.at(-1)]);
  let list: Wish[];
  if (running !== 0) {
    direction = running;
    const now_subject = `${all} ${state.loop_mode.value}`;
    if (play_subject !== now_subject) queue = null;
    play_subject = now_subject;
    list = playing_wishes({ frame: untracked(() => state.playhead.value), direction });
    subject = "";
  } else {
    // Frames that were to be played are not shown any more, as those are that a hand has passed.
    if (queue !== null) asked = new Map();
    queue = null;
    play_subject = "";
    const now_subject = JSON.stringify(slots().map((slot) => look(slot, state.playhead.value, true)));
    if (subject !== now_subject) {
      subject = now_subject;
      resting = false;
      again = false;
      clearTimeout(timer);
      timer = window.setTimeout(rest, scrubbing.peek() || state.dragging.peek() ? rest_in_hand : rest_after);
    }
    list = still_wishes();
  }
  asked = new Map(list.map((each) => [each.id, each]));
  send(request(list));
}

function rest(): void {
  resting = true;
  make_wishes();
}

function request(wishes: Wish[]): ViewRequest {
  const range = frames.value;
  const first = range[0];
  const last = range.at(-1);
  const frame = untracked(() => state.playhead.value);
  // What is computed ahead of a knob in movement is thrown away by its next step.
  const moved = state.dragging.value && !resting;
  const ahead =
    state.paused.value || moved || first === undefined || last === undefined
      ? null
      : { node: shown_node(), scale: moving_scale(), first, last, frame, direction };
  return { client, wishes, ahead };
}

let waiting: ViewRequest | null = null;
let sending = false; // as a request of its own, or with an edit
let sent = "";

function send(next: ViewRequest): void {
  waiting = next;
  if (!sending) void send_waiting();
}

async function send_waiting(): Promise<void> {
  sending = true;
  // What changes at the same moment goes in one.
  await Promise.resolve();
  while (waiting !== null) {
    const now: ViewRequest = waiting;
    waiting = null;
    const text = JSON.stringify(now);
    if (text === sent) continue;
    try {
      await post("/view", now);
      sent = text;
    } catch {
      // The streams notice a server that is gone, and ask again when it is back.
    }
  }
  sending = false;
}

// What is wanted as soon as the document has become this version, to go with the edit that makes it so: its first
// pixels come a round trip earlier. Null where nothing may overtake what is on its way, or it plays. `answered` is
// called when the edit was, after what came of it is known here.
export function view_with_edit(
  version: number,
  has_node: (name: string) => boolean,
): { view: ViewRequest; answered(taken: boolean): void } | null {
  if (sending || !state.connected.value || (state.playing.value !== 0 && !scrubbing.value)) return null;
  const list = missing(slots().map((slot) => look(slot, state.playhead.value, false, version)));
  if (list.some((each) => each.version === version && each.node !== "" && !has_node(each.node))) return null;
  for (const each of list) asked.set(each.id, each);
  const view = request(list);
  sending = true;
  const answered = (taken: boolean) => {
    if (taken) sent = JSON.stringify(view);
    else make_wishes();
    void send_waiting();
  };
  return { view, answered };
}

// After a break nothing that was asked for comes any more.
export function forget_wishes(): void {
  asked = new Map();
  newest = { a: null, b: null };
  queue = null;
  subject = "";
  sent = "";
}

// What is looked at is asked for anew, and stays on the screen until that comes.
export function look_again(): void {
  asked = new Map();
  newest = { a: null, b: null };
  queue = null;
  again = resting;
  make_wishes();
}

// An image of the stream. Late ones of an older list are shown as long as nothing newer came, so that a
// playhead that moves without pause shows what it can.
export function came(picture: Picture): void {
  const { header } = picture;
  const mine = asked.get(header.id);
  asked.delete(header.id);
  if (queue !== null) {
    if (mine) queue?.came(picture);
    return;
  }
  if (header.id < latest[header.slot]) return;
  // What is looked at is on the screen already: somebody went there and back.
  const have = newest[header.slot];
  if (!mine && have !== null && same_image(have, look(header.slot, state.playhead.value, false))) return;
  latest[header.slot] = header.id;
  // What cannot be drawn is not asked for again at once.
  if (mine) newest[header.slot] = mine;
  show([picture]);
}

const latest: Record<Slot, number> = { a: 0, b: 0 };

function show(pictures: Picture[]): void {
  batch(() => {
    for (const picture of pictures) {
      const { slot, problem, width } = picture.header;
      if (slot === "a") state.frame_problem.value = problem;
      if (width === 0) continue;
      if (slot === "a") state.picture_a.value = picture;
      else state.picture_b.value = picture;
    }
  });
}

// For play: whether its next frame is here, which it is, and putting it on the screen.
export function next_is_ready(): boolean {
  return queue !== null && queue.ready(queue.coming[0]);
}

export function next_step(): Step | null {
  return queue?.coming[0]?.step ?? null;
}

// The first of the frames coming that is here, in their order; -1: none.
export function first_ready(): number {
  return queue ? queue.coming.findIndex((each) => queue?.ready(each)) : -1;
}

export function drop_next(count: number): void {
  queue?.coming.splice(0, count);
}

export function show_next(): Step | null {
  const coming = queue?.coming.shift();
  if (!coming) return null;
  batch(() => {
    state.playhead.value = coming.step.frame;
    if (state.playing.value !== 0) state.playing.value = coming.step.direction;
    for (const slot of ["a", "b"] as const) {
      const picture = coming.pictures.get(slot);
      if (!picture) continue;
      newest[slot] = look(slot, coming.step.frame, false);
      latest[slot] = Math.max(latest[slot], picture.header.id);
    }
    show([...coming.pictures.values()]);
  });
  if (queue && queue.coming.length <= depth / 2) make_wishes();
  return coming.step;
}

effect(() => {
  if (state.compare.value.mode !== "off") return;
  newest.b = null;
  state.picture_b.value = null;
});
effect(make_wishes);
