import { loud, selected_node } from "../state";
import { find_kind, forget_found, found, kind_words, kinds, next_bad_pixel, searching } from "./bad_pixels";
import { loud_colours } from "./gl/shader";

// What the loud colours mean, and the way to such pixels.
export function Legend() {
  if (!loud.value) return null;
  return (
    <div class="viewer-legend" data-part="legend">
      <div class="viewer-legend-row">
        {kinds.map((kind) => (
          <button
            key={kind}
            type="button"
            class="quiet"
            title={`Go to the first ${kind_words[kind]} pixel`}
            disabled={searching.value}
            onClick={() => void find_kind(kind)}
          >
            <i style={{ background: `rgb(${loud_colours[kind].join(" ")})` }} />
            {kind_words[kind]}
          </button>
        ))}
        <button
          type="button"
          data-part="next-bad-pixel"
          title="Go to the next NaN, infinite or negative pixel (N)"
          disabled={searching.value}
          onClick={() => void next_bad_pixel()}
        >
          {searching.value ? "Searching…" : "Next bad pixel"}
        </button>
      </div>
      <div class="viewer-found" role="status" data-part="found">
        <FoundWords />
      </div>
    </div>
  );
}

function FoundWords() {
  const now = found.value;
  if (!now) return null;
  return (
    <>
      <span>{now.words}</span>
      {now.made_by && (
        <button type="button" title="Select this node" onClick={() => (selected_node.value = now.made_by)}>
          {now.made_by}
        </button>
      )}
      <button type="button" class="quiet" aria-label="Dismiss" onClick={forget_found}>
        ×
      </button>
    </>
  );
}
