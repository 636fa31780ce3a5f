import { arrange } from "./arrange";
import type { Topology } from "./boxes";

// A thread of its own for what would hold the page up.
addEventListener("message", (event: MessageEvent<Topology>) => postMessage(arrange(event.data)));
