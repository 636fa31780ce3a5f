import { Icon, type IconName } from "../app/icons";
import * as state from "../state";
import { pause_computing } from "./commands";
import { given_up, go_to, play, step, toggle, waiting_for } from "./play";
import { frames, nearest } from "./range";

function Press({ icon, label, keys, run, pressed }: {
  icon: IconName;
  label: string;
  keys: string;
  run: () => void;
  pressed?: boolean;
}) {
  return (
    <button class="quiet press" aria-label={label} title={`${label} (${keys})`} aria-pressed={pressed} onClick={run}>
      <Icon name={icon} />
    </button>
  );
}

function FrameField() {
  return (
    <input
      type="text"
      class="mono frame-field"
      inputMode="numeric"
      aria-label="Frame"
      value={state.playhead.value}
      onChange={(event) => {
        const frame = Number(event.currentTarget.value);
        const all = state.info.value?.frames ?? [];
        if (Number.isFinite(frame) && event.currentTarget.value.trim() !== "") go_to(nearest(frame, all));
        event.currentTarget.value = String(state.playhead.value);
      }}
      onFocus={(event) => event.currentTarget.select()}
    />
  );
}

function RateField() {
  const set = (text: string) => {
    const rate = Number(text);
    if (rate >= 1 && rate <= 240) state.asked_rate.value = rate;
  };
  return (
    <label class="rate">
      <input
        type="text"
        class="mono"
        inputMode="decimal"
        aria-label="Frames a second asked for"
        value={state.asked_rate.value}
        onChange={(event) => {
          set(event.currentTarget.value);
          event.currentTarget.value = String(state.asked_rate.value);
        }}
        />
      <span class="dim">fps</span>
    </label>
  );
}

// What play reaches, and what it waits for.
function Reached() {
  const running = state.playing.value !== 0;
  const rate = state.reached_rate.value;
  const slow = running && rate > 0 && rate < state.asked_rate.value * 0.97;
  const waits = waiting_for.value;
  return (
    <output class="reached" aria-live="off">
      {running && rate > 0 && (
        <span class={`mono ${slow ? "slow" : "good"}`} title="Frames a second reached">
          {rate.toFixed(1)}
        </span>
      )}
      {waits !== null && <span class="slow">waits for frame {waits}</span>}
      {given_up.value > 0 && <span class="slow">{given_up.value} not shown</span>}
    </output>
  );
}

export function TransportRow() {
  const all = frames.value;
  const forward = state.playing.value > 0;
  const backward = state.playing.value < 0;
  return (
    <div class="transport-row" role="toolbar" aria-label="Play">
      <Press icon="first" label="First frame" keys="Home" run={() => go_to(all[0] ?? 1)} />
      <Press icon="previous" label="One frame back" keys="←" run={() => step(-1)} />
      <Press icon={backward ? "stop" : "back"} label="Play backward" keys="J" pressed={backward} run={() => (backward ? toggle() : play(-1))} />
      <Press icon={forward ? "stop" : "play"} label="Play" keys="Space" pressed={forward} run={() => (forward ? toggle() : play(1))} />
      <Press icon="next" label="One frame on" keys="→" run={() => step(1)} />
      <Press icon="last" label="Last frame" keys="End" run={() => go_to(all.at(-1) ?? 1)} />
      <FrameField />
      <select
        aria-label="At the end"
        value={state.loop_mode.value}
        onChange={(event) => (state.loop_mode.value = event.currentTarget.value as typeof state.loop_mode.value)}
      >
        <option value="loop">loop</option>
        <option value="bounce">bounce</option>
        <option value="once">once</option>
      </select>
      <RateField />
      <Reached />
      <span class="gap" />
      <Memory />
      <button
        role="switch"
        aria-checked={!state.paused.value}
        class="computing"
        title="Whether anything is computed (Shift P)"
        onClick={() => pause_computing(!state.paused.value)}
      >
        {state.paused.value ? "computing paused" : "computing"}
      </button>
    </div>
  );
}

function Memory() {
  const { held, budget } = state.memory.value;
  if (budget === 0) return null;
  const text = `${gigabytes(held)} of ${gigabytes(budget)} GB`;
  return (
    <span class="memory dim" title={`Results held in memory: ${text}`}>
      <meter min={0} max={budget} value={held} aria-label="Memory held by results" />
      <span class="mono">{text}</span>
    </span>
  );
}

function gigabytes(octets: number): string {
  return (octets / 1e9).toFixed(octets < 1e10 ? 2 : 1);
}
