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

test("the page follows the file, and an error in it is told where it is", async (t) => {
  const { page, file } = await open_page(t);
  const first = await shown(page);
  change(file, '"gamma": 0.7', '"gamma": 0.5');
  await shown(page, { after: first });
  const { x, y, values } = await probe(page, 0.35, 0.6);
  assert.deepEqual(values.map(Math.fround), rendered(file, 1)(x, y));
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
