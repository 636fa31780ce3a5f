// `quorvel live` on a copy of the example in a folder of its own, and a browser that looks at it.
import { execFileSync, spawn } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, symlinkSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { createInterface } from "node:readline";
import { fileURLToPath } from "node:url";
import { gunzipSync } from "node:zlib";

const root = join(dirname(fileURLToPath(import.meta.url)), "../..");
const { chromium } = createRequire(join(root, "host/live/page/package.json"))("playwright-core");
const build = resolve(process.env.QUORVEL_BUILD ?? join(root, "build/release"));
export const program = join(build, "host/quorvel");
process.once("SIGTERM", () => process.exit(1)); // so that no server stays behind
const format = { width: 960, height: 540 }; // of the example

// Painted once; every test reads the same.
function plates() {
  const folder = join(build, "tests/live/plates");
  if (!existsSync(join(folder, "studio.right.exr"))) {
    mkdirSync(folder, { recursive: true });
    execFileSync(join(build, "examples/quorvel_plates"), [folder]);
  }
  return folder;
}

// The program's processes, the one in front first, then the one that serves the page.
export function processes(front) {
  const behind = readdirSync("/proc").filter((name) => {
    try {
      return /^\d+$/.test(name) && Number(readFileSync(`/proc/${name}/stat`, "utf8").split(") ").pop().split(" ")[1]) === front;
    } catch {
      return false; // it has ended
    }
  });
  return [front, ...behind.map(Number)];
}

export async function start_server(file, options = []) {
  const server = spawn(program, ["live", file, "--no-open", ...options], { stdio: ["ignore", "pipe", "pipe"] });
  let errors = "";
  server.stderr.on("data", (data) => (errors += data));
  const lines = createInterface({ input: server.stdout });
  const url = await new Promise((resolve, reject) => {
    lines.once("line", resolve);
    server.once("exit", (code) => reject(new Error(`quorvel live ended with ${code}: ${errors}`)));
  });
  const ended = new Promise((resolve) => server.once("exit", resolve));
  process.once("exit", () => server.kill());
  return {
    url,
    pid: server.pid,
    async stop() {
      server.kill("SIGINT");
      return ended;
    },
  };
}

// Everything that a test needs, which ends with it. `change` makes another composition of the example's text.
export async function open_page(t, { change = (text) => text, options = [], view = {}, prepare = () => undefined } = {}) {
  const folder = mkdtempSync(join(tmpdir(), "quorvel-live-test-"));
  symlinkSync(plates(), join(folder, "plates"));
  const file = join(folder, "shot.json");
  writeFileSync(file, change(readFileSync(join(root, "examples/shot.json"), "utf8")));
  const server = await start_server(file, options);
  const browser = await chromium.launch({
    executablePath: process.env.QUORVEL_CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader"],
  });
  const context = await browser.newContext({ viewport: { width: 1280, height: 720 }, reducedMotion: "reduce", ...view });
  const page = await context.newPage();
  const faults = [];
  page.on("pageerror", (error) => faults.push(error.message));
  page.on("console", (message) => message.type() === "error" && faults.push(message.text()));
  t.after(async () => {
    await browser.close();
    await server.stop();
    rmSync(folder, { recursive: true, force: true });
  });
  await serve_built(context);
  await prepare(page, context);
  await page.goto(server.url);
  return { page, browser, server, folder, file, faults };
}

// With QUORVEL_PAGE=FOLDER what was built there, in place of the page that the program embeds.
async function serve_built(context) {
  const folder = process.env.QUORVEL_PAGE;
  if (!folder) return;
  const scripts = { contentType: "text/javascript", headers: { "Cross-Origin-Embedder-Policy": "require-corp" } };
  const kinds = { "page.js": scripts, "arranger.js": scripts, "page.css": { contentType: "text/css" } };
  for (const [name, kind] of Object.entries(kinds))
    await context.route(`**/${name}`, (route) => route.fulfill({ ...kind, body: gunzipSync(readFileSync(join(folder, `${name}.gz`))) }));
}

// Waits until the viewer shows an image that fits; `full`: with all its pixels and precision.
export async function shown(page, { frame, node, after = 0, full = true } = {}) {
  const wanted = { frame: frame?.toString(), node, after, full };
  await page.waitForFunction(({ frame, node, after, full }) => {
    const data = document.querySelector('[data-part="viewer"]')?.dataset;
    return (
      data?.version !== undefined &&
      (frame === undefined || data.frame === frame) &&
      (node === undefined || data.node === node) &&
      Number(data.version) > after &&
      (!full || (data.scale === "1" && data.pixels === "rgba16f"))
    );
  }, wanted, { timeout: 30000 });
  return page.evaluate(() => Number(document.querySelector('[data-part="viewer"]').dataset.version));
}

// The floats under the pointer at this place of the viewer, 0..1 from its left top, once they are the node's own.
export async function probe(page, across, down) {
  const box = await page.locator('[data-part="viewer-overlay"]').boundingBox();
  const at = [Math.floor(box.x + across * box.width) + 0.5, Math.floor(box.y + down * box.height) + 0.5];
  await page.mouse.move(at[0] - 1, at[1]);
  await page.mouse.move(...at);
  const row = page.locator('[data-part="probe-a"][data-exact="true"]');
  await row.waitFor({ timeout: 15000 });
  const { x, y, values } = await row.evaluate((element) => ({ ...element.dataset }));
  return { x: Number(x), y: Number(y), values: values.split(" ").map(Number) };
}

// The frame as `quorvel render` writes it: its floats at a pixel, y up.
export function rendered(file, frame, options = [], { width, height } = format) {
  const folder = mkdtempSync(join(tmpdir(), "quorvel-live-render-"));
  try {
    const whole = join(folder, "frame.exr");
    const plain = join(folder, "plain.exr");
    execFileSync(program, ["render", file, "-f", String(frame), "-o", whole, "--set", "out.depth=float", "--progress", "none", ...options]);
    // Without compression every row stands at its place, a channel after the other: A, B, G, R.
    execFileSync("oiiotool", [whole, "-d", "float", "--compression", "none", "-o", plain]);
    const bytes = readFileSync(plain);
    const row = 8 + 16 * width;
    const start = bytes.length - height * row;
    return (x, y) => [3, 2, 1, 0].map((channel) => bytes.readFloatLE(start + (height - 1 - y) * row + 8 + (channel * width + x) * 4));
  } finally {
    rmSync(folder, { recursive: true, force: true });
  }
}

// What stands on the screen at places of an element, 0..1 from its left top, as red, green and blue to 255.
export async function colours(page, browser, selector, places) {
  const png = (await page.locator(selector).screenshot()).toString("base64");
  const reader = await browser.newPage();
  try {
    return await reader.evaluate(async ({ png, places }) => {
      const bytes = Uint8Array.from(atob(png), (letter) => letter.charCodeAt(0));
      const image = await createImageBitmap(new Blob([bytes], { type: "image/png" }));
      const canvas = new OffscreenCanvas(image.width, image.height).getContext("2d");
      canvas.drawImage(image, 0, 0);
      return places.map(([across, down]) => [
        ...canvas.getImageData(Math.floor(across * image.width), Math.floor(down * image.height), 1, 1).data.slice(0, 3),
      ]);
    }, { png, places });
  } finally {
    await reader.close();
  }
}
