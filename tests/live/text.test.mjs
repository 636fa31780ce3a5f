// Edits of a composition's text against the same edits of plain objects: seeded random sequences over texts laid out
// by hand. Comments stay, everything that an edit does not name stays, and a knob is a difference of one line.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { test } from "node:test";

const root = new URL("../../", import.meta.url);
const need = createRequire(new URL("host/live/page/package.json", root));
const { parse, stripComments } = need("jsonc-parser");

const source = ["edits", "history", "inputs", "model", "write"].map((name) => `export * from "./${name}";`).join("\n");
const bundle = await need("esbuild").build({
  stdin: { contents: source, resolveDir: new URL("host/live/page/src/document", root).pathname, loader: "ts" },
  bundle: true, write: false, format: "esm", platform: "neutral", mainFields: ["module", "main"], logLevel: "error",
});
const page = await import(`data:text/javascript;base64,${Buffer.from(bundle.outputFiles[0].contents).toString("base64")}`);

const type = (name, inputs, more = {}) => [name, { name, inputs: inputs.map((each) => ({ name: each, required: each !== "mask", help: "" })),
  knobs: [], repeats_last_input: false, writes_files: false, ...more }];
const catalogue = new Map([type("read", []), type("constant", []), type("grade", ["image", "mask"]), type("glow", ["image", "mask"]),
  type("color_matrix", ["image", "mask"]), type("screen_key", ["image"]), type("transform", ["image", "mask"]), type("disc_blur", ["image", "mask"]),
  type("merge", ["a", "b", "mask"]), type("switch", ["images"], { repeats_last_input: true }),
  type("write", ["image"], { writes_files: true })]);

const nasty = `// before
{ "format": {"width":10, "height" : 5}, /* here */ "frames": "1-9", "output": ["last", "b"],
\t"nodes": [ {"name": "a", "type": "read"}, // first
\t\t{"name": "b", "type": "grade", "inputs": ["a"], "knobs": { // none yet
\t\t}},
\t\t{
\t\t\t"name": "c", // the third
\t\t\t"type": "switch",
\t\t\t"inputs": {"images": ["a", "b"]},
\t\t\t"knobs": {
\t\t\t\t"which": 0.5, // half
\t\t\t\t"list": [
\t\t\t\t\t1, // one
\t\t\t\t\t2
\t\t\t\t]
\t\t\t\t// the end
\t\t\t}
\t\t},
\t\t// the last
\t\t{"name": "last", "type": "write", "inputs": {"rgba": "c", "depth": "a"}}
\t]
}
`;
const texts = {
  "the example": readFileSync(new URL("examples/shot.json", root), "utf8"),
  "layers": readFileSync(new URL("examples/jobs/layers.json", root), "utf8"),
  "mixed layout": nasty,
  "carriage returns": nasty.replaceAll("\n", "\r\n"),
  "one line": JSON.stringify(parse(nasty)),
};

function random(seed) {
  return (below) => {
    seed = (Math.imul(seed, 1664525) + 1013904223) >>> 0;
    return Math.floor((seed / 2 ** 32) * below);
  };
}

const comments = (text) => text.length - stripComments(text).length;
const lines = (text) => text.split(/\r?\n/);

function differing(before, after) {
  const [one, other] = [lines(before), lines(after)];
  let front = 0;
  while (front < Math.min(one.length, other.length) && one[front] === other[front]) ++front;
  let back = 0;
  while (back < Math.min(one.length, other.length) - front && one.at(-1 - back) === other.at(-1 - back)) ++back;
  return Math.max(one.length, other.length) - front - back;
}

// What a node reads, as [input, from] pairs whatever form the text has.
function reads(node) {
  const spec = catalogue.get(node.type)?.inputs.map((each) => each.name) ?? [];
  const named = (slot) => spec[Math.min(slot, spec.length - 1)];
  const { inputs } = node;
  if (inputs === undefined) return [];
  if (typeof inputs === "string") return [[named(0), inputs]];
  if (Array.isArray(inputs)) return inputs.map((from, slot) => [named(slot), from]);
  return Object.entries(inputs).flatMap(([name, from]) => [from].flat().map((each) => [name === "rgba" ? "image" : name, each]));
}

const plain = (document) => ({ ...document,
  output: document.output === undefined ? undefined : [document.output].flat(),
  nodes: document.nodes.map((node) => ({ ...node, inputs: undefined, knobs: node.knobs ?? {},
    reads: node.reads ?? reads(node).sort((one, other) => (one[0] < other[0] ? -1 : 1)) })) });

const sorted = (pairs) => [...pairs].sort((one, other) => (one[0] < other[0] ? -1 : 1));

