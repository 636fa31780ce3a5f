// Files that the composition reads: a page that rests on a frame shows them as they are.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { renameSync, rmSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { test } from "node:test";
import { open_page, probe, shown } from "./support.mjs";

function paint(file, colour) {
  execFileSync("oiiotool", ["--pattern", `constant:color=${colour}`, "960x540", "3", "-d", "float", "-o", file]);
}

test("a plate that is written anew shows by itself", async (t) => {
  const { page, folder, file, faults } = await open_page(t);
  const own = (name) => join(folder, name);
  paint(own("still.exr"), "0.25,0.5,0.75");
  paint(own("moving.0001.exr"), "0,0,0");
  const shot = { format: { width: 960, height: 540 }, frames: "1-2", nodes: [
    { name: "still", type: "read", knobs: { file: "still.exr" } },
    { name: "moving", type: "read", knobs: { file: "moving.####.exr", missing: "black", after: "black" } },
    { name: "both", type: "merge", inputs: { a: "still", b: "moving" }, knobs: { operation: "plus" } },
  ] };
  writeFileSync(file, JSON.stringify(shot));
  await shown(page, { after: 1, node: "both" });
  const values = async () => (await probe(page, 0.5, 0.5)).values.slice(0, 3);
  assert.deepEqual(await values(), [0.25, 0.5, 0.75]);

  // What the probe tells follows the picture, which nobody has asked for.
  const seen = (wanted) => page.waitForFunction((wanted) => {
    const row = document.querySelector('[data-part="probe-a"][data-exact="true"]');
    return row?.dataset.values.split(" ").slice(0, 3).join() === wanted;
  }, wanted);
  paint(own("still.exr"), "0.5,0.25,0.125");
  await seen("0.5,0.25,0.125");
  paint(own("other.exr"), "0.25,0,0");
  renameSync(own("other.exr"), own("moving.0001.exr"));
  await seen("0.75,0.25,0.125");
  rmSync(own("still.exr"));
  const fault = page.locator('[data-part="viewer"]').getByText("still.exr");
  await fault.waitFor();
  paint(own("still.exr"), "0,0.5,0");
  await fault.waitFor({ state: "detached" });
  assert.deepEqual(await values(), [0.25, 0.5, 0]);
  assert.deepEqual(faults, []);
});
