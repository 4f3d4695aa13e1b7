// What was measured of an eye, and what a filter has found, as text.
import type { Eye, Quantity, Taps } from "./document";
import { h } from "./dom";
import * as format from "./format";

/** Of several eyes one figure each, below each other, from the lowest. */
export function eachEye(eye: Eye | null, text: (opening: Eye["eyes"][number]) => string): string {
    return eye && eye.eyes.length > 0 ? eye.eyes.map(text).join("\n") : format.kNone;
}

export const openingText = (eye: Eye | null): string => eachEye(eye, (each) => format.fixed(each.openingPercent, 1));
export const widthText = (eye: Eye | null): string => eachEye(eye, (each) => format.fixed(each.widthUi, 4));

/** In mV: stages stand below each other. */
export const heightAtBerText = (eye: Eye | null): string =>
    eachEye(eye, (each) => format.padded(each.heightAtBer === null ? null : 1e3 * each.heightAtBer));

export function quantitiesText(quantities: Quantity[]): string {
    return quantities.map((each) => `${each.name} ${format.quantityText(each)}`).join(", ");
}

const kTapsInText = 12;

export function tapsText(taps: Taps): string {
    const shown = taps.values.slice(0, kTapsInText).map((value) => value.toFixed(3)).join(" ");
    const more = taps.values.length - kTapsInText;
    return `taps ${shown}${more > 0 ? ` and ${more} more` : ""}`;
}

/** Names and values, side by side. */
export function quantityList(quantities: [string, string][]): HTMLElement {
    return h("dl", { class: "quantities" }, ...quantities.flatMap(([name, value]) => [h("dt", {}, name), h("dd", {}, value)]));
}

/** A line a figure, a column an eye. */
export function eyeTable(eye: Eye, unitIntervalPs: number | null): HTMLElement {
    const { eyes } = eye;
    const unit = format.voltageUnit(Math.max(...eyes.map((each) => Math.abs(each.height ?? 0))));
    const volts = (value: number | null): string => format.padded(value === null ? null : value * unit.perVolt);
    const rows: [string, (opening: Eye["eyes"][number]) => string][] = [
        ["Opening [%]", (each) => format.fixed(each.openingPercent, 1)],
        [`Height [${unit.name}]`, (each) => volts(each.height)],
        [`Height at BER ${format.ber(eye.targetBer)} [${unit.name}]`, (each) => volts(each.heightAtBer)],
        ["Width [UI]", (each) => format.fixed(each.widthUi, 4)],
        ["Width [ps]", (each) => format.padded(each.widthPs)],
        [`Threshold [${unit.name}]`, (each) => volts(each.threshold)],
        ["Q", (each) => format.padded(each.q)],
    ];
    const several = eyes.length > 1;
    const table = h("table", { class: "figures" },
        h("caption", {}, several ? "Eyes, from the lowest" : "Eye"),
        several ? h("thead", {}, h("tr", {}, h("td"), ...eyes.map((_, index) => h("th", { scope: "col" }, String(index + 1))))) : null,
        h("tbody", {}, ...rows
            .filter(([name]) => name !== "Width [ps]" || unitIntervalPs !== null)
            .map(([name, text]) => h("tr", {}, h("th", { scope: "row" }, name), ...eyes.map((each) => h("td", {}, text(each)))))));
    const symbols = eye.symbolsKnown === null ? [] : [["Symbols", eye.symbolsKnown ? "known" : "decided: a closed eye looks more open than it is"]];
    const others = [
        ["Bit error ratio", format.ber(eye.ber)],
        ["Noise", eye.noiseRms === null ? format.kNone : `${format.voltage(eye.noiseRms)} rms`],
        ["Levels", eye.levels.length > 0 ? eye.levels.map(format.voltage).join(", ") : format.kNone],
        ["Measuring phase", eye.phaseUi === null ? format.kNone : `${format.figure(eye.phaseUi)} UI`],
        ["Measured", eye.valid ? `${eye.valid.count} samples` : format.kNone],
        ["from sample", eye.valid ? String(eye.valid.first) : format.kNone],
        ...symbols,
    ] as [string, string][];
    return h("div", {}, eyes.length > 0 ? table : h("p", {}, "No eyes were found."), quantityList(others));
}
