// What a person at the page waits for, from a browser without a window that draws in software.
// usage: node bench/live/page.mjs [--json FILE] [--only TEXT] [--quick]   with QUORVEL_BUILD=FOLDER of a build
import { readFileSync, writeFileSync } from "node:fs";
import { open_page, processes, shown } from "../../tests/live/support.mjs";

const words = process.argv.slice(2);
const value = (name) => (words.includes(name) ? words[words.indexOf(name) + 1] : "");
const quick = words.includes("--quick");
const rows = [];
console.log(`${"bench live, the page".padEnd(52)} ${"ours".padStart(12)} ${"unit".padEnd(9)} wanted (times better)`);

function row(name, unit, better, ours, wanted) {
  const ratio = better === "less" ? wanted / ours : ours / wanted;
  rows.push({ row: name, unit, better, ours, peers: { wanted }, limit: 1 });
  console.log(`${name.padEnd(52)} ${ours.toPrecision(4).padStart(12)} ${unit.padEnd(9)} ${wanted.toPrecision(4)} (${ratio.toFixed(2)}x)`);
}

const median = (numbers) => [...numbers].sort((one, other) => one - other)[numbers.length >> 1];
const endings = [];
const t = { after: (end) => endings.unshift(end) };

async function measure(name, run) {
  if (!name.includes(value("--only"))) return;
  try {
    await run(name);
  } finally {
    for (const end of endings.splice(0)) await end();
  }
}

// The example with a correction behind everything, whose knob moves.
const with_last = (text) =>
  text.replace('{"name": "out", "type": "write", "inputs": "titled"', '{"name": "last", "type": "grade", "inputs": "titled"},\n    {"name": "out", "type": "write", "inputs": "last"');

async function select(page, letters) {
  await page.keyboard.press("Control+k");
  await page.keyboard.type(letters);
  await page.keyboard.press("Enter");
}

const everything_ahead = (page) =>
  page.waitForFunction(
    () => [...document.querySelectorAll(".strip-cached")].reduce((sum, each) => sum + each.width.baseVal.value, 0) > 0.99 * document.querySelector(".strip svg").width.baseVal.value,
    null,
    { timeout: 300000 },
  );

await measure("edit to new pixels at the page", async (name) => {
  const { page } = await open_page(t, { change: with_last });
  await shown(page);
  await select(page, "last multiply");
  await page.locator('[data-knobs="last"] [data-knob="multiply"] input[type="range"]').waitFor();
  await everything_ahead(page);
  const times = [];
  const draws = [];
  for (let i = 0; i < (quick ? 5 : 25); ++i) {
    const number = 0.5 + i * 0.02;
    const took = await page.evaluate((number) => {
      const viewer = document.querySelector('[data-part="viewer"]');
      const slider = document.querySelector('[data-knob="multiply"] input[type="range"]');
      const before = viewer.dataset.version;
      return new Promise((done, fail) => {
        setTimeout(() => fail(new Error("no picture came")), 30000);
        const begin = performance.now();
        const watch = new MutationObserver(() => {
          if (viewer.dataset.version === before) return;
          watch.disconnect();
          // The canvas is drawn in the next frame of the screen.
          requestAnimationFrame(() => done(performance.now() - begin));
        });
        watch.observe(viewer, { attributes: true });
        slider.value = String(number);
        slider.dispatchEvent(new Event("input", { bubbles: true }));
      });
    }, number);
    times.push(took);
    await shown(page);
    // A hand that rested: the whole frame has been painted, too.
    await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestIdleCallback(done))));
    draws.push(await page.evaluate(() => Number(document.querySelector('[data-node="last"] .figures')?.textContent.match(/[\d.]+/)?.[0] ?? 0)));
  }
  row(name, "ms", "less", median(times), 1.5 * median(draws) + 40);
  console.log(`  its node's own draw: ${median(draws).toFixed(1)} ms; the slowest edit: ${Math.max(...times).toFixed(0)} ms`);
});

await measure("play of frames in memory, 960x540", async (name) => {
  const { page } = await open_page(t);
  await shown(page);
  await everything_ahead(page);
  const seconds = quick ? 3 : 10;
  const seen = await page.evaluate(
    (seconds) =>
      new Promise((done) => {
        const viewer = document.querySelector('[data-part="viewer"]');
        const frames = [];
        new MutationObserver(() => frames.at(-1)?.frame !== viewer.dataset.frame && frames.push({ frame: viewer.dataset.frame, at: performance.now() })).observe(viewer, { attributes: true });
        document.querySelector('[aria-label="Play"]:is(button)').click();
        setTimeout(() => done(frames), (seconds + 1) * 1000);
      }),
    seconds,
  );
  // The first second fills what is on its way.
  const counted = seen.filter(({ at }) => at > seen[0].at + 1000);
  row(name, "frames/s", "more", ((counted.length - 1) * 1000) / (counted.at(-1).at - counted[0].at), 24);
  const dropped = seen.filter(({ frame }, at) => at > 0 && Number(frame) !== (Number(seen[at - 1].frame) % 24) + 1).length;
  console.log(`  not shown: ${dropped}`);
});

await measure("scrub over frames that are not in memory", async (name) => {
  const { page } = await open_page(t);
  await shown(page);
  await page.evaluate(() => {
    const viewer = document.querySelector('[data-part="viewer"]');
    window.seen = new Set();
    new MutationObserver(() => window.seen.add(`${viewer.dataset.version} ${viewer.dataset.frame}`)).observe(viewer, { attributes: true });
  });
  const strip = await page.locator(".strip").boundingBox();
  const at = (part) => [strip.x + 4 + part * (strip.width - 8), strip.y + 20];
  // Everything below the key is new: nothing of it is in memory.
  await select(page, "key black");
  const field = page.locator('[data-knob="black"] input').first();
  await field.fill("0.3");
  await field.press("Enter");
  await page.mouse.move(...at(0));
  await page.mouse.down();
  await page.evaluate(() => window.seen.clear());
  const begin = performance.now();
  const lasts = 3000;
  for (let now = begin; now < begin + lasts; now = performance.now()) {
    await page.mouse.move(...at((now - begin) / lasts));
    await page.evaluate(() => new Promise(requestAnimationFrame));
  }
  const seconds = (performance.now() - begin) / 1000;
  const different = await page.evaluate(() => window.seen.size);
  await page.mouse.up();
  row(name, "frames/s", "more", different / seconds, 5);
});

await measure("idle, a page open", async (name) => {
  const { page, server } = await open_page(t);
  await shown(page);
  await everything_ahead(page);
  const ticks = () => {
    const of = (pid) => readFileSync(`/proc/${pid}/stat`, "utf8").split(") ").pop().split(" ");
    return processes(server.pid).reduce((sum, pid) => sum + Number(of(pid)[11]) + Number(of(pid)[12]), 0);
  };
  await new Promise((done) => setTimeout(done, 1000));
  const before = ticks();
  const seconds = quick ? 3 : 10;
  await new Promise((done) => setTimeout(done, seconds * 1000));
  row(name, "ms/s", "less", Math.max(0.01, ((ticks() - before) * 10) / seconds), 1);
});

if (value("--json")) writeFileSync(value("--json"), `${JSON.stringify(rows, null, 1)}\n`);
