// The parts of the page that compute, by themselves: densities, masks, figures.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import test from "node:test";
import { fileURLToPath } from "node:url";

const folder = new URL("../../report/", import.meta.url);
const { build } = createRequire(new URL("package.json", folder))("esbuild");
const contents = 'export * from "./src/density"; export * from "./src/mask"; export * from "./src/format";';
const { outputFiles } = await build({ stdin: { contents, resolveDir: fileURLToPath(folder) }, bundle: true, format: "esm", write: false });
const parts = await import(`data:text/javascript;base64,${Buffer.from(outputFiles[0].contents).toString("base64")}`);

const picture = (counts, total, more = {}) => ({ columns: 3, rows: 2, low: -1, high: 1, spanUi: 3, counts, total, ...more });

test("counts: runs of cells without hits, numbers of several bytes", () => {
    const density = picture("AAMFrAIAAQ==", 305);
    assert.deepEqual([...parts.decodeCounts(density)], [0, 0, 0, 5, 300, 0]);
    assert.deepEqual(parts.cellAt(density, 0, 0.5), { column: 1, row: 1, ui: 0, volt: 0.5, hits: 300 });
    assert.equal(parts.cellAt(density, 1.51, 0), null);
    const most = Buffer.from([0xff, 0xff, 0xff, 0xff, 0x0f, 0, 5]).toString("base64");
    assert.equal(parts.decodeCounts(picture(most, 2 ** 32 - 1))[0], 2 ** 32 - 1);
});

for (const [what, density] of [
    ["cut off", picture("AAMFrA==", 305)],
    ["too many cells", picture("AAc=", 0)],
    ["bytes left over", picture("AAYB", 0)],
    ["another sum", picture("AAMFrAIAAQ==", 306)],
]) test(`counts: ${what} is refused`, () => assert.throws(() => parts.decodeCounts(density), RangeError));

// Three cells of 1 UI by 1 V in each of two rows: hits at (-1, 0.5), (0, 0.5).
const hit = picture("AAMFrAIAAQ==", 305);
const box = (left, bottom, right, top) => [[left, bottom], [right, bottom], [right, top], [left, top]];
for (const [what, polygons, hits, margin] of [
    ["a box about the middle of one cell", [box(-0.5, 0.25, 0.5, 0.75)], 300, -1],
    ["the other way round", [box(-0.5, 0.25, 0.5, 0.75).reverse()], 300, -1],
    ["both cells", [box(-1.5, 0.25, 0.5, 0.75)], 305, -1 + 0.5],
    ["below them, with room to grow to three times its size", [box(-0.2, -0.5, 0.2, 0)], 0, 2],
    ["two polygons, the nearer counts", [box(-0.2, -0.5, 0.2, 0), box(0.5, 0.25, 1.5, 0.75)], 0, 1],
    ["out of the way of everything", [[[-1, -1], [1, -1], [1, -0.9]]], 0, undefined],
]) test(`mask: ${what}`, () => {
    const found = parts.measureMask(hit, { name: "", polygons });
    assert.equal(found.hits, hits);
    // Centres and crossings are a few roundings away from these fractions.
    if (margin !== undefined) assert.ok(Math.abs(found.margin - margin) < 1e-12, `margin ${found.margin}; expected ${margin}`);
    else assert.ok(found.margin > 1);
});

test("mask: what is none names the file and what is wrong", () => {
    for (const [text, message] of [
        ["{", /^m\.json: is no JSON; expected/],
        ['{"polygons": []}', /^m\.json: has no polygons/],
        ['{"polygons": [[[0, 0], [1, 1]]]}', /^m\.json: polygons\.0 has fewer than three points/],
        ['{"polygons": [[[0, 0], [1, 1], [1, null]]]}', /^m\.json: polygons\.0\.2 is \[1,null\]/],
    ]) assert.throws(() => parts.readMask(text, "m.json"), { name: "TypeError", message });
    assert.equal(parts.readMask('{"polygons": [[[0, 0], [1, 1], [1, 0]]]}', "m.json").name, "m.json");
});

test("figures are plain ASCII that other programs read", () => {
    for (const [value, text] of [[0, "0"], [-0.25, "-0.25"], [100, "100"], [12345.6, "12346"], [3.2e-14, "3.2e-14"], [2.5e9, "2.5e9"], [null, "–"]])
        assert.equal(parts.figure(value), text);
    assert.equal(parts.ber(1e-31), "below 1e-30");
    assert.equal(parts.csvText([["a,b", 'say "x"', null, -1.5]]), '"a,b","say ""x""",,-1.5\r\n');
});
