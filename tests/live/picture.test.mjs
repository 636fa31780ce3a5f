// The right pixels: those under the pointer exactly, those on the screen as their colours, those of every frame.
import assert from "node:assert/strict";
import { test } from "node:test";
import { colours, open_page, probe, rendered, shown } from "./support.mjs";

const places = [[0.3, 0.3], [0.35, 0.6], [0.5, 0.5], [0.62, 0.42], [0.66, 0.75]];
const srgb = (linear) => {
  const held = Math.min(1, Math.max(0, linear));
  return 255 * (held <= 0.0031308 ? 12.92 * held : 1.055 * held ** (1 / 2.4) - 0.055);
};

test("what is under the pointer is what quorvel render writes", async (t) => {
  const { page, file, faults } = await open_page(t);
  for (const [frame, node] of [[1, "out"], [12, "out"], [12, "dusk"]]) {
    await page.getByLabel("Frame", { exact: true }).fill(String(frame));
    await page.keyboard.press("Enter");
    if (node !== "out") {
      await page.keyboard.press("Control+k");
      await page.keyboard.type(node);
      await page.keyboard.press("Enter");
    }
    await shown(page, { frame, node });
    const expected = rendered(file, frame, node === "out" ? [] : ["--node", node]);
    for (const place of places) {
      const { x, y, values } = await probe(page, ...place);
      // A node on its own goes to a file of halves.
      const exact = node === "out" ? values.map(Math.fround) : values;
      const wanted = expected(x, y);
      if (node === "out") assert.deepEqual(exact, wanted, `${node}, frame ${frame}, at ${x}, ${y}`);
      else wanted.forEach((each, at) => assert.ok(Math.abs(each - exact[at]) <= Math.abs(each) * 2 ** -11, `${node} at ${x}, ${y}: ${exact} for ${wanted}`));
    }
  }
  assert.deepEqual(faults, []);
});

test("what is on the screen is the pixel's colour, and exposure changes that alone", async (t) => {
  const { page, browser } = await open_page(t);
  await shown(page);
  // One pixel of the picture on one of the screen, without the lines around it.
  await page.keyboard.press("1");
  const before = [];
  for (const place of places) before.push(await probe(page, ...place));
  await page.mouse.move(0, 0);
  for (const [stops, keys] of [[0, []], [1, [".", "."]]]) {
    for (const key of keys) await page.keyboard.press(key);
    const seen = await colours(page, browser, '[data-part="viewer-overlay"]', places);
    before.forEach(({ x, y, values }, at) => {
      const wanted = values.slice(0, 3).map((value) => srgb(value * 2 ** stops));
      // Dither moves by less than a step of eight bits.
      wanted.forEach((each, channel) => assert.ok(Math.abs(each - seen[at][channel]) <= 1.5, `${x}, ${y} at ${stops} stops: ${seen[at]} for ${wanted}`));
    });
  }
  assert.deepEqual((await probe(page, ...places[1])).values, before[1].values);
});

test("play shows every frame once, in order, and scrubbing shows frames on the way", async (t) => {
  const { page } = await open_page(t);
  await shown(page);
  await page.waitForFunction(() => document.querySelector(".strip-cached")?.getAttribute("width") >= 800, null, { timeout: 60000 });
  await page.evaluate(() => {
    const viewer = document.querySelector('[data-part="viewer"]');
    window.seen = [];
    new MutationObserver(() => window.seen.at(-1) !== viewer.dataset.frame && window.seen.push(viewer.dataset.frame)).observe(viewer, { attributes: true });
  });
  await page.keyboard.press(" ");
  await page.waitForFunction(() => window.seen.length >= 30, null, { timeout: 60000 });
  await page.keyboard.press("k");
  const seen = (await page.evaluate(() => window.seen)).map(Number);
  seen.forEach((frame, at) => at > 0 && assert.equal(frame, (seen[at - 1] % 24) + 1, `${seen}`));

  // Wherever it stops, nothing that was to come is shown.
  for (let more = 4; more < 12; ++more) {
    await page.evaluate(() => (window.seen = []));
    await page.keyboard.press(" ");
    await page.waitForFunction((more) => window.seen.length >= more, more);
    await page.keyboard.press("k");
    const last = Number(await page.getByLabel("Frame", { exact: true }).inputValue());
    await shown(page, { frame: last });
    const stopped = (await page.evaluate(() => window.seen)).map(Number);
    assert.ok(stopped.every((frame, at) => at === 0 || frame === (stopped[at - 1] % 24) + 1), `${stopped}`);
  }

  const strip = await page.locator(".strip").boundingBox();
  await page.keyboard.press("Home");
  await shown(page, { frame: 1 });
  await page.evaluate(() => (window.seen = []));
  await page.mouse.move(strip.x + 5, strip.y + 20);
  await page.mouse.down();
  for (let step = 0; step <= 60; ++step) {
    await page.mouse.move(strip.x + 5 + (step / 60) * (strip.width - 10), strip.y + 20);
    await page.evaluate(() => new Promise(requestAnimationFrame));
  }
  await page.mouse.up();
  await shown(page, { frame: 24 });
  assert.ok((await page.evaluate(() => new Set(window.seen).size)) >= 5);
});
