// Line plots with a cursor, zoom and reset, by mouse, touch and keys; uPlot draws them.
import uPlot from "uplot";
import type { Series } from "./document";
import { button, csvButton, h, whenNear } from "./dom";
import * as format from "./format";
import { kDashes, onThemeChange, printing, theme } from "./palette";

export interface PlotLine {
    label: string;
    x: number[];
    y: (number | null)[];
    /** Of Theme.lines and kDashes; "text": the colour of texts, solid, for the whole among its parts. */
    tone: number | "text";
    width?: number;
    style?: "line" | "bars" | "dots";
}

export interface Marker {
    axis: "x" | "y";
    at: number;
    label: string;
    /** Of a vertical one's label; default: top. */
    place?: "top" | "bottom";
}

export interface PlotContent {
    title: string;
    xLabel: string;
    xUnit: string;
    yLabel: string;
    yUnit: string;
    lines: PlotLine[];
    markers?: Marker[];
    /** Logarithmic, from the first to the second; what is smaller is drawn at the first. */
    logarithmicY?: [number, number];
    /** Shown first are at most so many units below the largest value. */
    depth?: number;
    /** What is farther from zero than so many times the largest value of the first line is cut off at first. */
    tallest?: number;
    /** What is shown first; default: all. */
    xRange?: [number, number];
    includeZero?: boolean;
}

export function lineOf(label: string, series: Series, tone: PlotLine["tone"], more: Partial<PlotLine> = {}): PlotLine {
    return { label, x: series.values.map((_, k) => series.first + k * series.spacing), y: series.values, tone, ...more };
}

const kHeight = 240;
const kPaperWidth = 640; // fits the narrower of the usual sheets within their margins
const kZoom = 2;
const kFont = "12px system-ui, sans-serif";

const colourOf = (line: PlotLine): string => {
    const colours = theme();
    return line.tone === "text" ? colours.text : colours.lines[line.tone % colours.lines.length]!;
};
const dashOf = (line: PlotLine): number[] => (line.tone === "text" ? [] : kDashes[line.tone % kDashes.length]!);

type Limits = Record<"x" | "y", [number, number]>;

/** Everything that is to be seen, with some room above and below. */
function limitsOf(content: PlotContent): Limits {
    const padded = (low: number, high: number, room: number): [number, number] => {
        if (!(high >= low)) return [0, 1];
        const by = high > low ? room * (high - low) : Math.abs(low) * 0.1 || 1;
        return [low - by, high + by];
    };
    const xs = content.lines.flatMap((line) => [line.x[0] ?? Infinity, line.x[line.x.length - 1] ?? -Infinity]);
    const hasBars = content.lines.some((line) => line.style === "bars");
    const [first, last] = [Math.min(...xs.filter(Number.isFinite)), Math.max(...xs.filter(Number.isFinite))];
    const x = content.xRange ?? (hasBars ? ([first - 0.8, last + 0.8] as [number, number]) : padded(first, last, first < last ? 0 : 1));
    if (content.logarithmicY) return { x, y: content.logarithmicY };
    let [low, high] = content.includeZero ? [0, 0] : [Infinity, -Infinity];
    for (const line of content.lines)
        line.y.forEach((value, k) => {
            if (value === null || line.x[k]! < x[0] || line.x[k]! > x[1]) return;
            low = Math.min(low, value);
            high = Math.max(high, value);
        });
    for (const marker of content.markers ?? [])
        if (marker.axis === "y") [low, high] = [Math.min(low, marker.at), Math.max(high, marker.at)];
    if (content.tallest !== undefined) {
        const most = content.tallest * content.lines[0]!.y.reduce<number>((largest, value) => Math.max(largest, Math.abs(value ?? 0)), 0);
        [low, high] = [Math.max(low, -most), Math.min(high, most)];
    }
    if (content.depth !== undefined) low = Math.max(low, high - content.depth);
    return { x, y: padded(low, high, 0.06) };
}

export class Plot {
    readonly root: HTMLElement;
    private readonly frame: HTMLElement;
    private readonly picture: HTMLElement;
    private readonly caption: HTMLElement;
    private readonly legend: HTMLElement;
    private readonly readout: HTMLElement;
    private content: PlotContent | null = null;
    private chart: uPlot | null = null;
    private limits: Limits = { x: [0, 1], y: [0, 1] };

