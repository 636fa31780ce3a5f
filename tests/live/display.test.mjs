// The picture through a view of the composition's own config, against what the config says, worked out here.
import assert from "node:assert/strict";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";
import { colours, open_page, probe, shown } from "./support.mjs";

const config = `ocio_profile_version: 2
roles: {default: linear, scene_linear: linear}
displays:
  screen:
    - !<View> {name: film, colorspace: film}
    - !<View> {name: raw, colorspace: linear}
colorspaces:
  - !<ColorSpace> {name: linear}
  - !<ColorSpace>
    name: film
    from_scene_reference: !<GroupTransform>
      children:
        - !<LogAffineTransform> {base: 2, log_side_slope: [0.1, 0.1, 0.1], log_side_offset: [0.97, 0.97, 0.97], lin_side_offset: [0.01, 0.01, 0.01]}
        - !<FileTransform> {src: shape.spi1d, interpolation: linear}
        - !<FileTransform> {src: turned.cube, interpolation: tetrahedral}
`;
// A curve, and a cube that gives red to green, green to blue and blue to red.
const smooth = (x) => x * x * (3 - 2 * x);
const entries = Array.from({ length: 1024 }, (_, at) => smooth(at / 1023));
const shape = `Version 1\nFrom 0 1\nLength 1024\nComponents 1\n{\n${entries.join("\n")}\n}\n`;
const corners = Array.from({ length: 8 }, (_, at) => `${at >> 2} ${at & 1} ${(at >> 1) & 1}`);
const turned = `LUT_3D_SIZE 2\n${corners.join("\n")}\n`;
const film = (value) => smooth(Math.min(1, Math.max(0, 0.1 * Math.log2(Math.max(value + 0.01, 2 ** -126)) + 0.97)));
const held = (value) => Math.min(1, Math.max(0, value));

test("a view shows what its config says, where the table ends too", async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "quorvel-live-config-"));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  writeFileSync(join(folder, "config.ocio"), config);
  writeFileSync(join(folder, "shape.spi1d"), shape);
  writeFileSync(join(folder, "turned.cube"), turned);
  const looked = { name: "looked", type: "ocio_display", inputs: "titled", knobs: { config: join(folder, "config.ocio") } };
  const change = (text) => text.replace('{"name": "out"', `${JSON.stringify(looked)},\n    {"name": "out"`);
  const { page, browser, faults } = await open_page(t, { change });
  await shown(page);
  assert.equal(await page.locator('[data-part="display"]').inputValue(), "screen\nfilm", "the first view is chosen");
  await page.keyboard.press("1");

  // The sun among them, beyond what the curve knows.
  const places = [[0.62, 0.42], [0.66, 0.75], [0.3, 0.3], [0.5, 0.5], [0.69, 0.43], [0.7, 0.45]];
  const before = [];
  for (const place of places) before.push((await probe(page, ...place)).values);
  assert.ok(before.some(([r]) => r > 1.3), `a place beyond the table's end: ${before}`);
  await page.mouse.move(0, 0);
  const views = { film: ([r, g, b]) => [film(b), film(r), film(g)], raw: (values) => values.slice(0, 3).map(held) };
  for (const [view, convert] of Object.entries(views)) {
    await page.locator('[data-part="display"]').selectOption(`screen\n${view}`);
    await page.locator(`[data-part="viewer"][data-display="screen, ${view}"]`).waitFor();
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
    const seen = await colours(page, browser, '[data-part="viewer-overlay"]', places);
    before.forEach((values, at) =>
      convert(values).forEach((each, channel) =>
        assert.ok(Math.abs(each * 255 - seen[at][channel]) <= 1.5, `${view}: ${seen[at]} for ${values}, ${convert(values).map((x) => x * 255)}`),
      ),
    );
  }
  assert.deepEqual(faults, []);
});
