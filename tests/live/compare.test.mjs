// An earlier version beside the present one, and the way to pixels that no picture should have.
import assert from "node:assert/strict";
import { test } from "node:test";
import { colours, open_page, probe, rendered, shown } from "./support.mjs";

const srgb = (linear) => {
  const held = Math.min(1, Math.max(0, linear));
  return 255 * (held <= 0.0031308 ? 12.92 * held : 1.055 * held ** (1 / 2.4) - 0.055);
};

// As another page or editor would.
const edit = (page, from, to) =>
  page.evaluate(async ([from, to]) => {
    const headers = { Authorization: `Bearer ${location.hash.slice(1)}`, "Content-Type": "application/json" };
    const { version, text } = await (await fetch("/composition", { headers })).json();
    const body = JSON.stringify({ base: version, text: text.replace(from, to) });
    return (await fetch("/composition", { method: "PUT", headers, body })).status;
  }, [from, to]);

const values_of = (page, part) =>
  page.locator(`[data-part="${part}"][data-exact="true"]`).evaluate((element) => element.dataset.values.split(" ").map(Number));

test("what was pinned stays as it was, wiped and as a difference", async (t) => {
  const { page, browser, file, faults } = await open_page(t);
  await shown(page);
  const first = rendered(file, 1);
  await page.keyboard.press("p");
  assert.equal(await edit(page, '"gamma": 0.6', '"gamma": 0.9'), 200);
  await shown(page, { after: 1 });
  await page.keyboard.press("1");
  await page.locator('[data-part="probe-b"]').waitFor();

  const places = [[0.2, 0.2], [0.35, 0.75], [0.62, 0.3], [0.7, 0.6]];
  const pairs = [];
  for (const place of places) {
    const { x, y, values } = await probe(page, ...place);
    const b = await values_of(page, "probe-b");
    assert.deepEqual(b.map(Math.fround), first(x, y), `B at ${x}, ${y}`);
    pairs.push({ a: values, b });
  }
  assert.ok(pairs.some(({ a, b }) => Math.abs(a[0] - b[0]) > 0.02), "the edit is seen");
  await page.mouse.move(0, 0);
  const expected = {
    w: ({ a, b }, across) => (across < 0.5 ? a : b),
    d: ({ a, b }) => a.map((value, channel) => Math.abs(value - b[channel])),
  };
  for (const [key, value] of [["", expected.w], ["d", expected.d]]) {
    if (key) await page.keyboard.press(key);
    await page.waitForFunction((mode) => document.querySelector('[data-part="compare"]').dataset.value === mode, key ? "difference" : "wipe");
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    const seen = await colours(page, browser, '[data-part="viewer-overlay"]', places);
    pairs.forEach((pair, at) => {
      const wanted = value(pair, places[at][0]).slice(0, 3).map(srgb);
      // What is shown are halves, and dither.
      wanted.forEach((each, channel) => assert.ok(Math.abs(each - seen[at][channel]) <= 2, `${key} at ${places[at]}: ${seen[at]} for ${wanted}`));
    });
  }
  assert.deepEqual(faults, []);
});

test("a pixel that is not finite is gone to, and the node that made it", async (t) => {
  const change = (text) => text.replace('{"name": "out"', '{"name": "holes", "type": "grade", "inputs": "titled", "knobs": {"multiply": 1e38}},\n    {"name": "out"').replace('"inputs": "titled", "knobs": {"file"', '"inputs": "holes", "knobs": {"file"');
  const { page, faults } = await open_page(t, { change });
  await shown(page);
  await page.keyboard.press("n");
  const found = page.locator('[data-part="found"]');
  await found.getByRole("button", { name: "holes" }).click();
  const [, x, y] = /Infinite at (\d+), (\d+)/.exec(await found.innerText());
  const row = page.locator('[data-part="probe-a"][data-exact="true"]');
  await row.waitFor();
  const { dataset } = await row.evaluate((element) => ({ dataset: { ...element.dataset } }));
  assert.deepEqual([dataset.x, dataset.y], [x, y]);
  assert.match(dataset.values, /inf/);
  assert.deepEqual(faults, []);
});
