// Knobs, curves and connections: what a hand does at the page shows at once, can be undone, and is a line of the file.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import { test } from "node:test";
import { open_page, probe, program, rendered, shown } from "./support.mjs";

async function find(page, letters) {
  await page.keyboard.press("Control+k");
  await page.keyboard.type(letters);
  await page.keyboard.press("Enter");
}

// Saves, and says which lines of the file are others than they were.
async function saved_lines(page, file, before) {
  await page.keyboard.press("Control+s");
  await page.locator(".title-bar .dirty").waitFor({ state: "detached" });
  const lines = readFileSync(file, "utf8").split("\n");
  const old = before.split("\n");
  assert.equal(lines.length, old.length);
  return lines.flatMap((line, at) => (line === old[at] ? [] : [line]));
}

async function same_as_rendered(page, file, frame) {
  for (const place of [[0.35, 0.6], [0.3, 0.7]]) {
    const { x, y, values } = await probe(page, ...place);
    assert.deepEqual(values.map(Math.fround), rendered(file, frame)(x, y), `at ${x}, ${y}`);
  }
}

test("a slider that is dragged shows while it moves, is one step, and one line of the file", async (t) => {
  const { page, file, faults } = await open_page(t);
  const before = readFileSync(file, "utf8");
  const first = await shown(page);
  await find(page, "dusk gamma");
  const slider = await page.locator('[data-knob="gamma"] input[type="range"]').boundingBox();
  const number = page.locator('[data-knob="gamma"] input:not([type="range"])').first();
  const start = await number.inputValue();
  const versions = new Set();
  await page.mouse.move(slider.x + slider.width * 0.3, slider.y + slider.height / 2);
  await page.mouse.down();
  for (let step = 1; step <= 4; ++step) {
    await page.mouse.move(slider.x + slider.width * (0.3 + step * 0.02), slider.y + slider.height / 2);
    versions.add(await shown(page, { after: Math.max(first, ...versions), full: false }));
  }
  await page.mouse.up();
  assert.equal(versions.size, 4);
  const now = await number.inputValue();
  assert.notEqual(now, start);
  const changed = await saved_lines(page, file, before);
  assert.equal(changed.length, 1);
  assert.match(changed[0], new RegExp(`"multiply": \\[1, 0.8, 0.75\\], "gamma": ${now.replace(".", "\\.")}`));
  await shown(page, { after: Math.max(...versions) - 1 });
  await same_as_rendered(page, file, 1);

  await page.keyboard.press("Control+z");
  await page.locator(".title-bar .dirty").waitFor();
  assert.deepEqual(await saved_lines(page, file, before), []);
  assert.deepEqual(faults, []);
});

test("a key that is dragged moves in time and value, in its line, and the picture with it", async (t) => {
  const { page, file } = await open_page(t);
  const before = readFileSync(file, "utf8");
  await page.getByLabel("Frame", { exact: true }).fill("10");
  await page.keyboard.press("Enter");
  const first = await shown(page, { frame: 10 });
  await find(page, "shine brightness");
  const key = page.locator('[data-curve-surface] [data-frame="14"]');
  const box = await key.boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  const surface = await page.locator("[data-curve-surface]").boundingBox();
  const last = await page.locator('[data-curve-surface] [data-frame="24"]').boundingBox();
  const frame = (last.x - box.x) / 10;
  await page.mouse.move(box.x + box.width / 2 - 4 * frame, box.y + Math.min(40, surface.height / 3), { steps: 6 });
  await page.mouse.up();
  await shown(page, { frame: 10, after: first });
  const changed = await saved_lines(page, file, before);
  assert.equal(changed.length, 1);
  const [, value] = changed[0].match(/"brightness": \{"keys": \[\[1, 0, "smooth"\], \[10, ([\d.]+), "smooth"\], \[24, 1\]\]\}/);
  assert.ok(Number(value) < 1.6);
  await shown(page, { frame: 10, after: first });
  await same_as_rendered(page, file, 10);
});

test("an output dragged to an input connects them, and a list of inputs does as well", async (t) => {
  const { page, file } = await open_page(t);
  const before = readFileSync(file, "utf8");
  const first = await shown(page);
  const middle = async (selector) => {
    const box = await page.locator(selector).boundingBox();
    return [box.x + box.width / 2, box.y + box.height / 2];
  };
  await page.mouse.move(...(await middle('[data-output="mood"] .dot')));
  await page.mouse.down();
  await page.mouse.move(...(await middle('[data-node="over"] [data-port="b"] .dot')), { steps: 8 });
  await page.mouse.up();
  const second = await shown(page, { after: first });
  const changed = await saved_lines(page, file, before);
  assert.deepEqual(changed, [before.split("\n").find((line) => line.includes('"name": "over"')).replace('"b": "lens"', '"b": "mood"')]);
  await same_as_rendered(page, file, 1);

  await find(page, "over");
  await page.getByLabel("Input b").selectOption("lens");
  await shown(page, { after: second });
  assert.deepEqual(await saved_lines(page, file, before), []);
});

test("an error stands on its node, in the words of the command line", async (t) => {
  const { page, file } = await open_page(t);
  await shown(page);
  await find(page, "plate file");
  const field = page.locator('[data-knob="file"] input');
  await field.fill("plates/nothing.####.exr");
  await field.press("Enter");
  const node = page.locator('[data-node="plate"][data-state="error"]');
  await node.waitFor();
  const broken = file.replace("shot.json", "broken.json");
  writeFileSync(broken, readFileSync(file, "utf8").replace("plates/greenscreen.####.exr", "plates/nothing.####.exr"));
  const said = spawnSync(program, ["render", broken, "-f", "1", "-o", broken.replace(".json", ".exr")], { encoding: "utf8" }).stderr;
  const words = (await node.getAttribute("aria-label")).match(/[^,]*nothing[^,]*/)[0].trim();
  assert.ok(said.includes(words), `"${words}" is not in: ${said}`);
  await page.keyboard.press("Control+z");
  await node.waitFor({ state: "detached" });
});