    constructor(name: string) {
        this.picture = h("div", { role: "img", class: "plot-picture" });
        this.readout = h("p", { class: "readout", "aria-live": "polite" });
        this.legend = h("ul", { class: "legend" });
        this.caption = h("h3");
        this.frame = h("div", {
            class: "plot-frame",
            tabindex: 0,
            role: "group",
            "aria-label": `Plot; arrow keys move its cursor, plus and minus zoom, 0 shows all`,
        }, this.picture);
        const tools = h("div", { class: "tools" },
            button("+", () => this.zoom(1 / kZoom), { class: "small", "aria-label": "Zoom in" }),
            button("−", () => this.zoom(kZoom), { class: "small", "aria-label": "Zoom out" }),
            button("Reset", () => this.reset(), { class: "small", "aria-label": "Reset: show all of the plot" }),
            csvButton("the lines of the plot", name, () => this.table()));
        this.root = h("figure", { class: "plot", id: `plot-${name}` },
            h("figcaption", {}, this.caption, tools), this.frame, this.legend, this.readout);
        this.frame.addEventListener("keydown", (event) => this.key(event));
        let width = 0;
        new ResizeObserver(() => {
            if (this.frame.clientWidth === width || printing()) return;
            width = this.frame.clientWidth;
            this.resize();
        }).observe(this.frame);
        onThemeChange(() => {
            this.showLegend();
            this.resize();
            this.chart?.redraw();
        });
    }

    /** @param content null: there is nothing to show, and the plot is hidden */
    show(content: PlotContent | null): void {
        this.content = content;
        this.root.hidden = content === null;
        if (!content) return;
        this.caption.textContent = content.title;
        this.limits = limitsOf(content);
        this.picture.setAttribute("aria-label", this.describe(content));
        this.frame.setAttribute("aria-label", `${content.title}; arrow keys move its cursor, plus and minus zoom, 0 shows all`);
        this.readout.textContent = "";
        this.showLegend();
        whenNear(this.root, () => this.build());
    }

    private describe(content: PlotContent): string {
        const lines = content.lines.map((line) => {
            const values = line.y.filter((value): value is number => value !== null);
            const [low, high] = values.reduce(([l, u], v) => [Math.min(l, v), Math.max(u, v)], [Infinity, -Infinity]);
            return `${line.label} from ${format.figure(low)} to ${format.figure(high)} ${content.yUnit}`;
        });
        return `${content.yLabel} over ${content.xLabel}: ${lines.join("; ")}`;
    }

    private showLegend(): void {
        const content = this.content;
        if (!content) return;
        const shown = content.lines.filter((line) => line.style !== "dots");
        this.legend.hidden = shown.length < 2;
        this.legend.replaceChildren(...shown.map((line) => {
            const sample = h("canvas", { width: 52, height: 12, "aria-hidden": "true" });
            const context = sample.getContext("2d")!;
            context.scale(2, 2);
            context.strokeStyle = colourOf(line);
            context.lineWidth = line.width ?? 2;
            context.setLineDash(dashOf(line));
            context.beginPath();
            context.moveTo(0, 3);
            context.lineTo(26, 3);
            context.stroke();
            return h("li", {}, sample, line.label);
        }));
    }

