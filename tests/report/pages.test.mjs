// Reports in a browser, opened from files: REPORTS=FOLDER node --test tests/report, with run.html, sweep.html, batch.html and
// many.html (200 stages) in the folder. CHROMIUM names the browser.
import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import test, { after } from "node:test";
import { pathToFileURL } from "node:url";
import { documentOf, pointsOf } from "./document.mjs";

const require = createRequire(new URL("../../report/package.json", import.meta.url));
const { chromium } = require("playwright-core");
const axe = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
const folder = process.env.REPORTS;
const sandbox = process.getuid() === 0 ? ["--no-sandbox"] : [];
const browser = await chromium.launch({ executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium", args: sandbox });
after(() => browser.close());

const kScriptSeconds = 3; // in which the largest report opens
const kPaper = { width: 698, height: 1016 }; // [px] A4 within the page's margins
const kPages = ["run", "sweep", "batch", "many"];

/** Opens a report and hands it over; then nothing may have been said or asked for. */
async function withReport(name, options, use) {
    const page = await browser.newPage({ viewport: { width: 1280, height: 900 }, ...options });
    const said = [];
    page.on("console", (message) => said.push(message.text()));
    page.on("pageerror", (error) => said.push(error.message));
    page.on("dialog", (dialog) => said.push(`dialog ${dialog.message()}`));
    const address = pathToFileURL(join(folder, `${name}.html`)).href;
    page.on("request", (request) => {
        if (request.url() !== address && !request.url().startsWith("blob:")) said.push(`request ${request.url()}`);
    });
    const session = await page.context().newCDPSession(page);
    await session.send("Performance.enable");
    await page.goto(address);
    await page.locator("h1").waitFor();
    await page.waitForTimeout(200); // small eyes and plots are drawn as they come near the screen
    const { metrics } = await session.send("Performance.getMetrics");
    await use(page, metrics.find((metric) => metric.name === "ScriptDuration").value);
    assert.deepEqual(said, []);
    await page.close();
}

/** How many colours a canvas shows: 1 when it is blank. */
const coloursOf = (canvas) => canvas.evaluate((element) => {
    const { data } = element.getContext("2d").getImageData(0, 0, element.width, element.height);
    return new Set(new Uint32Array(data.buffer)).size;
});

/** What the cursor of an eye reads: [UI, V, hits]. */
async function readingOf(eye) {
    const text = await eye.locator(".readout").first().textContent();
    const [, ui, volt, unit, hits] = /^(-?[\d.]+) UI(?: \(.*? ps\))?, (-?[\d.e-]+) (m?V): (\d+) hits?$/.exec(text) ?? assert.fail(text);
    return [Number(ui), Number(volt) * (unit === "mV" ? 1e-3 : 1), Number(hits)];
}

/** The density's own value at the cell that was read: its middle is told to four digits. */
function hitsAt(points, [ui, volt]) {
    const distance = ([x, y]) => ((x - ui) / 1e-3) ** 2 + ((y - volt) / 1e-4) ** 2;
    return points.reduce((nearest, point) => (distance(point) < distance(nearest) ? point : nearest))[2];
}

for (const name of kPages)
    test(`${name}: opens in time, is drawn, accessible in light and dark, fits narrow screens and paper`, async (context) => {
        for (const colorScheme of ["light", "dark"])
            await withReport(name, { colorScheme }, async (page, seconds) => {
                context.diagnostic(`${name}: ${seconds.toFixed(2)} s of script`);
                assert.ok(seconds < kScriptSeconds, `${seconds} s of script`);
                const canvas = page.locator("canvas:visible").first();
                assert.ok((await coloursOf(canvas)) > 10, "the first eye is blank");
                const found = await page.evaluate(`${axe}; axe.run(document, { resultTypes: ["violations"] })`);
                assert.deepEqual(found.violations.map(({ id, nodes }) => [id, nodes[0].html]), []);
            });
        await withReport(name, { viewport: { width: 400, height: 800 } }, async (page) => {
            assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 400);
        });
        await withReport(name, { viewport: kPaper, colorScheme: "dark" }, async (page) => {
            await page.pdf({ format: "A4", printBackground: true });
            await page.emulateMedia({ media: "print" });
            await page.evaluate(() => window.dispatchEvent(new Event("beforeprint")));
            const cut = await page.evaluate((paper) => [...document.querySelectorAll("figure, .eye, canvas, tr")]
                .filter((element) => element.checkVisibility()).filter((element) => {
                    const { left, right, height } = element.getBoundingClientRect();
                    const stays = element.closest(".uplot") || getComputedStyle(element).breakInside === "avoid";
                    return left < 0 || right > paper.width + 1 || height > paper.height || !stays;
                }).map((element) => element.outerHTML.slice(0, 200)).slice(0, 4), kPaper);
            assert.deepEqual(cut, []);
        });
    });

test("run: texts stay texts, and the command is there to copy", () => withReport("run", {}, async (page) => {
    const { head } = documentOf(join(folder, "run.html"));
    assert.match(head.captures[0].name, /<img/);
    assert.equal(await page.locator("img").count(), 0);
    assert.ok((await page.locator("#origin").textContent()).includes(head.captures[0].name));
    assert.ok((await page.locator("#origin pre").allTextContents()).includes(head.command));
}));

test("run: the eye reads its density by pointer and by keys", () => withReport("run", {}, async (page) => {
    const { stages } = documentOf(join(folder, "run.html"));
    const { density } = stages.at(-1).eye;
    const points = pointsOf(density);
    // Nothing is drawn over the cells, and they fill the picture.
    for (const name of ["Threshold", "Opening", "BER contour", "One voltage scale for all"]) await page.getByLabel(name).uncheck();
    const frame = page.locator(".eye-frame");
    await frame.scrollIntoViewIfNeeded();
    const { width, height } = await frame.boundingBox();
    const positions = [0.1, 0.31, 0.52, 0.7, 0.97].flatMap((x) => [0.05, 0.2, 0.35, 0.5, 0.65, 0.8].map((y) =>
        ({ x: Math.round(x * width), y: Math.round(y * height) })));
    const areBlack = await page.locator(".eye-picture").evaluate((canvas, at) => {
        const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
        return at.map(({ x, y }) => data.slice(4 * (y * canvas.width + x), 4 * (y * canvas.width + x) + 4).join() === "16,16,24,255");
    }, positions);
    let hits = 0;
    let [least, most] = [[Infinity, Infinity], [-Infinity, -Infinity]];
    for (const [index, position] of positions.entries()) {
        await frame.hover({ position });
        const reading = await readingOf(page.locator(".eye"));
        assert.equal(reading[2], hitsAt(points, reading));
        assert.equal(areBlack[index], reading[2] === 0, `the picture at ${reading}`);
        hits += reading[2];
        least = least.map((value, axis) => Math.min(value, reading[axis]));
        most = most.map((value, axis) => Math.max(value, reading[axis]));
    }
    assert.ok(hits > 0);
    assert.ok(least[0] < -0.9 && most[0] > 0.9 && most[1] - least[1] > 0.7 * (density.high - density.low));
    await frame.focus();
    const before = await readingOf(page.locator(".eye"));
    await page.keyboard.press("Shift+ArrowLeft");
    await page.keyboard.press("ArrowUp");
    const moved = await readingOf(page.locator(".eye"));
    assert.ok(moved[0] < before[0] && moved[1] > before[1]);
    assert.equal(moved[2], hitsAt(points, moved));
}));

test("run: damaged counts are told in place of an eye", () => {
    const page = readFileSync(join(folder, "run.html"), "utf8");
    const totals = /"total":\s*(\d+)/g;
    writeFileSync(join(folder, "damaged.html"), page.replace(totals, (_, total) => `"total":${Number(total) + 1}`));
    return withReport("damaged", {}, async (damaged) => {
        assert.match(await damaged.locator(".eye .readout").first().textContent(), /^There is no picture of this eye: a density holds \d+ hits/);
        assert.equal(await damaged.locator(".eye-frame").isVisible(), false);
        assert.ok(await damaged.locator("table").first().isVisible());
    });
});

test("run: slider, keys and rows step through the stages", () => withReport("run", {}, async (page) => {
    const { stages } = documentOf(join(folder, "run.html"));
    const picture = page.locator(".eye-picture");
    const shown = async () => [await page.locator(".where strong").textContent(), await page.locator("tr[aria-current]").getAttribute("data-stage")];
    const expected = (index) => [stages[index].name, String(index)];
    assert.deepEqual(await shown(), expected(stages.length - 1));
    const last = await picture.evaluate((canvas) => canvas.toDataURL());
    await page.getByRole("slider").focus();
    await page.keyboard.press("Home");
    assert.deepEqual(await shown(), expected(0));
    assert.notEqual(await picture.evaluate((canvas) => canvas.toDataURL()), last);
    assert.match(await picture.getAttribute("aria-label"), new RegExp(`^Density eye, ${stages[0].name}: .*height`));
    await page.evaluate(() => document.activeElement.blur());
    await page.keyboard.press("ArrowRight");
    assert.deepEqual(await shown(), expected(1));
    await page.locator("tr[data-stage='0'] th").click();
    assert.deepEqual(await shown(), expected(0));
    await page.getByRole("button", { name: "Next stage" }).click();
    assert.deepEqual(await shown(), expected(1));
}));

test("run: a mask is loaded, its hits counted, its margin told", () => withReport("run", {}, async (page) => {
    const { stages } = documentOf(join(folder, "run.html"));
    const { density } = stages.at(-1).eye;
    const middle = (density.low + density.high) / 2;
    const quarter = (density.high - density.low) / 4;
    const load = async (polygons) => {
        const file = join(folder, "mask.json");
        writeFileSync(file, typeof polygons === "string" ? polygons : JSON.stringify({ name: "box", polygons }));
        await page.locator("input[type=file]").setInputFiles(file);
    };
    const box = (x, y) => [[-x, middle - y], [x, middle - y], [x, middle + y], [-x, middle + y]];
    const inside = pointsOf(density).filter(([ui, volt]) => Math.abs(ui) < 0.5 && Math.abs(volt - middle) < quarter);
    const hits = inside.reduce((sum, point) => sum + point[2], 0);
    const result = page.locator(".mask-result");
    await load([box(0.5, quarter)]);
    await result.waitFor();
    assert.match(await result.textContent(), new RegExp(`^Mask box: ${hits} hits, margin -[\\d.]+ % of its size$`));
    await load([box(1e-6, 1e-9)]);
    await page.waitForFunction(() => /^Mask box: 0 hits, margin \+/.test(document.querySelector(".mask-result").textContent));
    await load("no mask");
    await page.getByText("mask.json: is no JSON").waitFor();
    await page.getByRole("button", { name: "Remove mask" }).click();
    assert.ok(await result.isHidden());
}));

test("run: plots read, zoom, go back and are saved", () => withReport("run", {}, async (page) => {
    const plot = page.locator("#plot-magnitude");
    const { chainResponse } = documentOf(join(folder, "run.html"));
    await plot.scrollIntoViewIfNeeded();
    const canvas = plot.locator(".u-wrap canvas");
    await canvas.waitFor();
    assert.ok((await coloursOf(canvas)) > 3, "the plot is blank");
    const all = await canvas.evaluate((element) => element.toDataURL());
    const over = plot.locator(".u-over");
    await over.hover();
    const [, frequency, value] = /^([\d.]+) GHz: chain (-?[\d.]+) dB/.exec(await plot.locator(".readout").textContent());
    const { first, spacing, values } = chainResponse.magnitudeDb;
    assert.equal(Number(value), Number(values[Math.round((frequency - first) / spacing)].toPrecision(4)));
    const { x, y, width, height } = await over.boundingBox();
    await page.mouse.move(x + 0.3 * width, y + height / 2);
    await page.mouse.down();
    await page.mouse.move(x + 0.6 * width, y + height / 2, { steps: 4 });
    await page.mouse.up();
    await page.mouse.move(0, 0);
    assert.notEqual(await canvas.evaluate((element) => element.toDataURL()), all);
    await plot.locator(".plot-frame").focus();
    await page.keyboard.press("0");
    await page.waitForTimeout(50);
    assert.equal(await canvas.evaluate((element) => element.toDataURL()), all);
    const [download] = await Promise.all([page.waitForEvent("download"), plot.getByRole("button", { name: "CSV" }).click()]);
    const rows = readFileSync(await download.path(), "utf8").trimEnd().split("\r\n").map((row) => row.split(","));
    assert.deepEqual(rows[0].slice(0, 2), ["frequency [GHz]", "chain magnitude [dB]"]);
    assert.deepEqual(rows.slice(1).map((row) => (row[1] === "" ? null : Number(row[1]))).slice(0, values.length), values);
}));

for (const name of ["sweep", "batch"])
    test(`${name}: the table sorts, a row opens its eye, the table is saved`, () => withReport(name, {}, async (page) => {
        const { columns, rows } = documentOf(join(folder, `${name}.html`));
        const at = columns.findIndex((column) => column.kind === "number" && new Set(rows.map((row) => row.values[columns.indexOf(column)])).size > 1);
        const head = page.locator(".runs thead th:has(button)").nth(at);
        const known = rows.map((row) => row.values[at]).filter((value) => value !== null);
        const shown = async () => (await page.locator(`.runs tbody tr:not(.failed) td:nth-child(${at + 2})`).allTextContents()).filter((text) => text !== "–").map(Number);
        for (const [direction, sign] of [["ascending", 1], ["descending", -1]]) {
            await head.getByRole("button").focus();
            await page.keyboard.press("Enter");
            assert.equal(await head.getAttribute("aria-sort"), direction);
            const sorted = [...known].sort((one, other) => sign * (one - other));
            // To five digits of the largest.
            const bound = 1e-4 * Math.max(...known.map(Math.abs));
            (await shown()).forEach((value, index) => assert.ok(Math.abs(value - sorted[index]) <= bound, `${value}; expected ${sorted[index]}`));
        }
        const opener = page.locator(".thumb button").first();
        const label = (await opener.getAttribute("aria-label")).replace("Open the eye of ", "");
        await opener.focus();
        await page.keyboard.press("Enter");
        const dialog = page.getByRole("dialog");
        assert.equal(await dialog.locator("h2").textContent(), label);
        assert.ok((await coloursOf(dialog.locator(".eye-picture"))) > 10, "the eye is blank");
        await dialog.locator(".eye-frame").hover();
        const reading = await readingOf(dialog.locator(".eye"));
        assert.equal(reading[2], hitsAt(pointsOf(rows.find((row) => row.label === label).eye.density), reading));
        const { violations } = await page.evaluate(`${axe}; axe.run(document, { resultTypes: ["violations"] })`);
        assert.deepEqual(violations.map(({ id, nodes }) => [id, nodes[0].html]), []);
        await page.keyboard.press("Escape");
        assert.ok(await dialog.isHidden());
        assert.equal(await page.evaluate(() => document.activeElement.getAttribute("aria-label")), `Open the eye of ${label}`);
        const [download] = await Promise.all([page.waitForEvent("download"), page.getByRole("button", { name: "Save the table as CSV" }).click()]);
        assert.ok(readFileSync(await download.path(), "utf8").split("\r\n").length > rows.length);
    }));
