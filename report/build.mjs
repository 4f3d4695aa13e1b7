// Builds the page's bundle: node build.mjs [FOLDER], default dist. The same sources give the same bytes.
import { readFile, mkdir, writeFile } from "node:fs/promises";
import { fileURLToPath } from "node:url";
import { join } from "node:path";
import { build } from "esbuild";

const here = fileURLToPath(new URL(".", import.meta.url));
const folder = process.argv[2] ?? join(here, "dist");
const licences = (await readFile(join(here, "LICENSES.txt"), "utf8")).trimEnd();
const banner = `/*!\n${licences}\n*/`;

const options = {
    absWorkingDir: here,
    bundle: true,
    minify: true,
    write: false,
    target: ["es2021", "chrome100", "firefox100", "safari15"],
    charset: "ascii",
    legalComments: "none", // all of them stand in the banner
    logLevel: "warning",
};
const outputs = {
    "report.js": { ...options, entryPoints: ["src/main.ts"], format: "iife", banner: { js: banner } },
    "report.css": { ...options, entryPoints: ["src/report.css"], banner: { css: banner } },
};
await mkdir(folder, { recursive: true });
for (const [name, each] of Object.entries(outputs)) {
    const text = (await build(each)).outputFiles[0].text;
    // The texts stand inside their elements as they are.
    const unsafe = /<\/(script|style)|<!--|\r|\0/i.exec(text);
    if (unsafe) throw new Error(`${name} contains ${JSON.stringify(unsafe[0])}, which would end or change its element`);
    await writeFile(join(folder, name), text);
}
