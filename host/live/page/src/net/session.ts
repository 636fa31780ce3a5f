import { batch, effect, signal } from "@preact/signals";
import { follow, open_document } from "../document/document";
import type { DisplayReply, DocumentText, Events, NodeType } from "../protocol";
import * as state from "../state";
import { ApiError, ask, get } from "./api";
import { type Event, read_events } from "./events";
import { read_frames } from "./frames";
import { came, client, forget_wishes, look_again, moving_scale, shown_node } from "./wishes";

// Why the page cannot go on: the server knows another token, or takes no requests from here.
export const refusal = signal("");
export const device_lost = signal(""); // what the driver said; "": it is there
export const last_drawn = signal<Events["nodes"] | null>(null); // of the last frame for which something was drawn

const open = { events: signal(false), frames: signal(false) };

// Opens the document and both streams, and opens them again whenever they break. Returns at once.
export function start_session(): void {
  void keep("events", async (body) => {
    if (state.info.value === null) await open_page();
    set_open("events", true);
    await read_events(body, take_event);
  });
  void keep("frames", async (body) => {
    forget_wishes();
    set_open("frames", true);
    await read_frames(body, came);
  });
}

// A page that nobody sees holds no connection: a browser has six to a server, for all its pages together.
const asleep_after = 10000; // ms
let streams = new AbortController();
let awake: Promise<void> = Promise.resolve();
let wake: (() => void) | null = null;
let falling_asleep = 0;

document.addEventListener("visibilitychange", () => {
  clearTimeout(falling_asleep);
  if (document.hidden) {
    falling_asleep = window.setTimeout(() => {
      awake = new Promise((done) => (wake = done));
      streams.abort();
    }, asleep_after);
  } else if (wake) {
    streams = new AbortController();
    wake();
    wake = null;
  }
});

async function open_page(): Promise<void> {
  const [document, types, displays] = await Promise.all([
    get<DocumentText>("/composition"),
    get<NodeType[]>("/catalogue"),
    get<DisplayReply>("/display"),
  ]);
  batch(() => {
    state.catalogue.value = new Map(types.map((type) => [type.name, type]));
    state.displays.value = displays;
    state.playhead.value = document.frames[0] ?? 1;
    open_document(document);
  });
}

async function keep(name: "events" | "frames", read: (body: ReadableStream<Uint8Array>) => Promise<void>): Promise<void> {
  for (let wait = 250; refusal.value === ""; wait = Math.min(2 * wait, 4000)) {
    await awake;
    const ending = streams.signal;
    try {
      const response = await ask("GET", `/${name}?client=${client}`, undefined, ending);
      if (!response.body) throw new ApiError(0, "This browser reads no streams.", null);
      wait = 125;
      await read(response.body);
    } catch (error) {
      if (error instanceof ApiError && (error.status === 401 || error.status === 403)) refusal.value = error.message;
      else if (!ending.aborted && !(error instanceof ApiError || error instanceof TypeError)) console.error(error);
    }
    set_open(name, false);
    await new Promise((done) => setTimeout(done, wait));
  }
}

function set_open(name: "events" | "frames", now: boolean): void {
  batch(() => {
    open[name].value = now;
    state.connected.value = open.events.value && open.frames.value;
  });
}

function take_event(event: Event): void {
  batch(() => {
    switch (event.name) {
      case "document":
        follow(event.data);
        break;
      case "disk":
        state.disk_changed.value = event.data.changed;
        break;
      case "files":
        look_again();
        break;
      case "nodes":
        told_nodes.value = event.data;
        break;
      case "cached":
        keep_cached(event.data);
        break;
      case "memory":
        state.memory.value = event.data;
        break;
      case "render":
        state.render_state.value = event.data;
        break;
      case "notice":
        take_notice(event.data.text);
        break;
      case "device":
        device_lost.value = event.data.lost ? event.data.message || "The graphics driver is gone." : "";
        break;
      case "computing":
        state.paused.value = event.data.paused;
        break;
    }
  });
}

// They may come before the answer to the edit that made their version.
const told_nodes = signal<Events["nodes"] | null>(null);
effect(() => {
  const told = told_nodes.value;
  if (told === null || told.version !== state.info.value?.version) return;
  if (told.nodes.some((node) => node.state !== "cached")) last_drawn.value = told;
  state.node_states.value = new Map(told.nodes.map((node) => [node.name, node]));
});

// What a server says first is told again to each stream that is opened anew.
function take_notice(text: string): void {
  state.notices.value = [...state.notices.value.filter((each) => each !== text).slice(-99), text];
}

// What is in memory is told by node and scale; the timeline marks what play would show.
const in_memory = signal<Events["cached"][]>([]);

function keep_cached(told: Events["cached"]): void {
  const others = in_memory.value.filter(
    (each) => each.version === told.version && !(each.node === told.node && each.scale === told.scale),
  );
  in_memory.value = [...others, told];
}

effect(() => {
  const node = shown_node() || state.info.value?.outputs[0];
  const version = state.info.value?.version;
  const most = moving_scale() + 1e-6;
  let best: Events["cached"] | null = null;
  for (const each of in_memory.value)
    if (each.node === node && each.version === version && each.scale <= most && each.scale > (best?.scale ?? 0)) best = each;
  state.cached_frames.value = best?.frames ?? [];
});
