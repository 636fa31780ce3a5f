import { node_height, node_width } from "./boxes";
import { layout } from "./layout";
import { messages } from "./states";

const width = 190;

// What is wrong, beneath the node that it is said of.
export function Messages() {
  return (
    <g class="messages">
      {[...messages.value].map(([name, lines]) => {
        const at = layout.value.places.get(name);
        return (
          at && (
            <foreignObject key={name} x={at.x - node_width / 2} y={at.y + node_height / 2 + 3} width={width} height="64">
              <div class="graph-message" data-node-message={name} title={lines.join("\n")}>
                {lines.join(" ")}
              </div>
            </foreignObject>
          )
        );
      })}
    </g>
  );
}
