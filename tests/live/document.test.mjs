// The file and the page: who follows whom, what is asked, and who is let in.
import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { test } from "node:test";
import { open_page, probe, rendered, shown } from "./support.mjs";

const change = (file, from, to) => {
  const text = readFileSync(file, "utf8");
  assert.ok(text.includes(from));
  writeFileSync(file, text.replace(from, to));
};

test("the page follows the file, and where both have changed somebody chooses", async (t) => {
  const { page, file, faults } = await open_page(t);
  const first = await shown(page);
  change(file, '"gamma": 0.7', '"gamma": 0.5');
  await shown(page, { after: first });
  const { x, y, values } = await probe(page, 0.35, 0.6);
  assert.deepEqual(values.map(Math.fround), rendered(file, 1)(x, y));

  // Here one knob, there another: each way ends with the one that was meant, on both sides.
  const gamma = page.locator('[data-knob="gamma"] input[role="spinbutton"]').first();
  await page.keyboard.press("Control+k");
  await page.keyboard.type("dusk gamma");
  await page.keyboard.press("Enter");
  for (const [here, there, choice, last] of [["0.8", "0.4", "Take the file", "0.4"], ["0.9", "0.3", /Keep mine/, "0.9"]]) {
    const before = await gamma.inputValue();
    const version = await shown(page);
    await gamma.fill(here);
    await gamma.press("Enter");
    await shown(page, { after: version });
    change(file, `"gamma": ${before}`, `"gamma": ${there}`);
    await page.getByRole("alert").getByRole("button", { name: choice }).click();
    await page.locator(".title-bar .dirty").waitFor({ state: "detached" });
    assert.equal(await gamma.inputValue(), last);
    assert.ok(readFileSync(file, "utf8").includes(`"gamma": ${last}`));
    await page.locator(".banner").waitFor({ state: "detached" });
  }

  // A file that is no composition is told about, and nothing is lost.
  change(file, '"type": "glow"', '"type": "glowing"');
  await page.getByRole("tab", { name: "Messages" }).click();
  await page.getByLabel("Notices").getByText(/shine.*glowing/).waitFor();
  assert.equal(await gamma.inputValue(), "0.9");
  assert.deepEqual(faults.filter((fault) => !fault.includes("409")), []);
});

test("two pages show the same document, whoever changes it", async (t) => {
  const { page, server } = await open_page(t);
  const first = await shown(page);
  const other = await page.context().newPage();
  await other.goto(server.url);
  await shown(other);
  await other.keyboard.press("Control+k");
  await other.keyboard.type("mood gamma");
  await other.keyboard.press("Enter");
  await other.keyboard.type("0.9");
  await other.keyboard.press("Enter");
  await shown(page, { after: first });
  await page.locator(".title-bar .dirty").waitFor();
  const places = [await probe(page, 0.5, 0.3), await probe(other, 0.5, 0.3)];
  assert.deepEqual(places[0], places[1]);
});

test("another token opens nothing", async (t) => {
  const { page, server } = await open_page(t);
  await shown(page);
  const other = await page.context().newPage();
  await other.goto(server.url.replace(/#.*/, "#0123456789abcdef0123456789abcdef"));
  await other.getByRole("alert").getByText("This page may not talk to the server").waitFor();
  const status = await other.evaluate(() => fetch("/composition").then((response) => response.status));
  assert.equal(status, 401);
});