    private build(): void {
        const content = this.content;
        if (!content) return;
        this.chart?.destroy();
        const floor = content.logarithmicY?.[0];
        const tables = content.lines.map((line) => [
            line.x,
            floor === undefined ? line.y : line.y.map((value) => (value === null ? null : Math.max(value, floor))),
        ]);
        const axis = (title: string, unit: string): Partial<uPlot.Axis> => ({
            label: unit === "" ? title : `${title} [${unit}]`,
            labelFont: kFont,
            font: kFont,
            labelSize: 20,
            stroke: () => theme().text,
            grid: { stroke: () => theme().grid, width: 1 },
            ticks: { stroke: () => theme().quiet, width: 1, size: 4 },
        });
        const plain = (_: uPlot, splits: number[]): string[] => splits.map((value) => format.figure(value, 6));
        const options: uPlot.Options = {
            width: this.width(),
            height: kHeight,
            legend: { show: false },
            cursor: {
                drag: { x: true, y: true, uni: 24 },
                points: { size: 7 },
                bind: { dblclick: () => () => (this.reset(), null) },
            },
            scales: {
                x: { time: false, range: (_, low, high) => [low ?? this.limits.x[0], high ?? this.limits.x[1]] },
                y: {
                    auto: false,
                    min: this.limits.y[0],
                    max: this.limits.y[1],
                    distr: content.logarithmicY ? 3 : 1,
                    range: (_, low, high) => [low ?? this.limits.y[0], high ?? this.limits.y[1]],
                },
            },
            axes: [
                { ...axis(content.xLabel, content.xUnit), size: 32, values: plain },
                {
                    ...axis(content.yLabel, content.yUnit),
                    size: 58,
                    ...(content.logarithmicY
                        ? {
                            splits: (_: uPlot, _axis: number, low: number, high: number) => decades(low, high),
                            filter: (_: uPlot, splits: number[]) => splits,
                            values: (_: uPlot, splits: number[]) => splits.map((value) => value.toExponential(0).replace("+", "")),
                        }
                        : { values: plain }),
                },
            ],
            series: [
                {},
                ...content.lines.map((line): uPlot.Series => ({
                    label: line.label,
                    stroke: () => colourOf(line),
                    width: line.width ?? 2,
                    dash: dashOf(line),
                    ...(line.style === "bars"
                        ? { paths: uPlot.paths.bars!({ size: [0.6, 40] }), fill: () => colourOf(line), points: { show: false }, dash: [] }
                        : line.style === "dots"
                            ? { paths: () => null, points: { show: true, size: 6, fill: () => colourOf(line) } }
                            : { points: { show: false } }),
                })),
            ],
            hooks: {
                draw: [(chart) => drawMarkers(chart, content.markers ?? [])],
                setCursor: [(chart) => this.read(chart)],
            },
        };
        const same = tables.every((table) => table[0] === tables[0]![0] || sameValues(table[0]!, tables[0]![0]!));
        const data = same ? [tables[0]![0], ...tables.map((table) => table[1])] : uPlot.join(tables as uPlot.AlignedData[]);
        this.chart = new uPlot(options, data as uPlot.AlignedData, this.picture);
        this.reset();
    }

    private width(): number {
        return printing() ? kPaperWidth : Math.max(this.frame.clientWidth, 200);
    }

    private resize(): void {
        this.chart?.setSize({ width: this.width(), height: kHeight });
    }

    private set(limits: Limits): void {
        this.chart?.batch(() => {
            this.chart!.setScale("x", { min: limits.x[0], max: limits.x[1] });
            this.chart!.setScale("y", { min: limits.y[0], max: limits.y[1] });
        });
    }

    reset(): void {
        this.set(this.limits);
    }

    /** About the cursor, or the middle, along x. */
    private zoom(factor: number): void {
        const chart = this.chart;
        const { min, max } = chart?.scales["x"] ?? {};
        if (!chart || min === undefined || max === undefined) return;
        const left = chart.cursor.left ?? -1;
        const about = left >= 0 ? chart.posToVal(left, "x") : (min + max) / 2;
        const [first, last] = this.limits.x;
        chart.setScale("x", {
            min: Math.max(about - (about - min) * factor, first),
            max: Math.min(about + (max - about) * factor, last),
        });
    }

    private key(event: KeyboardEvent): void {
        const chart = this.chart;
        if (!chart || event.ctrlKey || event.altKey || event.metaKey) return;
        const direction = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
        if (direction !== undefined) {
            const xs = chart.data[0];
            const { min, max } = chart.scales["x"]!;
            const shown = chart.cursor.idx ?? null;
            const from = shown ?? chart.valToIdx((min! + max!) / 2) - direction;
            const to = Math.min(Math.max(from + direction * (event.shiftKey ? 10 : 1), 0), xs.length - 1);
            const top = chart.cursor.top ?? -1;
            chart.setCursor({ left: chart.valToPos(xs[to]!, "x"), top: top >= 0 ? top : 1 });
        } else if (event.key === "+" || event.key === "=") {
            this.zoom(1 / kZoom);
        } else if (event.key === "-") {
            this.zoom(kZoom);
        } else if (event.key === "0") {
            this.reset();
        } else {
            return;
        }
        event.preventDefault();
        event.stopPropagation();
    }

