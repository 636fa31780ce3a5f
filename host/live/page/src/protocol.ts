// What page and server say to each other. Boxes are x0, y0, x1, y1 in pixels of the full-size format, y up,
// the second corner outside; rows of pixels stand top to bottom.

export type Box = [number, number, number, number];

export interface Problem {
  node: string; // "" when none is at fault
  knob: string;
  message: string;
  suggestion: string;
}

export interface NodeInfo {
  name: string;
  type: string;
  inputs: string[]; // by position, "" where nothing is connected
  disabled: boolean;
}

// The composition as the server understands its newest version.
export interface DocumentInfo {
  version: number;
  path: string;
  saved: boolean; // the file says the same
  format: { width: number; height: number; pixel_aspect: number };
  frames: number[]; // in order
  views: string[];
  outputs: string[];
  nodes: NodeInfo[]; // upstream first
}

export interface DocumentText extends DocumentInfo {
  text: string;
}

export type Pixels = "rgba16f" | "r11g11b10f" | "rgba8"; // r11g11b10f has no alpha; rgba8 is linear, held to 0..1
export type Slot = "a" | "b";

// An image that the page wants, best first. A new list replaces the one before: what is being drawn goes on if
// its id is in it, what has been sent is not sent again.
export interface Wish {
  id: number; // of this page, never used twice
  slot: Slot;
  version: number; // 0: the newest
  node: string; // "": the first output
  frame: number;
  scale: number; // above 0, at most 1
  area: "format" | "window";
  pixels: Pixels;
}

// Frames to compute while nothing is asked for, nearest to `frame` first, in direction 1 or -1 before the other.
export interface Ahead {
  node: string;
  scale: number;
  first: number;
  last: number;
  frame: number;
  direction: 1 | -1;
}

export interface ViewRequest {
  client: string;
  wishes: Wish[];
  ahead: Ahead | null;
}

// In front of each image of GET /frames: "QVF1", the length of this as JSON, the length of the pixels (both 32
// bits, little endian).
export interface FrameHeader {
  id: number;
  slot: Slot;
  version: number;
  node: string;
  frame: number;
  scale: number;
  pixels: Pixels;
  width: number; // of the rows that follow; 0 when there are none
  height: number;
  area: Box; // what they are of
  window: Box; // where the node has pixels
  format: { width: number; height: number; pixel_aspect: number };
  coverage: boolean;
  cached: boolean; // nothing had to be drawn
  ms: number; // from the wish to the pixels
  problem: Problem | null; // why there is no image
}

export interface NodeState {
  name: string;
  state: "cached" | "computed" | "error";
  ms: number; // of the last draw
  bytes: number; // that it holds
  message: string; // of an error
}

export interface RenderState {
  state: "idle" | "running" | "done" | "failed" | "stopped";
  done: number;
  total: number;
  message: string;
}

// The events of GET /events, by name.
export interface Events {
  document: DocumentInfo; // a new version, whoever made it
  disk: { changed: boolean }; // the file is another one than the document was read from or saved to
  files: Record<string, never>; // some that the composition reads have changed
  nodes: { version: number; frame: number; node: string; scale: number; nodes: NodeState[] };
  cached: { version: number; node: string; scale: number; frames: Box1[] };
  memory: { held: number; budget: number };
  render: RenderState;
  notice: { text: string };
  device: { lost: boolean; message: string };
  computing: { paused: boolean };
}
export type Box1 = [number, number]; // first and last

export type Value = number | "nan" | "inf" | "-inf";

// GET /pixel?version&node&frame&x&y: of the full-size format, y up.
export interface PixelReply {
  value: [Value, Value, Value, Value];
}

// GET /region?version&node&frame&x0&y0&x1&y1
export interface RegionReply {
  least: Value[];
  largest: Value[];
  mean: Value[]; // of those that are finite
  nan: number;
  infinite: number;
  negative: number;
}

// GET /find?kind=nan|infinite|negative&version&node&frame
export interface FindReply {
  found: boolean;
  x: number;
  y: number;
  made_by: string; // the first node from the top of the graph that has such a pixel
}

// GET /curve?node&knob&component&first&last&step: of the newest version, as the library evaluates it.
export interface CurveReply {
  first: number;
  step: number;
  values: Value[];
}

// GET /display
export interface DisplayReply {
  config: string;
  displays: { name: string; views: string[] }[]; // empty: plain sRGB
}

// GET /display/shader?display&view
export interface DisplayShader {
  shader: string; // GLSL ES 3.00 that defines vec4 display_convert(vec4)
  tables: { sampler: string; width: number; height: number; depth: number; rgba: string }[]; // base64, floats
}

export interface KnobSpec {
  name: string;
  kind: "number" | "integer" | "flag" | "choice" | "text" | "texts" | "file" | "object";
  help: string;
  expects: string;
  defaults: number[];
  default_text: string;
  choices: string[];
  minimum: number | null;
  maximum: number | null;
  fewest: number;
  pixels: boolean;
}

export interface NodeType {
  name: string;
  family: string;
  help: string;
  inputs: { name: string; required: boolean; help: string }[];
  knobs: KnobSpec[];
  repeats_last_input: boolean;
  writes_files: boolean;
}
