// The report of a chain and a capture: one row and one eye a stage, and the plots about them.
import type { Response, RunDocument, Series, Stage } from "./document";
import { button, csvButton, h, scrollable, section, whenNear } from "./dom";
import { commonRange, drawSmall, eyeControls, EyeSettings, EyeView } from "./eyeview";
import { eyeTable, heightAtBerText, openingText, quantitiesText, quantityList, tapsText, widthText } from "./figures";
import * as format from "./format";
import { origins } from "./head";
import { lineOf, type Marker, Plot, type PlotContent, type PlotLine } from "./plot";

const kMostLines = 6; // stages in one plot; of more only the one that is looked at

export function runPage(report: RunDocument): HTMLElement[] {
    const { stages, unitIntervalPs } = report;
    const settings = new EyeSettings(report.mask, commonRange(stages.map((stage) => stage.eye)));
    const view = new EyeView(settings);
    const measured = h("div", { class: "panel" });
    const about = h("div", { class: "about" });
    const slider = h("input", { type: "range", min: 0, max: Math.max(stages.length - 1, 0), step: 1, "aria-label": "Stage" });
    const where = h("output", { class: "where" });
    const plots = stagePlots(report);
    const plotSection = section("plots", "Responses, pulses and error ratio", h("div", { class: "plots" }, ...plots.roots));
    const rows = stages.map((stage, index) => stageRow(stage, index, settings, () => select(index)));

    let selected = -1;
    const select = (index: number): void => {
        const stage = stages[index];
        if (!stage || index === selected) return;
        rows[selected]?.removeAttribute("aria-current");
        rows[index]!.setAttribute("aria-current", "true");
        selected = index;
        slider.value = String(index);
        slider.setAttribute("aria-valuetext", stage.name);
        where.replaceChildren(h("strong", {}, stage.name), ` (${index + 1} of ${stages.length})`);
        previous.disabled = index === 0;
        next.disabled = index === stages.length - 1;
        view.show(stage.eye, stage.name, unitIntervalPs);
        measured.replaceChildren(...(stage.eye ? [eyeTable(stage.eye, unitIntervalPs)] : []));
        about.replaceChildren(...stageLists(stage));
        plots.show(index);
        plotSection.hidden = plots.roots.every((root) => root.hidden);
    };
    const previous = button("‹", () => select(selected - 1), { "aria-label": "Previous stage" });
    const next = button("›", () => select(selected + 1), { "aria-label": "Next stage" });
    slider.addEventListener("input", () => select(Number(slider.value)));
    document.addEventListener("keydown", (event) => {
        const isFree = event.target === document.body || (event.target instanceof HTMLElement && event.target.closest(".stages tr, .stepper button"));
        const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
        if (!isFree || step === undefined || event.ctrlKey || event.altKey || event.metaKey || event.shiftKey) return;
        event.preventDefault();
        select(selected + step);
    });

    const several = stages.length > 1;
    const eye = section("eye", several ? "Eye behind each stage" : "Eye");
    eye.append(h("div", { class: "stepper", hidden: !several }, previous, slider, next, where), eyeControls(settings, eye),
        h("div", { class: "beside" }, h("div", {}, view.root, about), measured));
    select(stages.length - 1);
    return [
        origins(report.head),
        eye,
        stageTable(report, rows),
        plotSection,
        ...recordPlots(report),
    ];
}

function stageLists(stage: Stage): Node[] {
    const list = (title: string, quantities: [string, string][]): Node[] =>
        quantities.length > 0 ? [h("div", {}, h("h3", {}, title), quantityList(quantities))] : [];
    const found = stage.findings.map((each): [string, string] => [each.name, format.quantityText(each)]);
    if (stage.taps) found.push(["Taps", stage.taps.values.map((value) => format.figure(value)).join(", ")]);
    return [
        ...list("Settings", stage.settings.map((each) => [each.name, format.quantityText(each)])),
        ...list("Found", found),
        ...list("Waveform", [
            ["Samples", String(stage.samples)],
            ["Repetitions", String(stage.repetitions)],
            ["Mean", format.voltage(stage.mean)],
            ["RMS", format.voltage(stage.rms)],
            ["Peak to peak", format.voltage(stage.peakToPeak)],
        ]),
    ];
}

