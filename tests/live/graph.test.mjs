// A graph of hundreds of nodes: what is done to it shows at once, and is arranged without the page standing still.
import assert from "node:assert/strict";
import { test } from "node:test";
import { open_page, shown } from "./support.mjs";

// Eight chains, which read each other now and then and meet at the end.
function many(count) {
  const nodes = [];
  for (let i = 0; i < count - 8; ++i) {
    const name = `node${i}`;
    if (i < 8) nodes.push({ name, type: "constant" });
    else if (i % 11 === 0 && i > 13) nodes.push({ name, type: "merge", inputs: { a: `node${i - 8}`, b: `node${i - 13}` } });
    else nodes.push({ name, type: "grade", inputs: `node${i - 8}` });
  }
  for (let i = 1; i < 8; ++i)
    nodes.push({ name: `both${i}`, type: "merge", inputs: { a: `node${count - 8 - i}`, b: i > 1 ? `both${i - 1}` : `node${count - 16}` } });
  nodes.push({ name: "out", type: "write", inputs: "both7", knobs: { file: "out.####.exr" } });
  return JSON.stringify({ format: { width: 32, height: 18 }, frames: "1", nodes }, null, 1);
}

// All nodes' places as they stand in the page, and the edges.
const drawn = (page) =>
  page.evaluate(() => ({
    places: Object.fromEntries([...document.querySelectorAll("[data-graph] [data-node]")].map((node) => [node.dataset.node, node.getAttribute("transform").match(/-?[\d.]+/g).map(Number)])),
    edges: [...document.querySelectorAll("[data-edge]")].map((edge) => edge.dataset.edge),
  }));

function no_overlap({ places }, words) {
  const all = Object.entries(places);
  all.forEach(([one, [x, y]], at) => all.slice(at + 1).forEach(([other, [u, v]]) =>
    assert.ok(Math.abs(x - u) >= 124 || Math.abs(y - v) >= 34, `${words}: ${one} lies on ${other}`)));
}

test("nodes that come, go, and are connected otherwise stand in the picture at once, and what one looks at stays", async (t) => {
  const count = 300;
  const { page, faults } = await open_page(t, {
    change: () => many(count),
    // Answers of the thread that arranges wait while `held` is a list.
    prepare: (page) => page.addInitScript(() => {
      const Real = window.Worker;
      window.Worker = class {
        constructor(...given) {
          this.real = new Real(...given);
          this.real.onmessage = (event) => (window.held ? window.held.push(() => this.onmessage(event)) : this.onmessage(event));
        }
        postMessage(message) {
          this.real.postMessage(message);
        }
      };
    }),
  });
  await shown(page);
  await page.locator("[data-graph] [data-node=out]").waitFor();
  await page.keyboard.press("Shift+f");
  await page.waitForFunction((count) => document.querySelectorAll("[data-graph] [data-node]").length === count, count);
  const before = await drawn(page);
  no_overlap(before, "arranged");
  for (const edge of before.edges) {
    const [from, to] = edge.split(" ");
    assert.ok(before.places[from][1] < before.places[to][1], `${edge} goes up`);
  }

  await page.evaluate(() => (window.held = []));
  const select = async (name) => {
    await page.keyboard.press("/");
    await page.keyboard.type(name);
    await page.keyboard.press("Enter");
    await page.keyboard.press("Escape");
    await page.keyboard.press("Shift+f");
  };
  await select("node150");
  await page.keyboard.press("Delete");
  let now = await drawn(page);
  assert.equal(now.places.node150, undefined);
  assert.ok(now.edges.includes("node142 node158"), `${now.edges}`);
  await select("node200");
  await page.keyboard.press("n");
  await page.keyboard.type("blur");
  await page.keyboard.press("Enter");
  now = await drawn(page);
  assert.ok(now.places.blur && now.edges.includes("node200 blur") && now.edges.includes("blur node208"), `${now.edges}`);
  no_overlap(now, "meanwhile");
  await page.getByLabel("Input image").selectOption("node100");
  const field = page.getByLabel("Name of the node");
  await field.fill("soft");
  await field.press("Enter");
  now = await drawn(page);
  assert.ok(now.places.soft && now.edges.includes("node100 soft") && now.edges.includes("soft node208"), `${now.edges}`);
  no_overlap(now, "meanwhile");

  const stands = () => page.locator("[data-graph] [data-node=soft] .body").boundingBox();
  const there = await stands();
  await page.evaluate(() => {
    const answers = window.held;
    window.held = null;
    for (const answer of answers) answer();
  });
  await page.locator('[data-graph][aria-busy="false"]').waitFor();
  const still = await stands();
  assert.ok(Math.hypot(still.x - there.x, still.y - there.y) < 1, `it went from ${there.x}, ${there.y} to ${still.x}, ${still.y}`);
  await page.keyboard.press("Shift+f");
  const after = await drawn(page);
  assert.equal(Object.keys(after.places).length, count);
  no_overlap(after, "arranged again");
  assert.ok(after.places.node100[1] < after.places.soft[1] && after.places.soft[1] < after.places.node208[1]);
  assert.deepEqual(faults, []);
});
