// The scopes, against counts over the floats that `quorvel render` writes of a picture with a flat half and a ramp.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";
import { open_page, rendered, shown } from "./support.mjs";

const size = { width: 320, height: 180 }; // few enough that each pixel is counted
const srgb = (linear) => (linear <= 0.0031308 ? 12.92 * linear : 1.055 * linear ** (1 / 2.4) - 0.055);
const held = (level) => Math.min(255, Math.max(0, Math.floor(level + 0.5)));
const levels = {
  display: (stops) => (value) => held(255 * srgb(Math.min(1, Math.max(0, value * 2 ** stops)))),
  linear: () => (value) => (value > 0 ? held((255 * (Math.log10(value) + 3)) / 5) : 0), // 0.001 to 100
};
// As the page gets it.
const half = (value) => {
  const step = 2 ** (Math.max(-14, Math.floor(Math.log2(value))) - 10);
  return Math.round(value / step) * step;
};
const luminance = (r, g, b) => 0.2126 * r + 0.7152 * g + 0.0722 * b;

// What stands on the page: heights 0..1 of the histogram by channel and level, the lowest and highest level that is lit in
// each column of the waveform, and the lit spots of the vectorscope.
const read = (page) =>
  page.evaluate(() => {
    const pixels = (part) => {
      const canvas = document.querySelector(`[data-part="${part}"] canvas`);
      return canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    };
    const heights = ["red", "green", "blue"].map((name) =>
      [...document.querySelector(`.histogram-${name}`).getAttribute("d").matchAll(/L(\d+) ([\d.]+)L\d+ \2/g)].map(([, , y]) => 1 - y / 120),
    );
    const wave = pixels("waveform");
    const waveform = Array.from({ length: wave.width }, (_, x) => {
      const lit = Array.from({ length: wave.height }, (_, y) => y).filter((y) => wave.data.subarray((y * wave.width + x) * 4).slice(0, 3).some((light) => light > 0));
      return [255 - lit.at(-1), 255 - lit[0]];
    });
    const vectors = pixels("vectorscope");
    const spots = [];
    vectors.data.forEach((value, i) => i % 4 === 3 && value > 0 && spots.push([((i >> 2) % vectors.width) + 0.5, Math.floor((i >> 2) / vectors.width) + 0.5]));
    return { heights, waveform, spots };
  });

const outline = () => document.querySelector(".histogram-red").getAttribute("d");
const drawing = () => document.querySelector('[data-part="waveform"] canvas').toDataURL();

// Does something, and waits until what it changes is another one on the page.
async function changed(page, what, act) {
  const before = await page.evaluate(what);
  await act();
  for (const end = Date.now() + 15000; (await page.evaluate(what)) === before; ) assert.ok(Date.now() < end, "nothing changes");
  return read(page);
}

// The bars' squares are the counts, but for one factor and those that are cut off at the top; rounding moves a pixel by
// at most a level.
function same_histogram(heights, values, level, words) {
  const counts = [0, 1, 2].map((channel) => {
    const found = new Array(256).fill(0);
    for (const value of values) ++found[level(value[channel])];
    return found;
  });
  let squares = 0;
  let sum = 0;
  heights.forEach((bars, channel) => bars.forEach((bar, at) => {
    if (bar >= 0.999) return;
    squares += bar * bar;
    sum += counts[channel][at];
  }));
  const factor = sum / squares;
  let exact = 0;
  heights.forEach((bars, channel) => {
    assert.equal(bars.length, 256);
    bars.forEach((bar, at) => {
      const near = counts[channel].slice(Math.max(0, at - 1), at + 2);
      const count = bar >= 0.999 ? Math.max(factor, counts[channel][at]) : bar * bar * factor;
      const slack = 3 + 0.03 * count;
      if (Math.abs(count - counts[channel][at]) <= slack) ++exact;
      assert.ok(count >= Math.min(...near) - slack && (count <= Math.max(...near) + slack || bar >= 0.999),
        `${words}: channel ${channel}, level ${at}: ${count} for ${near}`);
      if (bar >= 0.999) assert.ok(Math.max(...near) >= 0.9 * factor, `${words}: channel ${channel}, level ${at} is full for ${near} of ${factor}`);
    });
  });
  assert.ok(exact >= 0.9 * 768, `${words}: only ${exact} of 768 levels have their count`);
}

// The lowest and the highest level that is lit in a column are those of these values, but for the softened steps.
function same_column([low, high], wanted, words) {
  const [least, most] = [Math.min(...wanted), Math.max(...wanted)];
  assert.ok(Math.abs(low - least) <= 3 && Math.abs(high - most) <= 3, `${words}: ${low} to ${high} for ${least} to ${most}`);
}

