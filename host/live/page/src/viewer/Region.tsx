import type { RegionReply, Value } from "../protocol";
import { sample } from "../state";
import { long_value } from "./numbers";
import { number_of, region } from "./probing";

const letters = ["R", "G", "B", "A"];

function Row(props: { name: string; values: Value[] | undefined }) {
  return (
    <tr data-row={props.name} data-values={props.values?.join(" ")}>
      <th scope="row">{props.name}</th>
      {letters.map((letter, index) => {
        const value = props.values?.[index];
        return <td key={letter}>{value === undefined ? "–" : long_value(number_of(value))}</td>;
      })}
    </tr>
  );
}

function bad_words(reply: RegionReply): string {
  const parts = [
    [reply.nan, "NaN"],
    [reply.infinite, "infinite"],
    [reply.negative, "negative"],
  ] as const;
  return parts
    .filter(([count]) => count > 0)
    .map(([count, word]) => `${count} ${word}`)
    .join(", ");
}

// Least, largest and mean of the sampled rectangle.
export function Region() {
  const box = sample.value;
  if (!box) return null;
  const reply = region.value;
  const bad = reply ? bad_words(reply) : "";
  return (
    <div class="viewer-region" data-part="region">
      <div class="viewer-region-head">
        <span>
          {box.x1 - box.x0}×{box.y1 - box.y0} at {box.x0}, {box.y0}
        </span>
        <button type="button" class="quiet" aria-label="Forget the sampled rectangle" onClick={() => (sample.value = null)}>
          ×
        </button>
      </div>
      <table>
        <thead>
          <tr>
            <td />
            {letters.map((letter) => (
              <th key={letter} scope="col" class={`channel-${letter.toLowerCase()}`}>
                {letter}
              </th>
            ))}
          </tr>
        </thead>
        <tbody>
          <Row name="least" values={reply?.least} />
          <Row name="largest" values={reply?.largest} />
          <Row name="mean" values={reply?.mean} />
        </tbody>
      </table>
      {bad && <div class="viewer-bad">{bad}</div>}
    </div>
  );
}
