// Bundles the page: dist/{index.html,page.js,page.css,arranger.js}.gz, which the program embeds.
// usage: node build.mjs [--out DIR] [--check]   --check writes nothing and fails where DIR holds anything else
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { gunzipSync, gzipSync } from "node:zlib";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const options = process.argv.slice(2);
const check = options.includes("--check");
const out = options.includes("--out") ? options[options.indexOf("--out") + 1] : join(here, "dist");

const bundle = await build({
  absWorkingDir: here,
  entryPoints: { page: "src/main.tsx", arranger: "src/graph/arranger.ts" },
  outdir: "unused",
  write: false,
  bundle: true,
  minify: true,
  format: "esm",
  target: "es2022",
  charset: "utf8",
  legalComments: "none",
  define: { "process.env.NODE_ENV": '"production"' },
  logLevel: "warning",
});

const files = new Map(bundle.outputFiles.map((file) => [file.path.split("/").at(-1), Buffer.from(file.contents)]));
files.set("index.html", readFileSync(join(here, "src/index.html")));

let differing = 0;
if (!check) mkdirSync(out, { recursive: true });
for (const [name, contents] of [...files].sort()) {
  const path = join(out, `${name}.gz`);
  if (!check) {
    writeFileSync(path, gzipSync(contents, { level: 9 }));
    continue;
  }
  // What another release of zlib packs otherwise is the same page.
  let present = null;
  try {
    present = gunzipSync(readFileSync(path));
  } catch {
    // Not there, or not whole: differs.
  }
  if (!present || !present.equals(contents)) {
    console.error(`build: ${path} is not what the sources make: run node build.mjs in host/live/page`);
    ++differing;
  }
}
process.exitCode = differing > 0 ? 1 : 0;
