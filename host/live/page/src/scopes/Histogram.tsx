import { type Counts, levels, marks } from "./counts";

const width = 256;
const height = 120;
const names = ["red", "green", "blue"];

// The tallest bar that matters: one value that a large part of the picture has does not flatten the rest.
function tallest(histogram: Uint32Array): number {
  const inner: number[] = [];
  for (let channel = 0; channel < 3; ++channel) {
    for (let level = 1; level < levels - 1; ++level) inner.push(histogram[channel * levels + level]!);
  }
  inner.sort((one, other) => other - one);
  return Math.max(1, inner[6] ?? 1);
}

function outline(histogram: Uint32Array, channel: number, most: number): string {
  const parts = [`M0 ${height}`];
  for (let level = 0; level < levels; ++level) {
    const share = Math.min(1, Math.sqrt(histogram[channel * levels + level]! / most));
    const y = (height * (1 - share)).toFixed(1);
    parts.push(`L${level} ${y}L${level + 1} ${y}`);
  }
  return `${parts.join("")}L${width} ${height}Z`;
}

function share_words(counts: Counts, level: number): string {
  let most = 0;
  for (let channel = 0; channel < 3; ++channel) most = Math.max(most, counts.histogram[channel * levels + level]!);
  const percent = (100 * most) / Math.max(1, counts.samples);
  return percent < 0.05 ? "" : `${percent < 1 ? percent.toFixed(1) : Math.round(percent)} %`;
}

// How many pixels have which value; the root of the count, so that few are seen beside many.
export function Histogram({ counts }: { counts: Counts }) {
  const most = tallest(counts.histogram);
  return (
    <figure class="scope" data-part="histogram">
      <figcaption>
        <span>Histogram</span>
        <span class="scope-note" title="Share of the pixels at or beyond the ends, of the channel that has most">
          {share_words(counts, 0) && `low ${share_words(counts, 0)}`} {share_words(counts, levels - 1) && `high ${share_words(counts, levels - 1)}`}
        </span>
      </figcaption>
      <div class="scope-field">
        <svg class="scope-fill" viewBox={`0 0 ${width} ${height}`} preserveAspectRatio="none" role="img" aria-label="Histogram of red, green and blue">
          {names.map((name, channel) => (
            <path key={name} class={`histogram-${name}`} d={outline(counts.histogram, channel, most)} />
          ))}
        </svg>
        {marks[counts.scale].map((mark) => (
          <i key={mark.words} class="scope-upright" style={{ left: `${mark.at * 100}%` }} />
        ))}
      </div>
      <div class="scope-marks">
        {marks[counts.scale].map((mark) => (
          <span key={mark.words} style={{ left: `${mark.at * 100}%` }}>
            {mark.words}
          </span>
        ))}
      </div>
    </figure>
  );
}
