// The whole page without a pointer: everything is reached, has a name, and leads on.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { open_page, shown } from "./support.mjs";

test("a job from opening to saving by keys alone", async (t) => {
  const { page, file, faults } = await open_page(t);
  const before = readFileSync(file, "utf8");
  const first = await shown(page, { frame: 1 });
  const press = async (...keys) => {
    for (const key of keys) await page.keyboard.press(key);
  };
  const frame = () => page.locator(".strip").getAttribute("aria-valuenow");

  // Time.
  await press("ArrowRight", "ArrowRight", "Shift+ArrowRight");
  await shown(page, { frame: 13 });
  await press("i", "End", "ArrowLeft", "o", "Home");
  assert.equal(await frame(), "13");
  await press("End");
  assert.equal(await frame(), "23");
  await press(" ");
  await page.waitForFunction(() => Number(document.querySelector(".strip").getAttribute("aria-valuenow")) < 20, null, { timeout: 60000 });
  await press("k", "Shift+i", "Home");
  assert.equal(await frame(), "1");

  // A number: found by letters, typed, undone, and moved by the arrows.
  await press("Control+k");
  await page.keyboard.type("lens radius");
  await press("Enter");
  await page.waitForFunction(() => document.activeElement.closest("[data-knob]")?.dataset.knob === "radius");
  await press("Control+a");
  await page.keyboard.type("9");
  await press("Enter");
  const second = await shown(page, { frame: 1, after: first });
  await press("Control+z");
  const third = await shown(page, { after: second });
  await press("Control+Shift+z");
  await shown(page, { after: third });

  // A key of a curve: reached, and its value typed.
  await press("Control+k");
  await page.keyboard.type("shine brightness");
  await press("Enter");
  await page.locator("[data-curve-surface]").focus();
  await press("Tab", "Tab", "Enter", "Tab", "Control+a");
  await page.keyboard.type("1.25");
  await press("Enter");

  // The graph: to its top, and what stands there in the viewer.
  await press("Escape", "Shift+g", "ArrowUp", "ArrowUp", "Enter");
  await page.waitForFunction(() => document.querySelector('[data-part="viewer"]').dataset.node !== "out");
  await press("Escape");
  await shown(page, { node: "out" });

  // Looking.
  await press("a", "r", "r", ".", "0", "1", "f", "p");
  await page.locator('[data-part="probe-b"]').waitFor();
  await press("w", "F2", "F3", "F4", "F1", "?");
  await page.getByRole("dialog", { name: "Keys" }).waitFor();
  // Nothing in it takes the focus, and the page beneath takes no keys.
  await press("Tab", "ArrowRight");
  assert.equal(await frame(), "1");
  await press("Escape", "Control+s");
  await page.locator(".title-bar .dirty").waitFor({ state: "detached" });
  assert.equal(readFileSync(file, "utf8"), before.replace('"radius": 5', '"radius": 9').replace("[14, 1.6,", "[14, 1.25,"));
  assert.deepEqual(faults, []);
});

test("Tab comes by every part of the page, and all that it stops at has a name", async (t) => {
  const { page } = await open_page(t);
  await shown(page);
  await page.keyboard.press("Control+k");
  await page.keyboard.type("shine");
  await page.keyboard.press("Enter");
  const stops = [];
  for (let i = 0; i < 200; ++i) {
    await page.keyboard.press("Tab");
    const stop = await page.evaluate(() => {
      const at = document.activeElement;
      if (at === document.body) return null;
      const label = at.getAttribute("aria-label") ?? at.labels?.[0]?.textContent ?? at.textContent ?? "";
      const accent = getComputedStyle(document.querySelector(".strip-line")).backgroundColor;
      const seen = getComputedStyle(at).outlineStyle !== "none" || getComputedStyle(at.parentElement).borderTopColor === accent;
      const part = at.closest("header, .viewer-bar, [data-part=viewer], .timeline, .tabs, #dock, [aria-label=Graph], [aria-label=Knobs]");
      const again = at.dataset.stop !== undefined;
      at.dataset.stop = "";
      return { label: label.trim(), seen, again, part: part?.getAttribute("aria-label") ?? part?.className ?? at.className, html: at.outerHTML.slice(0, 120) };
    });
    if (stop?.again) break;
    if (stop) stops.push(stop);
  }
  for (const { label, seen, html } of stops) {
    assert.notEqual(label, "", `without a name: ${html}`);
    assert.ok(seen, `its focus is not seen: ${html}`);
  }
  // And back, with none of them under what stands still above a list.
  for (let i = 0; i < 40; ++i) {
    await page.keyboard.press("Shift+Tab");
    const under = await page.evaluate(() => {
      const at = document.activeElement;
      const { x, y, width, height } = at.getBoundingClientRect();
      const seen = document.elementFromPoint(x + width / 2, y + height / 2);
      return seen === null || at.contains(seen) || seen.contains(at) ? "" : `${at.outerHTML.slice(0, 100)} under ${seen.outerHTML.slice(0, 100)}`;
    });
    assert.equal(under, "");
  }
  const parts = new Set(stops.map(({ part }) => part));
  for (const part of ["title-bar", "Viewer", "Timeline", "Panels", "Graph", "Knobs"]) assert.ok(parts.has(part), `${part} is not reached: ${[...parts]}`);
});