function foundText(stage: Stage): string {
    const parts = [quantitiesText(stage.findings), stage.taps ? tapsText(stage.taps) : ""];
    return parts.filter((part) => part !== "").join("; ") || format.kNone;
}

function stageRow(stage: Stage, index: number, settings: EyeSettings, select: () => void): HTMLTableRowElement {
    const density = stage.eye?.density;
    const picture = h("canvas", { width: 112, height: 64, "aria-hidden": "true" });
    if (density) whenNear(picture, () => drawSmall(picture, density, settings.logarithmic));
    const number = (text: string): HTMLElement => h("td", { class: "number" }, text);
    const row = h("tr", {},
        h("td", { class: "thumb" }, density ? button("", select, { "aria-label": `Show the eye behind ${stage.name}` }) : null),
        h("th", { scope: "row" }, stage.name),
        number(openingText(stage.eye)), number(widthText(stage.eye)), number(heightAtBerText(stage.eye)),
        number(stage.eye ? format.ber(stage.eye.ber) : format.kNone),
        h("td", { class: "words" }, quantitiesText(stage.settings) || format.kNone),
        h("td", { class: "words" }, foundText(stage)));
    row.querySelector("button")?.append(picture);
    row.addEventListener("click", select);
    row.dataset["stage"] = String(index);
    return row;
}

function stageTable(report: RunDocument, rows: HTMLTableRowElement[]): HTMLElement {
    const target = report.stages.find((stage) => stage.eye)?.eye?.targetBer;
    const heads: [string, string][] = [
        ["Eye", ""], ["Stage", ""], ["Opening [%]", "number"], ["Width [UI]", "number"],
        [`Height at BER${target === undefined ? "" : ` ${format.ber(target)}`} [mV]`, "number"], ["BER", "number"], ["Settings", ""], ["Found", ""],
    ];
    const table = h("table", { class: "list stages" },
        h("thead", {}, h("tr", {}, ...heads.map(([name, kind]) => h("th", { scope: "col", class: kind }, name)))),
        h("tbody", {}, ...rows));
    const hasSeveral = report.stages.some((stage) => (stage.eye?.eyes.length ?? 0) > 1);
    const result = section("stages", "Stages", scrollable("Stages", table),
        hasSeveral ? h("p", { class: "status" }, "Figures of several eyes stand from the lowest eye to the highest.") : null);
    result.querySelector("h2")!.append(csvButton("the stages", "stages", () => stageCsv(report.stages)));
    return result;
}

function stageCsv(stages: Stage[]): (string | number | null)[][] {
    const rows: (string | number | null)[][] = [[
        "stage", "eye from below", "opening [%]", "height [V]", "width [UI]", "width [ps]", "threshold [V]", "height at BER [V]", "target BER",
        "Q", "BER", "noise rms [V]", "mean [V]", "rms [V]", "peak to peak [V]", "samples", "repetitions", "settings", "found",
    ]];
    for (const stage of stages)
        for (const [index, each] of (stage.eye?.eyes.length ? [...stage.eye.eyes.entries()] : ([[null, null]] as const)))
            rows.push([
                stage.name, index === null ? null : index + 1, each?.openingPercent ?? null, each?.height ?? null, each?.widthUi ?? null,
                each?.widthPs ?? null, each?.threshold ?? null, each?.heightAtBer ?? null, stage.eye?.targetBer ?? null, each?.q ?? null,
                stage.eye?.ber ?? null, stage.eye?.noiseRms ?? null, stage.mean, stage.rms, stage.peakToPeak, stage.samples, stage.repetitions,
                quantitiesText(stage.settings), foundText(stage),
            ]);
    return rows;
}

