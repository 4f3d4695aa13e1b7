// What a report holds, read without the page's own code: its document, and the cells of a density.
import { readFileSync } from "node:fs";

const kElement = /(<script type="application\/json" id="tarnwick-report">)([^<]*)(<\/script>)/;

export function documentOf(file) {
    return JSON.parse(kElement.exec(readFileSync(file, "utf8"))[2]);
}

/** Rows of numbers, the lowest first. */
export function cellsOf({ columns, counts }) {
    const cells = [];
    let [value, factor, afterZero] = [0, 1, false];
    for (const byte of Buffer.from(counts, "base64")) {
        value += (byte % 128) * factor;
        factor *= 128;
        if (byte >= 128) continue;
        if (afterZero) cells.push(...Array(value).fill(0));
        else if (value > 0) cells.push(value);
        afterZero = !afterZero && value === 0;
        [value, factor] = [0, 1];
    }
    return Array.from({ length: cells.length / columns }, (_, row) => cells.slice(row * columns, (row + 1) * columns));
}

/** [UI, V, hits] of the middle of each cell. */
export function pointsOf(density) {
    const { columns, rows, low, high, spanUi } = density;
    return cellsOf(density).flatMap((cells, row) => cells.map((hits, column) =>
        [((column + 0.5) / columns - 0.5) * spanUi, low + ((row + 0.5) * (high - low)) / rows, hits]));
}
