// Figures as text. They are copied into other programs: plain ASCII signs and digits.
import type { Quantity } from "./document";

export const kNone = "–"; // en dash: there is no figure

export function figure(value: number | null | undefined, digits = 4): string {
    if (value === null || value === undefined || !Number.isFinite(value)) return kNone;
    if (value === 0) return "0";
    const size = Math.abs(value);
    if (size >= 1e7 || size < 1e-4) return value.toExponential(digits - 1).replace(/\.?0+e/, "e").replace("e+", "e");
    const text = value.toPrecision(digits);
    if (text.includes("e")) return String(Math.round(value));
    return text.includes(".") ? text.replace(/\.?0+$/, "") : text;
}

/** With all its digits, for figures that stand below each other. */
export function padded(value: number | null | undefined, digits = 4): string {
    if (value === null || value === undefined) return kNone;
    const decimals = value === 0 ? 0 : digits - 1 - Math.floor(Math.log10(Math.abs(value)));
    return value.toFixed(Math.min(Math.max(decimals, 0), 8));
}

export function fixed(value: number | null | undefined, decimals: number): string {
    return value === null || value === undefined ? kNone : value.toFixed(decimals);
}

export function ber(value: number | null): string {
    if (value === null) return kNone;
    if (value === 0) return "0";
    return value < 1e-30 ? "below 1e-30" : value.toExponential(1).replace(".0e", "e").replace("e+", "e");
}

export interface VoltageUnit {
    perVolt: number;
    name: string;
}

/** mV below half a volt, as in the program's pictures. */
export function voltageUnit(span: number): VoltageUnit {
    return Math.abs(span) < 0.5 ? { perVolt: 1e3, name: "mV" } : { perVolt: 1, name: "V" };
}

/** With the unit that fits it best. */
export function voltage(value: number | null | undefined): string {
    if (value === null || value === undefined) return kNone;
    const unit = voltageUnit(value);
    return `${figure(value * unit.perVolt)} ${unit.name}`;
}

export function quantityText({ value, unit }: Quantity): string {
    if (value === null) return kNone;
    if (typeof value === "boolean") return value ? "yes" : "no";
    // Whole numbers and texts as they are, others to as many digits as any figure of a report is good for.
    const text = typeof value === "number" && !Number.isInteger(value) ? figure(value, 6) : String(value);
    const isFigure = typeof value === "number" || /\d/.test(value);
    return unit === "" || !isFigure ? text : `${text} ${unit}`;
}

/** A field of comma-separated values, RFC 4180. */
function csvField(value: string | number | null): string {
    const text = value === null ? "" : String(value);
    return /[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
}

export function csvText(rows: (string | number | null)[][]): string {
    return rows.map((row) => row.map(csvField).join(",") + "\r\n").join("");
}

/** Equally spaced round numbers from low to high, about as many as wanted. */
export function ticks(low: number, high: number, wanted: number): number[] {
    const rough = (high - low) / Math.max(wanted, 1);
    if (!(rough > 0)) return [];
    const decade = 10 ** Math.floor(Math.log10(rough));
    const step = decade * ([1, 2, 5, 10].find((factor) => factor * decade >= rough * 0.999) ?? 10);
    const found: number[] = [];
    for (let k = Math.ceil(low / step - 1e-9); k * step <= high + 1e-9 * step; ++k) found.push(k * step);
    return found;
}