interface StagePlots {
    roots: HTMLElement[];
    show: (index: number) => void;
}

function stagePlots(report: RunDocument): StagePlots {
    const { stages, chainResponse } = report;
    const plots = {
        magnitude: new Plot("magnitude"),
        delay: new Plot("group-delay"),
        impulse: new Plot("impulse"),
        pulse: new Plot("pulse"),
        taps: new Plot("taps"),
        bathtub: new Plot("bathtub"),
    };
    const withResponse = stages.filter((stage) => stage.response);
    const responseLines = (selected: Stage, part: (response: Response) => Series | null): PlotLine[] => {
        const whole = chainResponse ? part(chainResponse) : null;
        const lines = whole ? [lineOf("chain", whole, "text", { width: 3 })] : [];
        withResponse.forEach((stage, tone) => {
            const series = part(stage.response!);
            if (series && (stage === selected || withResponse.length <= kMostLines))
                lines.push(lineOf(stage.name, series, tone, { width: stage === selected ? 2.5 : 1.5 }));
        });
        return lines;
    };
    const content = (lines: PlotLine[], more: Omit<PlotContent, "lines">): PlotContent | null => (lines.length > 0 ? { lines, ...more } : null);
    return {
        roots: Object.values(plots).map((plot) => plot.root),
        show: (index) => {
            const stage = stages[index]!;
            const half: Marker[] = report.unitIntervalPs === null ? []
                : [{ axis: "x", at: 500 / report.unitIntervalPs, label: "half the symbol rate", place: "bottom" }];
            const frequency = { xLabel: "frequency", xUnit: "GHz", markers: half };
            plots.magnitude.show(content(responseLines(stage, (each) => each.magnitudeDb),
                { title: "Magnitude", ...frequency, yLabel: "magnitude", yUnit: "dB", depth: 40 }));
            plots.delay.show(content(responseLines(stage, (each) => each.groupDelayPs),
                { title: "Group delay", ...frequency, yLabel: "group delay", yUnit: "ps" }));
            plots.impulse.show(content(responseLines(stage, (each) => each.impulse),
                { title: "Impulse response", xLabel: "time from the impulse", xUnit: "UI", yLabel: "impulse response", yUnit: "1/UI", tallest: 3 }));
            plots.pulse.show(pulseContent(stage));
            plots.taps.show(tapsContent(stage));
            plots.bathtub.show(bathtubContent(stages, stage));
        },
    };
}

function pulseContent(stage: Stage): PlotContent | null {
    const { pulses } = stage;
    if (!pulses) return null;
    const unit = format.voltageUnit([pulses.before, pulses.after].reduce(
        (most, series) => (series?.values ?? []).reduce<number>((m, value) => Math.max(m, Math.abs(value ?? 0)), most), 0));
    const both = (label: string, series: Series, tone: number): PlotLine[] => {
        const line = lineOf(label, { ...series, values: series.values.map((value) => (value === null ? null : value * unit.perVolt)) }, tone);
        const onCursor = (k: number): boolean => k % pulses.valuesPerUi === 0;
        return [line, { ...line, style: "dots", x: line.x.filter((_, k) => onCursor(k)), y: line.y.filter((_, k) => onCursor(k)) }];
    };
    return {
        title: `Pulse response about ${stage.name}, from ${pulses.source === "ideal symbol" ? "an ideal symbol" : pulses.source}`,
        xLabel: "time from the main cursor", xUnit: "UI", yLabel: "pulse response", yUnit: unit.name,
        lines: [...both("in front", pulses.before, 1), ...(pulses.after ? both("behind", pulses.after, 0) : [])],
        markers: [{ axis: "x", at: 0, label: "cursor" }],
    };
}

