import { useEffect } from "preact/hooks";
import { sample } from "../state";
import type { Scale } from "./counts";
import { counts, follow_picture, scale } from "./follow";
import { Histogram } from "./Histogram";
import "./scopes.css";
import { Vectorscope } from "./Vectorscope";
import { Waveform } from "./Waveform";

const scales: { scale: Scale; name: string; title: string }[] = [
  { scale: "display", name: "Display", title: "As the screen shows it, in percent: after exposure, display and gamma" },
  { scale: "linear", name: "Linear", title: "Scene-linear, as the node computed it" },
];

// Histogram, waveform and vectorscope of the shown picture. Nothing is counted while they are not on the page.
export function Scopes() {
  useEffect(follow_picture, []);
  const now = counts.value;
  return (
    <section class="scopes" data-part="scopes" data-scale={now?.scale} data-samples={now?.samples} aria-label="Scopes">
      <div class="scopes-bar">
        <span class="segments" role="group" aria-label="Values of">
          {scales.map((each) => (
            <button key={each.scale} type="button" title={each.title} aria-pressed={scale.value === each.scale} onClick={() => (scale.value = each.scale)}>
              {each.name}
            </button>
          ))}
        </span>
        <span class="scope-note">{sample.value ? "sampled rectangle" : "whole picture"}</span>
        {now && now.bad > 0 && <span class="scope-bad">{now.bad} not finite</span>}
      </div>
      {now ? (
        <div class="scopes-row">
          <Histogram counts={now} />
          <Waveform counts={now} />
          <Vectorscope counts={now} />
        </div>
      ) : (
        <p class="scope-empty">No picture yet</p>
      )}
    </section>
  );
}
