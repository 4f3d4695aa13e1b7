// Masks: polygons in UI and volts that no trace should enter.
import type { Density, Mask, Point } from "./document";
import { columnTime, countsOf, rowVoltage } from "./density";

/** Reads what document.ts describes. Throws a TypeError that names what is wrong. */
export function readMask(text: string, fileName: string): Mask {
    const fail = (what: string): never => {
        throw new TypeError(`${fileName}: ${what}; expected {"name": "…", "polygons": [[[UI, V], …], …]}`);
    };
    let given: unknown;
    try {
        given = JSON.parse(text);
    } catch {
        fail("is no JSON");
    }
    if (typeof given !== "object" || given === null) fail("holds no object");
    const { name, polygons } = given as { name?: unknown; polygons?: unknown };
    if (!Array.isArray(polygons) || polygons.length === 0) return fail("has no polygons");
    polygons.forEach((polygon: unknown, index) => {
        if (!Array.isArray(polygon) || polygon.length < 3) return fail(`polygons.${index} has fewer than three points`);
        polygon.forEach((point: unknown, at) => {
            const isPoint = Array.isArray(point) && point.length === 2 && point.every((value) => Number.isFinite(value));
            if (!isPoint) fail(`polygons.${index}.${at} is ${JSON.stringify(point)}`);
        });
    });
    return { name: typeof name === "string" && name !== "" ? name : fileName, polygons: polygons as Point[][] };
}

/** The centre of a polygon's area; of one without area the mean of its points. */
export function centreOf(polygon: Point[]): Point {
    let twiceArea = 0;
    let [x, y] = [0, 0];
    polygon.forEach(([x0, y0], index) => {
        const [x1, y1] = polygon[(index + 1) % polygon.length]!;
        const cross = x0 * y1 - x1 * y0;
        twiceArea += cross;
        x += (x0 + x1) * cross;
        y += (y0 + y1) * cross;
    });
    if (twiceArea !== 0) return [x / (3 * twiceArea), y / (3 * twiceArea)];
    const count = polygon.length;
    return [polygon.reduce((sum, point) => sum + point[0], 0) / count, polygon.reduce((sum, point) => sum + point[1], 0) / count];
}

/**
 * Where the ray from a centre through a point crosses the polygon, in distances from the centre to the point: the point is
 * inside when an odd number of them is above 1, and the polygon scaled about its centre by 1 / t runs through the point.
 */
function crossings(polygon: Point[], [cx, cy]: Point, px: number, py: number): number[] {
    const [dx, dy] = [px - cx, py - cy];
    if (dx === 0 && dy === 0) return [Infinity];
    const found: number[] = [];
    let [x0, y0] = polygon[polygon.length - 1]!;
    let side0 = (x0 - cx) * dy - (y0 - cy) * dx;
    for (const [x1, y1] of polygon) {
        const side1 = (x1 - cx) * dy - (y1 - cy) * dx;
        // One end is counted, the other is not: a corner on the ray is met once.
        if (side0 < 0 !== side1 < 0) {
            const part = side0 / (side0 - side1);
            const along = (x0 + part * (x1 - x0) - cx) * dx + (y0 + part * (y1 - y0) - cy) * dy;
            if (along > 0) found.push(along / (dx * dx + dy * dy));
        }
        [x0, y0, side0] = [x1, y1, side1];
    }
    return found;
}

export interface MaskResult {
    /** Of the cells whose middle lies inside a polygon. */
    hits: number;
    /**
     * By what part all polygons can grow about their centres before the first hit, 0.1: 10 %; below 0: by how much they
     * would have to shrink; null: no trace stands in their way.
     */
    margin: number | null;
}

export function measureMask(density: Density, mask: Mask): MaskResult {
    const counts = countsOf(density);
    const times = Array.from({ length: density.columns }, (_, column) => columnTime(density, column));
    let hits = 0;
    let scale = Infinity;
    for (const polygon of mask.polygons) {
        const centre = centreOf(polygon);
        for (let row = 0; row < density.rows; ++row) {
            const volt = rowVoltage(density, row);
            for (let column = 0; column < density.columns; ++column) {
                const count = counts[row * density.columns + column]!;
                if (count === 0) continue;
                const crossed = crossings(polygon, centre, times[column]!, volt);
                if (crossed.filter((at) => at > 1).length % 2 === 1) hits += count;
                for (const at of crossed) scale = Math.min(scale, 1 / at);
            }
        }
    }
    return { hits, margin: Number.isFinite(scale) ? scale - 1 : null };
}