function tapsContent({ name, taps }: Stage): PlotContent | null {
    if (!taps || taps.values.length === 0) return null;
    const order = taps.offsetsUi.map((_, k) => k).sort((one, other) => taps.offsetsUi[one]! - taps.offsetsUi[other]!);
    return {
        title: `Taps of ${name}`,
        xLabel: "time from the main cursor", xUnit: "UI", yLabel: taps.kind === "feedback" ? "taps [main cursors]" : "taps", yUnit: "",
        lines: [{ label: "tap", x: order.map((k) => taps.offsetsUi[k]!), y: order.map((k) => taps.values[k]!), tone: 0, style: "bars" }],
        markers: [{ axis: "y", at: 0, label: "" }],
        includeZero: true,
    };
}

/** That in front of the chain stays, to compare with. */
function bathtubContent(stages: Stage[], selected: Stage): PlotContent | null {
    const last = [...stages].reverse().find((stage) => stage.eye?.bathtub);
    const shown = selected.eye?.bathtub ? selected : last;
    const target = shown?.eye?.targetBer;
    const lines = [stages[0], shown].filter((stage, index, both) => stage?.eye?.bathtub && both.indexOf(stage) === index)
        .map((stage, index) => lineOf(stage === stages[0] ? "capture" : `behind ${stage!.name}`, stage!.eye!.bathtub!.ber, index));
    if (lines.length === 0 || target === undefined) return null;
    return {
        title: "Bathtub", xLabel: "time from the measuring phase", xUnit: "UI", yLabel: "bit error ratio", yUnit: "", lines,
        logarithmicY: [1e-15, 1], markers: [{ axis: "y", at: target, label: format.ber(target) }, { axis: "x", at: 0, label: "" }],
    };
}

function recordPlots({ clockPhase, spectrum, levels }: RunDocument): HTMLElement[] {
    const contents: [string, PlotContent | null][] = [
        ["clock-phase", clockPhase && {
            title: "Phase of the symbol clock", xLabel: "time from the first sample", xUnit: "UI", yLabel: "clock phase", yUnit: "UI",
            lines: [lineOf("phase", clockPhase.phase, 0), ...(clockPhase.tracked ? [lineOf("tracked", clockPhase.tracked, 2)] : [])],
            includeZero: true,
        }],
        ["spectrum", spectrum && {
            title: `Spectrum: ${spectrum.quantity}`, xLabel: "frequency", xUnit: spectrum.frequencyUnit, yLabel: "magnitude", yUnit: "dB",
            lines: [lineOf("spectrum", spectrum.magnitudeDb, 0, { width: 1.2 })],
            markers: [
                ...(spectrum.line === null ? [] : [{ axis: "x" as const, at: spectrum.line, label: `clock ${format.figure(spectrum.line, 6)} ${spectrum.frequencyUnit}` }]),
                ...(spectrum.leastDb === null ? [] : [{ axis: "y" as const, at: spectrum.leastDb, label: "a weaker line is no clock" }]),
            ],
        }],
        ["levels", levels && levels.levels.length > 0 ? levelsContent(levels.levels) : null],
    ];
    const shown = contents.filter(([, content]) => content);
    if (shown.length === 0) return [];
    return [section("record", "Capture", h("div", { class: "plots" }, ...shown.map(([name, content]) => {
        const plot = new Plot(name);
        plot.show(content);
        return plot.root;
    })))];
}

function levelsContent(levels: Series[]): PlotContent {
    const known = levels.flatMap((series) => series.values.filter((value): value is number => value !== null));
    const unit = format.voltageUnit(known.reduce((m, value) => Math.max(m, value), -Infinity) - known.reduce((m, value) => Math.min(m, value), Infinity));
    return {
        title: "Levels over the record", xLabel: "time from the first sample", xUnit: "UI", yLabel: "levels", yUnit: unit.name,
        lines: levels.map((series, index) =>
            lineOf(`level ${index}`, { ...series, values: series.values.map((value) => (value === null ? null : value * unit.perVolt)) }, index)),
    };
}
