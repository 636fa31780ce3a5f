// What serves the page crashes, as inside a graphics driver: the page goes on, and nothing is lost or asked.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";
import { open_page, probe, processes, rendered, shown } from "./support.mjs";

// What the server has, by its address with the token.
async function document_of(url) {
  const [origin, token] = url.split("#");
  const response = await fetch(`${origin}composition`, { headers: { Authorization: `Bearer ${token}` } });
  const { version, text, saved } = await response.json();
  return { version, text, saved };
}

test("after a crash the page shows the same, with every edit that was not saved", async (t) => {
  const { page, server, file, faults } = await open_page(t);
  const saved = readFileSync(file, "utf8");
  let version = await shown(page);
  await page.keyboard.press("Control+k");
  await page.keyboard.type("dusk gamma");
  await page.keyboard.press("Enter");
  const gamma = page.locator('[data-knob="gamma"] input[role="spinbutton"]').first();
  const start = await gamma.inputValue();
  await page.getByRole("tab", { name: "Messages" }).click();

  // Each life has given an image when it ends.
  for (const [signal, number, value] of [["SIGSEGV", 11, "0.5"], ["SIGBUS", 7, "0.4"]]) {
    await gamma.fill(value);
    await gamma.press("Enter");
    version = await shown(page, { after: version });
    const seen = await probe(page, 0.35, 0.6);
    const before = await document_of(server.url);
    assert.ok(before.text !== saved && !before.saved);

    const serving = processes(server.pid).at(-1);
    process.kill(serving, signal);
    await page.getByLabel("Notices").getByText(new RegExp(`crashed.*signal ${number}.*started again`)).waitFor();
    await page.locator(".banner").waitFor({ state: "detached" });
    assert.notEqual(processes(server.pid).at(-1), serving);
    assert.deepEqual(await document_of(server.url), before);
    // A frame that the page has not had.
    const frame = Number(value) * 10;
    await page.getByLabel("Frame", { exact: true }).fill(String(frame));
    await page.keyboard.press("Enter");
    await shown(page, { frame, full: false });
    await page.getByLabel("Frame", { exact: true }).fill("1");
    await page.keyboard.press("Enter");
    assert.equal(await shown(page, { frame: 1 }), version);
    assert.deepEqual(await probe(page, 0.35, 0.6), seen);
    assert.equal(await gamma.inputValue(), value);
    assert.equal(await page.locator(".banner").count(), 0);
  }

  // Its steps are still there, back to what is in the file; so what was seen is also what is rendered.
  await page.locator('[data-part="viewer-overlay"]').hover();
  for (const value of ["0.5", start]) {
    await page.keyboard.press("Control+z");
    version = await shown(page, { after: version });
    assert.equal(await gamma.inputValue(), value);
  }
  await page.locator(".title-bar .dirty").waitFor({ state: "detached" });
  const { x, y, values } = await probe(page, 0.35, 0.6);
  assert.deepEqual(values.map(Math.fround), rendered(file, 1)(x, y));
  assert.equal(readFileSync(file, "utf8"), saved);
  // While nothing listened, requests of the page were refused.
  assert.deepEqual(faults.filter((fault) => !fault.includes("net::ERR")), []);
});
