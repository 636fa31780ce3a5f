// Pictures of the page for the documentation.
// usage: node tests/live/pictures.mjs FOLDER [light]
import { join } from "node:path";
import { open_page, shown } from "./support.mjs";

const [folder = ".", scheme = "dark"] = process.argv.slice(2);
const endings = [];
const t = { after: (end) => endings.unshift(end) };

async function open(page, letters) {
  await page.keyboard.press("Control+k");
  await page.keyboard.type(letters);
  await page.keyboard.press("Enter");
}

try {
  const { page } = await open_page(t, { view: { colorScheme: scheme } });
  const take = (name) => page.screenshot({ path: join(folder, `${name}.jpg`), type: "jpeg", quality: 88 });
  const go = async (frame) => {
    await page.getByLabel("Frame", { exact: true }).fill(String(frame));
    await page.keyboard.press("Enter");
    await shown(page, { frame });
  };
  const point = (across, down) =>
    page.locator('[data-part="viewer-overlay"]').boundingBox().then((box) => page.mouse.move(box.x + across * box.width, box.y + down * box.height));

  await shown(page);
  await go(14);
  await open(page, "shine brightness");
  await shown(page, { frame: 14 });
  // Until everything ahead is in memory: the timeline shows it.
  await page.waitForFunction(() => [...document.querySelectorAll(".strip-cached")].reduce((sum, each) => sum + each.width.baseVal.value, 0) > 800, null, { timeout: 120000 });
  const at_pointer = async () => {
    await point(0.55, 0.4);
    await page.locator('[data-part="probe-a"][data-exact="true"]').waitFor();
  };
  await at_pointer();
  await take("curves");

  await open(page, "dusk gamma");
  await page.keyboard.press("Escape");
  await page.keyboard.press("F2");
  await page.waitForFunction(() => Number(document.querySelector('[data-part="scopes"]')?.dataset.samples) > 0);
  await at_pointer();
  await take("viewer");

  // The data of a bright part of the frame, and its colours on a display.
  await open(page, "over");
  await shown(page, { frame: 14, node: "over" });
  await take("scopes");
  await page.keyboard.press("Escape");
  await shown(page, { frame: 14, node: "out" });

  // Before and after a correction.
  await page.keyboard.press("p");
  await open(page, "mood gamma");
  await page.keyboard.type("0.95");
  await page.keyboard.press("Enter");
  await page.keyboard.press("Escape");
  await shown(page, { frame: 14, after: 1 });
  await page.keyboard.press("F3");
  await at_pointer();
  await take("compare");
} finally {
  for (const end of endings) await end();
}
