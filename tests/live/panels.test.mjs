// What stands around the picture: where time goes, rendering, a device that is lost, light and dark, and encryption.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { request } from "node:http";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { test } from "node:test";
import { colours, open_page, program, shown } from "./support.mjs";

const inside = (text) => text.replace("../out/shot", "out/shot");
const painted = (page) => page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));

test("where time goes names the nodes of the frame, and hands out what was done when", async (t) => {
  const { page, file, faults } = await open_page(t, { change: inside, view: { viewport: { width: 1920, height: 1080 } } });
  await shown(page);
  await page.keyboard.press("F3");
  await page.locator(".time-panel tbody tr").first().waitFor();
  const rows = await page.locator(".time-panel tbody tr").evaluateAll((all) => all.map((row) => [...row.cells].map((cell) => cell.textContent)));
  const names = [...readFileSync(file, "utf8").matchAll(/"name": "(\w+)"/g)].map(([, name]) => name);
  assert.deepEqual(rows.map(([name]) => name).sort(), names.sort());
  const times = rows.map(([, , , ms]) => Number.parseFloat(ms));
  assert.deepEqual(times, [...times].sort((one, other) => other - one));
  assert.ok(times[0] > 0);
  // The foreground is 960 by 540 halves or floats of four channels.
  const held = Object.fromEntries(rows.map(([name, , , , megabytes]) => [name, Number.parseFloat(megabytes)]));
  assert.ok([8, 16].some((bytes) => Math.abs(held.key - (960 * 540 * bytes) / 1e6) < 0.1), `${JSON.stringify(held)}`);
  await page.locator(".time-panel").getByRole("button", { name: "dusk" }).click();
  await page.locator('[data-knob="gamma"]').waitFor();

  const seconds = 5;
  await page.getByLabel("Trace of the last").selectOption(String(seconds));
  for (let frame = 2; frame <= 4; ++frame) {
    await page.getByLabel("Frame", { exact: true }).fill(String(frame));
    await page.keyboard.press("Enter");
    await shown(page, { frame });
  }
  const coming = page.waitForEvent("download");
  await page.getByRole("button", { name: "Download" }).click();
  const download = await coming;
  assert.match(download.suggestedFilename(), /\.json$/);
  const { traceEvents } = JSON.parse(readFileSync(await download.path(), "utf8"));
  const threads = new Map(traceEvents.filter(({ ph, name }) => ph === "M" && name === "thread_name").map(({ tid, args }) => [tid, args.name]));
  const spans = traceEvents.filter(({ ph }) => ph === "X");
  const kinds = new Map();
  for (const { tid, cat, name, ts, dur } of spans) {
    assert.ok(threads.get(tid)?.startsWith(cat), `${name} is in a row called ${threads.get(tid)}`);
    assert.ok(ts >= 0 && dur >= 0 && ts + dur <= (seconds + 0.1) * 1e6, `${name}: ${ts} for ${dur}`);
    kinds.set(cat, [...(kinds.get(cat) ?? []), name]);
  }
  assert.deepEqual([...kinds.keys()].sort(), ["decoding", "drawing", "encoding", "read-back"]);
  assert.ok(kinds.get("drawing").every((name) => names.includes(name.replace(/ \d+$/, ""))), `${kinds.get("drawing")}`);
  for (const tid of threads.keys()) {
    const row = spans.filter((span) => span.tid === tid).sort((one, other) => one.ts - other.ts);
    row.forEach(({ ts, name }, at) => at > 0 && assert.ok(ts + 1 >= row[at - 1].ts + row[at - 1].dur, `${name} begins in ${row[at - 1].name}`));
  }
  assert.deepEqual(faults, []);
});

test("rendering in the page is what quorvel render does, says why it cannot, stops, and goes on in a shell", async (t) => {
  const { page, folder, file } = await open_page(t, {
    change: inside,
    prepare: (_, context) => context.grantPermissions(["clipboard-read", "clipboard-write"]),
  });
  await shown(page);
  const panel = page.locator(".render-panel");
  const output = panel.locator("output");
  const button = (name) => panel.getByRole("button", { name, exact: true });
  const frame_file = (at, frame) => readFileSync(join(folder, at, `shot.${String(frame).padStart(4, "0")}.exr`));
  await page.keyboard.press("F4");
  await panel.getByLabel("Frames").first().fill("1-2");
  await button("Render").click();
  await output.filter({ hasText: "2 / 2 done" }).waitFor();

  const elsewhere = join(folder, "elsewhere.json");
  writeFileSync(elsewhere, readFileSync(file, "utf8").replace("out/shot", "elsewhere/shot"));
  execFileSync(program, ["render", elsewhere, "-f", "1-2", "--progress", "none"]);
  for (const frame of [1, 2]) assert.ok(frame_file("out", frame).equals(frame_file("elsewhere", frame)), `frame ${frame}`);

  // What is there already is an error of the program, a range that cannot be read one of the request.
  await panel.getByLabel("Files that are there").selectOption("are an error");
  await button("Render").click();
  await output.filter({ hasText: "failed" }).waitFor();
  const { stderr } = spawnSync(program, ["render", "shot.json", "-f", "1-2"], { cwd: folder, encoding: "utf8" });
  assert.equal(await panel.getByRole("alert").textContent(), stderr.replaceAll("shot.json: ", "").trim());
  await panel.getByLabel("Frames").first().fill("1-");
  await button("Render").click();
  await panel.getByRole("alert").filter({ hasText: "1-" }).waitFor();

  await panel.getByLabel("Frames").first().fill("");
  await panel.getByLabel("Files that are there").selectOption("are replaced");
  await button("Render").click();
  await output.filter({ hasText: /^[1-9]\d* \/ 24 rendering/ }).waitFor();
  await button("Stop").click();
  await output.filter({ hasText: "stopped" }).waitFor();
  assert.ok(Number.parseInt(await output.textContent(), 10) < 24);
  assert.equal(await panel.getByRole("alert").textContent(), "");

  rmSync(join(folder, "out"), { recursive: true });
  await panel.getByLabel("Frames").first().fill("2");
  await panel.locator("code").filter({ hasText: "--frames=2" }).waitFor();
  await button("Copy").click();
  await button("Copied").waitFor();
  const command = await page.evaluate(() => navigator.clipboard.readText());
  execFileSync("sh", ["-c", command], { cwd: tmpdir(), env: { ...process.env, PATH: `${dirname(program)}:${process.env.PATH}` }, stdio: "ignore" });
  assert.deepEqual(readdirSync(join(folder, "out")), ["shot.0002.exr"]);
  assert.ok(frame_file("out", 2).equals(frame_file("elsewhere", 2)));
});

