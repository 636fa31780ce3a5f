import { effect, signal, type Signal, useComputed, useSignal, useSignalEffect } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { model } from "../document/document";
import { server_name } from "../document/place";
import { get } from "../net/api";
import type { CurveReply, Value } from "../protocol";
import { connected, first_frame, info, last_frame, playhead, playing } from "../state";

export interface Asked {
  node: string;
  knob: string;
  component: number;
  first: number;
  last: number;
  step: number;
}

export function number_of(value: Value): number {
  return value === "inf" ? Infinity : value === "-inf" ? -Infinity : value === "nan" ? Number.NaN : value;
}

// The curve as the library evaluates it, asked anew after each version; one request at a time, the last wish wins.
export function useCurve(asked: Signal<Asked | null>): Signal<CurveReply | null> {
  const reply = useSignal<CurveReply | null>(null);
  const state = useRef({ busy: false, again: false, gone: false });
  const ask = async () => {
    const now = state.current;
    if (now.busy) {
      now.again = true;
      return;
    }
    now.busy = true;
    do {
      now.again = false;
      const wish = asked.peek();
      if (!wish) reply.value = null;
      else
        try {
          const named = { ...wish, node: server_name(model.peek(), wish.node, "") };
          const query = new URLSearchParams(Object.entries(named).map(([name, value]) => [name, String(value)]));
          const came = await get<CurveReply>(`/curve?${query}`);
          if (!now.gone) reply.value = came;
        } catch {
          // A node that is gone, or a server: the next version asks again.
        }
    } while (now.again && !now.gone);
    now.busy = false;
  };
  const curve = useRef("");
  useSignalEffect(() => {
    const wish = asked.value;
    const now = wish ? JSON.stringify([wish.node, wish.knob, wish.component]) : "";
    // The line stays while the server is away, but not that of another curve.
    if (now !== curve.current) reply.value = null;
    curve.current = now;
    if (wish && info.value && connected.value) void ask();
  });
  useEffect(() => () => {
    state.current.gone = true;
  }, []);
  return reply;
}

// The playhead as numbers follow it: at rest exactly, in play a few times a second.
export const slow_playhead = signal(playhead.value);
const pause_in_play = 250; // ms
let timer = 0;

effect(() => {
  const now = playhead.value;
  if (playing.value === 0) {
    clearTimeout(timer);
    timer = 0;
    slow_playhead.value = now;
  } else if (timer === 0)
    timer = window.setTimeout(() => {
      timer = 0;
      slow_playhead.value = playhead.peek();
    }, pause_in_play);
});

const most = 4000; // frames at once

// The value of one keyed component at the playhead; null until it is known.
export function useValueAtPlayhead(node: string, knob: string, component: number): Signal<number | null> {
  const key = useSignal("");
  key.value = JSON.stringify([node, knob, component]);
  const block = useComputed(() => Math.floor((slow_playhead.value - first_frame.value) / most));
  const asked = useComputed((): Asked => {
    const [of_node, of_knob, of_component] = JSON.parse(key.value) as [string, string, number];
    const first = first_frame.value + block.value * most;
    return { node: of_node, knob: of_knob, component: of_component, first, last: Math.min(last_frame.value, first + most - 1), step: 1 };
  });
  const reply = useCurve(asked);
  return useComputed(() => {
    const came = reply.value;
    const value = came?.values[Math.round((slow_playhead.value - came.first) / came.step)];
    return value === undefined ? null : number_of(value);
  });
}
