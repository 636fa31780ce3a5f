import { useState } from "preact/hooks";
import { get } from "../net/api";
import { last_drawn } from "../net/session";
import type { NodeState } from "../protocol";
import { picture_a, selected_node } from "../state";
import { say } from "./render";

// The last frame's nodes, those that took longest first.
export function TimePanel() {
  const drawn = last_drawn.value;
  const nodes = [...(drawn?.nodes ?? [])].sort((one, other) => other.ms - one.ms);
  const longest = Math.max(1e-3, nodes[0]?.ms ?? 0);
  const header = picture_a.value?.header;
  return (
    <div class="panel time-panel">
      <div class="panel-head">
        {drawn && (
          <span>
            Frame <b class="mono">{drawn.frame}</b> of <b>{drawn.node || "the output"}</b>
            {drawn.scale !== 1 && <span class="mono dim"> ×{+drawn.scale.toFixed(3)}</span>}
          </span>
        )}
        {header && (
          <span class="dim">
            {header.cached ? "from memory" : "wish to pixels"} <span class="mono">{header.ms.toFixed(1)} ms</span>
          </span>
        )}
        <span class="gap" />
        <Trace />
      </div>
      {nodes.length === 0 && <p class="dim">Nothing has been drawn yet.</p>}
      <table>
        <thead class="unseen">
          <tr>
            <th>Node</th>
            <th>State</th>
            <th>Share</th>
            <th>Milliseconds</th>
            <th>Memory</th>
          </tr>
        </thead>
        <tbody>
          {nodes.map((node) => (
            <Row key={node.name} node={node} share={node.ms / longest} />
          ))}
        </tbody>
      </table>
    </div>
  );
}

function Row({ node, share }: { node: NodeState; share: number }) {
  return (
    <tr>
      <td>
        <button class="quiet" onClick={() => (selected_node.value = node.name)}>
          {node.name}
        </button>
      </td>
      <td class={`state-${node.state}`} title={node.message}>
        {node.state}
      </td>
      <td class="bar">
        <div style={{ width: `${(100 * share).toFixed(1)}%` }} />
      </td>
      <td class="mono">{node.ms.toFixed(2)} ms</td>
      <td class="mono dim">{(node.bytes / 1e6).toFixed(1)} MB</td>
    </tr>
  );
}

function Trace() {
  const [seconds, set_seconds] = useState(10);
  const download = async () => {
    const trace = await get<unknown>(`/trace?seconds=${seconds}`);
    const text = typeof trace === "string" ? trace : JSON.stringify(trace);
    const link = document.createElement("a");
    link.href = URL.createObjectURL(new Blob([text], { type: "application/json" }));
    link.download = "quorvel-trace.json";
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 10000);
  };
  return (
    <span class="trace">
      <label>
        Trace of the last{" "}
        <select value={seconds} onChange={(event) => set_seconds(Number(event.currentTarget.value))}>
          {[5, 10, 30, 60].map((each) => (
            <option key={each} value={each}>
              {each} s
            </option>
          ))}
        </select>
      </label>
      <button title="As a Chrome trace: drawing, decoding, read-back, encoding" onClick={() => void download().catch(say)}>
        Download
      </button>
    </span>
  );
}