test("scopes show where the pixels' values are, of the screen and of the scene, of all or of a rectangle", async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "quorvel-live-scopes-"));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  const plate = join(folder, "plate.exr");
  const side = `${size.width / 2}x${size.height}`;
  execFileSync("oiiotool", ["--pattern", "constant:color=0.25,0.5,0.0625", side, "3",
    "--pattern", "fill:topleft=0.002,0.002,0.002:topright=0.3,0.3,0.3:bottomleft=0.1,0.1,0.1:bottomright=1,1,1", side, "3", "--mosaic", "2x1", "-d", "float", "-o", plate]);
  const nodes = [{ name: "plate", type: "read", knobs: { file: plate } },
    { name: "out", type: "write", inputs: "plate", knobs: { file: "out.####.exr" } }];
  const change = () => JSON.stringify({ format: size, frames: "1", nodes });
  const { page, file, faults } = await open_page(t, { change });
  await shown(page);
  const exact = rendered(file, 1, [], size);
  const at = (x, y) => exact(x, y).map(half);
  const pixels = Array.from({ length: size.width * size.height }, (_, i) => at(i % size.width, Math.floor(i / size.width)));

  await page.keyboard.press("F2");
  const samples = (count, scale) => page.locator(`[data-part="scopes"][data-samples="${count}"][data-scale="${scale}"]`).waitFor();
  await samples(size.width * size.height, "display");
  const level = levels.display(0);
  const display = await read(page);
  same_histogram(display.heights, pixels, level, "display");

  // Parade: each channel in a third of the width.
  const { waveform } = await changed(page, drawing, () => page.getByRole("button", { name: "Parade" }).click());
  const column_of = (x) => Array.from({ length: size.height }, (_, y) => at(x, y).slice(0, 3).map((value) => level(value)));
  const columns = [20, 130, 200, 260, 300];
  for (const channel of [0, 1, 2])
    for (const x of columns)
      same_column(waveform[Math.floor((channel / 3) * waveform.length + x / 3)], column_of(x).map((rgb) => rgb[channel]), `channel ${channel} at ${x}`);
  const { waveform: light } = await changed(page, drawing, () => page.getByRole("button", { name: "Y", exact: true }).click());
  for (const x of columns) same_column(light[x], column_of(x).map((rgb) => luminance(...rgb)), `luminance at ${x}`);

  // Two spots: the flat half's hue, and the middle.
  const [r, g, b] = at(10, 90).map((value) => level(value) / 255);
  const y = luminance(r, g, b);
  const wanted = [[(b - y) / 1.8556, (r - y) / 1.5748], [0, 0]].map(([cb, cr]) => [(0.5 + cb / 1.15) * 256, (0.5 - cr / 1.15) * 256]);
  const { spots } = display;
  const near = ([x, y], [u, v]) => Math.hypot(x - u, y - v) <= 2.5;
  assert.ok(spots.every((spot) => wanted.some((each) => near(spot, each))), `${spots.slice(0, 20)} for ${wanted}`);
  assert.ok(wanted.every((each) => spots.some((spot) => near(spot, each))), `${wanted} are not all of ${spots.slice(0, 20)}`);

  // Exposure moves what the screen shows, and not the scene.
  const brighter = await changed(page, outline, () => page.keyboard.press("."));
  same_histogram(brighter.heights, pixels, levels.display(0.5), "display, half a stop up");
  const linear = await changed(page, outline, () => page.getByRole("button", { name: "Linear" }).click());
  same_histogram(linear.heights, pixels, levels.linear(), "linear");

  // A rectangle of the ramp.
  const box = await page.locator('[data-part="viewer-overlay"]').boundingBox();
  await page.mouse.move(box.x + box.width * 0.6, box.y + box.height * 0.1);
  await page.keyboard.down("Shift");
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.72, box.y + box.height * 0.4, { steps: 3 });
  await page.mouse.up();
  await page.keyboard.up("Shift");
  const [across, down, x0, y0] = (await page.locator('[data-part="region"] span').first().textContent()).match(/\d+/g).map(Number);
  assert.ok(across > 20 && down > 20 && x0 > size.width / 2 && y0 > size.height / 2, `${across} by ${down} at ${x0}, ${y0}`);
  const in_it = Array.from({ length: across * down }, (_, i) => at(x0 + (i % across), y0 + Math.floor(i / across)));
  await samples(across * down, "linear");
  same_histogram((await read(page)).heights, in_it, levels.linear(), "linear, a rectangle");
  await page.getByRole("button", { name: "Display" }).click();
  await samples(across * down, "display");
  same_histogram((await read(page)).heights, in_it, levels.display(0.5), "display, a rectangle");
  assert.deepEqual(faults, []);
});