// One edit of the text and of the naive twin, which keeps `reads` in place of `inputs`.
function step(text, twin, pick) {
  const node = twin.nodes[pick(twin.nodes.length)];
  const value = [pick(9) / 10 + 0.1 * 2, "word", true, [pick(4), 0.25], { keys: [[1, pick(5), "smooth"], [pick(7) + 2, 1]] }][pick(5)];
  const knob = [...Object.keys(node.knobs), "mix", "new"][pick(Object.keys(node.knobs).length + 2)];
  switch (pick(8)) {
    case 0: case 1: case 2: {
      const there = JSON.stringify(node.knobs[knob]);
      node.knobs[knob] = JSON.parse(JSON.stringify(value), (_, each) => (typeof each === "number" ? Number(page.written(each)) : each));
      const after = page.with_knob(text, node.name, knob, value);
      const few = lines(text).length > 1 && !there?.includes("[") ? 2 : Infinity; // a comma behind the one before
      assert.ok(differing(text, after) <= few, `one line for a knob:\n${after}`);
      return after;
    }
    case 3: delete node.knobs[knob]; return page.with_knob(text, node.name, knob, undefined);
    case 4: {
      const on = pick(2) === 1;
      if (on) node.disabled = true; else delete node.disabled;
      return page.with_disabled(text, node.name, on);
    }
    case 5: {
      const name = `n${pick(1e9)}`;
      for (const each of twin.nodes) for (const pair of each.reads) if (pair[1] === node.name) pair[1] = name;
      if (twin.output) twin.output = twin.output.map((each) => (each === node.name ? name : each));
      const old = node.name;
      node.name = name;
      return page.with_name(text, old, name);
    }
    case 6: {
      const name = `n${pick(1e9)}`;
      const kind = ["grade", "merge", "constant"][pick(3)];
      const last = node.type === "write";
      const main = node.reads.find((pair) => pair[0] === "image");
      const source = last ? main?.[1] : node.name;
      const from = kind === "constant" || !source ? [] : [[kind === "merge" ? "a" : "image", source]];
      const readers = last ? [main] : twin.nodes.flatMap((each) => each.reads).filter((pair) => pair[1] === source);
      if (kind === "grade" && source) for (const pair of readers) pair[1] = name;
      twin.nodes.splice(twin.nodes.indexOf(node) + (last ? 0 : 1), 0, { name, type: kind, knobs: {}, reads: from });
      return page.with_node(text, catalogue, kind, name, node.name);
    }
    default: {
      if (twin.nodes.length > 4 && pick(2)) return remove(text, twin, node);
      const spec = catalogue.get(node.type);
      if (!spec?.inputs.length || spec.repeats_last_input) return text;
      const name = spec.inputs[pick(spec.inputs.length)].name;
      const from = ["", ...twin.nodes.map((each) => each.name)][pick(twin.nodes.length + 1)];
      const link = page.read_model(text, catalogue).named.get(node.name).links.find((each) => [name, "rgba"].includes(each.name));
      if (from && page.reaches(page.read_model(text, catalogue), node.name, from)) return text;
      node.reads = sorted([...node.reads.filter((pair) => pair[0] !== name), ...(from ? [[name, from]] : [])]);
      return page.with_input(text, catalogue, node.name, link, from);
    }
  }
}

function remove(text, twin, node) {
  const first = catalogue.get(node.type)?.inputs[0]?.name;
  const instead = node.reads.find((pair) => pair[0] === first)?.[1] ?? "";
  twin.nodes.splice(twin.nodes.indexOf(node), 1);
  for (const each of twin.nodes)
    each.reads = each.reads.map(([name, from]) => [name, from === node.name ? instead : from]).filter((pair) => pair[1] !== "");
  if (twin.output) twin.output = twin.output.map((each) => (each === node.name ? instead : each)).filter((each) => each !== "");
  if (twin.output?.length === 0) delete twin.output;
  return page.without_node(text, catalogue, node.name);
}

for (const [name, start] of Object.entries(texts))
  test(`random edits of ${name}`, () => {
    for (let seed = 1; seed <= 30; ++seed) {
      const pick = random(seed);
      const history = new page.History();
      const twin = plain(parse(start));
      const all = [start];
      for (let i = 0; i < 30; ++i) {
        const removals = twin.nodes.length;
        const before = all.at(-1);
        const after = step(before, twin, pick);
        if (twin.nodes.length >= removals) assert.ok(comments(after) >= comments(before) || /\[\s*1, \/\/ one/.test(before), `comments stay:\n${before}\n${after}`);
        const errors = [];
        const got = plain(parse(after, errors, { allowTrailingComma: false }));
        assert.deepEqual(errors, [], after);
        assert.deepEqual(JSON.parse(JSON.stringify(got)), JSON.parse(JSON.stringify(plain(twin))), `seed ${seed}, step ${i}:\n${before}\n${after}`);
        if (start.includes("\r\n")) assert.ok(!/[^\r]\n/.test(after), "line ends stay");
        if (after !== before) { history.add(before, after, "step"); all.push(after); }
      }
      let text = all.at(-1);
      for (const earlier of all.slice(0, -1).reverse()) assert.equal((text = history.undo(text)), earlier);
      for (const later of all.slice(1)) assert.equal((text = history.redo(text)), later);
    }
  });

test("what is written is what a person would write", () => {
  const shot = texts["the example"];
  const line = (text) => lines(text).filter((each, i) => each !== lines(shot)[i]);
  const rows = [
    [page.with_knob(shot, "key", "black", 0.1 + 0.2), '      "screen": [0.055, 0.46, 0.095], "black": 0.3, "white": 0.85}},'],
    [page.with_knob(shot, "dusk", "multiply", [1, 0.8, 0.7]), '      "multiply": [1, 0.8, 0.7], "gamma": 0.7}},'],
    [page.with_knob(shot, "mood", "mix", 1e-9), '    {"name": "mood", "type": "grade", "inputs": "hills", "knobs": {"gamma": 0.6, "mix": 1e-9}},'],
    [page.with_knob(shot, "mood", "gamma", undefined), '    {"name": "mood", "type": "grade", "inputs": "hills"},'],
    [page.with_input(shot, catalogue, "mood", { name: "mask", at: 0 }, "key"),
      '    {"name": "mood", "type": "grade", "inputs": {"image": "hills", "mask": "key"}, "knobs": {"gamma": 0.6}},'],
    [page.with_input(shot, catalogue, "out", { name: "depth", at: 0 }, "key"),
      '    {"name": "out", "type": "write", "inputs": {"image": "titled", "depth": "key"}, "knobs": {"file": "../out/shot.####.exr"}}'],
  ];
  for (const [text, expected] of rows) assert.deepEqual(line(text), [expected]);
  assert.throws(() => page.with_input(shot, catalogue, "key", { name: "image", at: 0 }, "over"), /circle/);
});
