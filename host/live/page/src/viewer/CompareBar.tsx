import { compare, info } from "../state";
import { pin_node, pin_now, seen_versions, set_compare } from "./comparing";
import { NumberField } from "./controls";

const gains = [1, 2, 4, 8, 16, 32, 64, 128];

// What B is; there while something is compared.
export function CompareBar() {
  const { node, version, gain, mode } = compare.value;
  const nodes = info.value?.nodes ?? [];
  return (
    <div class="viewer-bar-row" data-part="compare-bar">
      <span class="bar-note">B</span>
      <select
        aria-label="Node that B shows"
        data-part="compare-node"
        value={node}
        onChange={(event) => set_compare({ node: event.currentTarget.value })}
      >
        <option value="">first output</option>
        {node && !nodes.some((each) => each.name === node) && <option value={node}>{node}</option>}
        {[...nodes].reverse().map((each) => (
          <option key={each.name} value={each.name}>
            {each.name}
          </option>
        ))}
      </select>
      <select
        aria-label="Version that B shows"
        data-part="compare-version"
        value={version}
        onChange={(event) => set_compare({ version: Number(event.currentTarget.value) })}
      >
        <option value={0}>newest</option>
        {seen_versions.value.map((each) => (
          <option key={each.version} value={each.version}>
            version {each.version} of {each.time}
          </option>
        ))}
      </select>
      <button type="button" title="B is the shown node as it is now (P)" data-part="pin-now" onClick={pin_now}>
        Pin as it is now
      </button>
      <button type="button" title="B is the shown node, with every later edit (Shift+B)" onClick={pin_node}>
        Pin node
      </button>
      {mode === "difference" && (
        <>
          <span class="bar-note">times</span>
          <select aria-label="Gain of the difference" value={gain} onChange={(event) => set_compare({ gain: Number(event.currentTarget.value) })}>
            {[...new Set([...gains, gain])].sort((one, other) => one - other).map((each) => (
              <option key={each} value={each}>
                {each}
              </option>
            ))}
          </select>
          <NumberField value={gain} words={String(gain)} label="Gain of the difference" least={0.001} most={1e6} part="gain" set={(value) => set_compare({ gain: value })} />
        </>
      )}
    </div>
  );
}
