// Densities: decoding, and which cell lies where.
import type { Density } from "./document";

/** The counts of all cells, row by row from the lowest. Throws a RangeError when they are not what document.ts says. */
export function decodeCounts(density: Density): Uint32Array {
    const bytes = atob(density.counts);
    const cells = new Uint32Array(density.columns * density.rows);
    let position = 0;
    const next = (): number => {
        let value = 0;
        for (let factor = 1; ; factor *= 128) {
            const byte = bytes.charCodeAt(position++);
            if (!(factor <= 2 ** 28) || Number.isNaN(byte)) throw new RangeError("a density's counts are cut off");
            value += (byte & 127) * factor;
            if (byte < 128) return value;
        }
    };
    let total = 0;
    let cell = 0;
    while (cell < cells.length) {
        const value = next();
        if (value === 0) {
            cell += next();
        } else {
            cells[cell++] = value;
            total += value;
        }
    }
    if (cell !== cells.length || position !== bytes.length || total !== density.total)
        throw new RangeError(`a density holds ${total} hits; expected ${density.total} in ${cells.length} cells`);
    return cells;
}

const kKept = 24; // decoded densities: those about the one that is shown, and what fits a screen of small ones
const decoded = new Map<Density, Uint32Array>();

/** decodeCounts of the densities that were looked at last, kept. */
export function countsOf(density: Density): Uint32Array {
    const counts = decoded.get(density) ?? decodeCounts(density);
    decoded.delete(density);
    decoded.set(density, counts);
    for (const oldest of decoded.keys()) {
        if (decoded.size <= kKept) break;
        decoded.delete(oldest);
    }
    return counts;
}

/** What is wrong with a density's counts; null: nothing. */
export function faultOf(density: Density): string | null {
    try {
        countsOf(density);
        return null;
    } catch (error) {
        return error instanceof Error ? error.message : String(error);
    }
}

export interface Cell {
    column: number;
    row: number;
    /** [UI] of its middle from the measuring phase. */
    ui: number;
    /** [V] of its middle. */
    volt: number;
    hits: number;
}

export function columnTime(density: Density, column: number): number {
    return ((column + 0.5) / density.columns - 0.5) * density.spanUi;
}

export function rowVoltage(density: Density, row: number): number {
    return density.low + ((row + 0.5) / density.rows) * (density.high - density.low);
}

/** The cell at a time and a voltage; null outside the picture. */
export function cellAt(density: Density, ui: number, volt: number): Cell | null {
    const column = Math.floor((ui / density.spanUi + 0.5) * density.columns);
    const row = Math.floor(((volt - density.low) / (density.high - density.low)) * density.rows);
    if (!(column >= 0 && column < density.columns && row >= 0 && row < density.rows)) return null;
    return cell(density, column, row);
}

export function cell(density: Density, column: number, row: number): Cell {
    const hits = countsOf(density)[row * density.columns + column] ?? 0;
    return { column, row, ui: columnTime(density, column), volt: rowVoltage(density, row), hits };
}