test("a device that is lost is told until it is back, and the page is as light as one wishes", async (t) => {
  const { page, browser, faults } = await open_page(t, {
    view: { colorScheme: "light" },
    // Lets a test put an event among those that the server tells.
    prepare: (page) => page.addInitScript(() => {
      const real = window.fetch;
      window.fetch = async (path, options) => {
        const response = await real(path, options);
        if (!String(path).startsWith("/events")) return response;
        const told = new TransformStream({ start: (to) => (window.tell = (text) => to.enqueue(new TextEncoder().encode(text))) });
        return new Response(response.body.pipeThrough(told), response);
      };
    }),
  });
  await shown(page);
  const device = (lost, message) => page.evaluate((data) => window.tell(`event: device\ndata: ${JSON.stringify(data)}\n\n`), { lost, message });
  const banner = page.getByRole("alert").filter({ hasText: "device" });
  assert.equal(await banner.count(), 0);
  await device(true, "innocent context reset");
  await banner.waitFor();
  assert.match(await banner.textContent(), /lost.*innocent context reset/);
  await device(false, "");
  await banner.waitFor({ state: "detached" });

  // Neutral greys around the picture, in the viewer as well.
  const surround = { light: 0.42 * 255, dark: 0.09 * 255 };
  const looks = async (theme) => {
    await page.locator(`html[data-theme="${theme}"]`).waitFor();
    await painted(page);
    const places = [[0.004, 0.5], [0.996, 0.5], [0.5, 0.004]];
    const seen = await colours(page, browser, '[data-part="viewer-overlay"]', places);
    assert.ok(seen.some((colour) => colour.every((each) => Math.abs(each - surround[theme]) <= 1)), `${theme}: ${seen}`);
    const [r, g, b] = (await page.evaluate(() => getComputedStyle(document.body).backgroundColor)).match(/\d+/g).map(Number);
    assert.ok(r === g && g === b && (theme === "light") === r > 128, `${theme}: ${[r, g, b]}`);
  };
  await looks("light");
  await page.emulateMedia({ colorScheme: "dark", reducedMotion: "reduce" });
  await looks("dark");
  const press = (theme) => page.getByRole("button", { name: /Colours of the page/ }).click().then(() => page.getByRole("button", { name: `Colours of the page: ${theme}` }).waitFor());
  await press("light");
  await looks("light");
  await page.reload();
  await shown(page);
  await looks("light");
  await press("dark");
  await page.emulateMedia({ colorScheme: "light", reducedMotion: "reduce" });
  await looks("dark");
  await press("system");
  await looks("light");
  assert.deepEqual(faults, []);
});

test("with a certificate the page works encrypted, and only so", async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "quorvel-live-tls-"));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  const [cert, key] = [join(folder, "cert.pem"), join(folder, "key.pem")];
  execFileSync("openssl", ["req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=localhost", "-keyout", key, "-out", cert], { stdio: "ignore" });
  const refused = spawnSync(program, ["live", join(folder, "shot.json"), "--no-open", "--listen", "localhost"], { encoding: "utf8" });
  assert.notEqual(refused.status, 0);
  assert.match(refused.stderr, /--listen.*--cert.*--key/);

  const { page, server, faults } = await open_page(t, { options: ["--listen", "localhost", "--cert", cert, "--key", key], view: { ignoreHTTPSErrors: true } });
  assert.match(server.url, /^https:\/\/localhost:/);
  await shown(page);
  await page.locator("[data-node=over]").waitFor();
  const { port } = new URL(server.url);
  const answer = await new Promise((done) => {
    const asked = request({ host: "localhost", port, path: "/" }, (response) => done(response.statusCode));
    asked.on("error", () => done("none"));
    asked.setTimeout(10000, () => asked.destroy());
    asked.end();
  });
  assert.equal(answer, "none");
  assert.deepEqual(faults, []);
});