    private read(chart: uPlot): void {
        const content = this.content;
        const index = chart.cursor.idx;
        if (!content || index === null || index === undefined || (chart.cursor.left ?? -1) < 0) {
            this.readout.textContent = "";
            return;
        }
        const x = chart.data[0][index]!;
        const values = content.lines.flatMap((line) => {
            const at = line.style === "dots" ? -1 : line.x.indexOf(x);
            const value = at >= 0 ? line.y[at] : null;
            if (value === null || value === undefined) return [];
            return [`${content.lines.length > 1 ? `${line.label} ` : ""}${format.figure(value)}${content.yUnit === "" ? "" : ` ${content.yUnit}`}`];
        });
        this.readout.textContent = `${format.figure(x, 6)} ${content.xUnit}: ${values.join(", ") || format.kNone}`;
    }

    private table(): (string | number | null)[][] {
        const content = this.content!;
        const lines = content.lines.filter((line) => line.style !== "dots");
        const headed = (name: string, unit: string): string => (unit === "" ? name : `${name} [${unit}]`);
        const rows = new Map<number, (number | null)[]>();
        lines.forEach((line, column) => line.x.forEach((x, k) => {
            if (!rows.has(x)) rows.set(x, lines.map(() => null));
            rows.get(x)![column] = line.y[k] ?? null;
        }));
        return [
            [headed(content.xLabel, content.xUnit), ...lines.map((line) => headed(`${line.label} ${content.yLabel}`, content.yUnit))],
            ...[...rows].sort(([one], [other]) => one - other).map(([x, values]) => [x, ...values]),
        ];
    }
}

function sameValues(one: ArrayLike<number | null>, other: ArrayLike<number | null>): boolean {
    return one.length === other.length && Array.prototype.every.call(one, (value, index) => value === other[index]);
}

/** Powers of ten, at most about eight. */
function decades(low: number, high: number): number[] {
    const [first, last] = [Math.ceil(Math.log10(low) - 1e-9), Math.floor(Math.log10(high) + 1e-9)];
    const step = Math.max(1, Math.ceil((last - first) / 8));
    const found: number[] = [];
    for (let exponent = last; exponent >= first; exponent -= step) found.unshift(Number(`1e${exponent}`));
    return found;
}

function drawMarkers(chart: uPlot, markers: Marker[]): void {
    const { ctx, bbox } = chart;
    const ratio = uPlot.pxRatio;
    ctx.save();
    ctx.beginPath();
    ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
    ctx.clip();
    ctx.strokeStyle = ctx.fillStyle = theme().quiet;
    ctx.lineWidth = ratio;
    ctx.setLineDash([4 * ratio, 3 * ratio]);
    ctx.font = `${11 * ratio}px system-ui, sans-serif`;
    for (const { axis, at, label, place } of markers) {
        const position = chart.valToPos(at, axis, true);
        ctx.beginPath();
        if (axis === "x") {
            ctx.moveTo(position, bbox.top);
            ctx.lineTo(position, bbox.top + bbox.height);
            const onLeft = position > bbox.left + 0.7 * bbox.width;
            ctx.textAlign = onLeft ? "right" : "left";
            ctx.textBaseline = place ?? "top";
            const y = place === "bottom" ? bbox.top + bbox.height - 3 * ratio : bbox.top + 3 * ratio;
            ctx.fillText(label, position + (onLeft ? -4 : 4) * ratio, y);
        } else {
            ctx.moveTo(bbox.left, position);
            ctx.lineTo(bbox.left + bbox.width, position);
            ctx.textAlign = "right";
            ctx.textBaseline = "bottom";
            ctx.fillText(label, bbox.left + bbox.width - 4 * ratio, position - 2 * ratio);
        }
        ctx.stroke();
    }
    ctx.restore();
}
