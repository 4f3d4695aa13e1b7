// An eye on a canvas, drawn from its density, with axes, what was measured, a mask, and a cursor that reads the cells.
import { type Cell, cell, cellAt, countsOf, faultOf } from "./density";
import type { Density, Eye, Mask, Point } from "./document";
import { button, checkbox, h } from "./dom";
import * as format from "./format";
import { measureMask, readMask } from "./mask";
import { densityColour, kEyeColours, onThemeChange, printing, theme } from "./palette";

export interface VoltageRange {
    low: number;
    high: number;
}

/** What all eyes of a page have in common, and who draws anew when it changes. */
export class EyeSettings {
    logarithmic = true;
    commonScale = true;
    threshold = true;
    opening = true;
    contour = true;
    showMask = true;
    mask: Mask | null;
    private listeners: (() => void)[] = [];

    constructor(mask: Mask | null, readonly commonRange: VoltageRange | null) {
        this.mask = mask;
    }

    onChange(listener: () => void): void {
        this.listeners.push(listener);
    }

    change(what: () => void): void {
        what();
        for (const listener of this.listeners) listener();
    }
}

/** From the lowest to the highest voltage of all densities; null: there are none. */
export function commonRange(eyes: (Eye | null)[]): VoltageRange | null {
    const densities = eyes.flatMap((eye) => eye?.density ?? []);
    if (densities.length === 0) return null;
    return {
        low: densities.reduce((low, density) => Math.min(low, density.low), Infinity),
        high: densities.reduce((high, density) => Math.max(high, density.high), -Infinity),
    };
}

const images = new WeakMap<Density, { logarithmic: boolean; canvas: HTMLCanvasElement }>();

/** The cells as pixels, the highest row on top. */
function imageOf(density: Density, logarithmic: boolean): HTMLCanvasElement {
    const known = images.get(density);
    if (known?.logarithmic === logarithmic) return known.canvas;
    const { columns, rows } = density;
    const counts = countsOf(density);
    const most = counts.reduce((largest, count) => Math.max(largest, count), 1);
    const canvas = h("canvas", { width: columns, height: rows });
    const context = canvas.getContext("2d")!;
    const image = context.createImageData(columns, rows);
    const pixels = new Uint32Array(image.data.buffer);
    const perLog = 1 / Math.log1p(most);
    for (let row = 0; row < rows; ++row)
        for (let column = 0; column < columns; ++column) {
            const count = counts[row * columns + column]!;
            const shade = logarithmic ? Math.log1p(count) * perLog : count / most;
            pixels[(rows - 1 - row) * columns + column] = densityColour(shade);
        }
    context.putImageData(image, 0, 0);
    images.set(density, { logarithmic, canvas });
    return canvas;
}

/** The eye without axes, for lists. */
export function drawSmall(canvas: HTMLCanvasElement, density: Density, logarithmic: boolean): void {
    if (faultOf(density) !== null) return; // the large one says so
    const context = canvas.getContext("2d")!;
    context.imageSmoothingQuality = "high";
    context.drawImage(imageOf(density, logarithmic), 0, 0, canvas.width, canvas.height);
    images.delete(density); // a list of thousands keeps the small ones alone
}

/** In words, for those who do not see the picture. */
export function describeEye(eye: Eye): string {
    if (eye.eyes.length === 0) return "no eyes were found";
    return eye.eyes.map((opening, index) => {
        const which = eye.eyes.length > 1 ? `eye ${index + 1} from below: ` : "";
        const state = opening.height !== null && opening.height < 0 ? "closed, " : "";
        const percent = opening.openingPercent === null ? "" : ` (${format.fixed(opening.openingPercent, 1)} %)`;
        const width = opening.widthUi === null ? "" : `, width ${format.figure(opening.widthUi)} UI`;
        return `${which}${state}height ${format.voltage(opening.height)}${percent}${width}`;
    }).join("; ");
}

const kPaperWidth = 480; // [px] about what it takes beside its figures
const kPaperRatio = 3;
const kLabelledWidth = 480; // [px] narrower ones have no room for a sentence
const kMargin = { left: 62, right: 14, top: 10, bottom: 44 };
const kFont = "12px system-ui, sans-serif";

interface Axes {
    width: number;
    height: number;
    range: VoltageRange;
    spanUi: number;
    x: (ui: number) => number;
    y: (volt: number) => number;
    /** The inverse of both. */
    at: (x: number, y: number) => Point;
}

let views = 0;

export class EyeView {
    readonly root: HTMLElement;
    private readonly frame: HTMLElement;
    private readonly canvas: HTMLCanvasElement;
    private readonly overlay: HTMLCanvasElement;
    private readonly readout: HTMLElement;
    private readonly maskResult: HTMLElement;
    private eye: Eye | null = null;
    private title = "";
    private unitIntervalPs: number | null = null;
    private cursor: Cell | null = null;

    constructor(private readonly settings: EyeSettings) {
        const id = `eye-readout-${++views}`;
        this.canvas = h("canvas", { role: "img", class: "eye-picture" });
        this.overlay = h("canvas", { "aria-hidden": "true", class: "eye-cursor" });
        this.readout = h("p", { class: "readout", id, "aria-live": "polite" });
        this.maskResult = h("p", { class: "readout mask-result", "aria-live": "polite" });
        this.frame = h("div", {
            class: "eye-frame",
            tabindex: 0,
            role: "group",
            "aria-label": "Eye; arrow keys move a cursor over its cells, with Shift by ten",
            "aria-describedby": id,
        }, this.canvas, this.overlay);
        this.root = h("div", { class: "eye" }, this.frame, this.readout, this.maskResult);
        this.frame.addEventListener("pointermove", (event) => this.point(event));
        this.frame.addEventListener("pointerdown", (event) => this.point(event));
        this.frame.addEventListener("pointerleave", () => this.move(null));
        this.frame.addEventListener("keydown", (event) => this.key(event));
        new ResizeObserver(() => {
            if (!printing()) this.draw(); // what is drawn while pages are laid out does not reach the paper
        }).observe(this.frame);
        settings.onChange(() => this.draw());
        onThemeChange(() => this.draw());
    }

    show(eye: Eye | null, title: string, unitIntervalPs: number | null): void {
        const fault = eye?.density ? faultOf(eye.density) : null;
        this.eye = eye && fault !== null ? { ...eye, density: null } : eye;
        this.title = title;
        this.unitIntervalPs = unitIntervalPs;
        const density = this.eye?.density ?? null;
        // The cursor stays where it is, so that stages compare at one point.
        this.cursor = density && this.cursor ? cellAt(density, this.cursor.ui, this.cursor.volt) : null;
        this.frame.hidden = density === null;
        this.draw();
        this.move(this.cursor);
        if (!density)
            this.readout.textContent = fault === null
                ? "There is no picture of this eye."
                : `There is no picture of this eye: ${fault}. The file is damaged; its other figures may be, too.`;
    }

    private axes(): Axes | null {
        const density = this.eye?.density;
        const width = printing() ? kPaperWidth : this.frame.clientWidth;
        if (!density || width === 0) return null;
        // On paper the picture takes the room that it had on the screen.
        const height = printing() ? (width * this.canvas.height) / this.canvas.width : Math.round(Math.min(Math.max(0.56 * width, 230), 500));
        const range = (this.settings.commonScale && this.settings.commonRange) || density;
        const [w, t] = [width - kMargin.left - kMargin.right, height - kMargin.top - kMargin.bottom];
        const perVolt = t / (range.high - range.low);
        return {
            width,
            height,
            range,
            spanUi: density.spanUi,
            x: (ui) => kMargin.left + (ui / density.spanUi + 0.5) * w,
            y: (volt) => kMargin.top + (range.high - volt) * perVolt,
            at: (x, y) => [((x - kMargin.left) / w - 0.5) * density.spanUi, range.high - (y - kMargin.top) / perVolt],
        };
    }

    private draw(): void {
        const axes = this.axes();
        const density = this.eye?.density;
        this.maskResult.hidden = true;
        if (!axes || !density || !this.eye) return;
        // On paper a canvas is written as its drawing steps, and some programs show none after it was cleared: it gets a finished
        // picture instead.
        const paper = printing() ? h("canvas") : null;
        const context = sized(paper ?? this.canvas, axes);
        this.canvas.setAttribute("aria-label", `Density eye, ${this.title}: ${describeEye(this.eye)}`);
        const [left, right] = [axes.x(-axes.spanUi / 2), axes.x(axes.spanUi / 2)];
        const [top, bottom] = [axes.y(axes.range.high), axes.y(axes.range.low)];
        context.save();
        context.beginPath();
        context.rect(left, top, right - left, bottom - top);
        context.fillStyle = kEyeColours.background;
        context.fill();
        context.clip();
        const [high, low] = [axes.y(density.high), axes.y(density.low)];
        context.imageSmoothingEnabled = density.columns > right - left || density.rows > low - high;
        context.drawImage(imageOf(density, this.settings.logarithmic), left, high, right - left, low - high);
        this.drawMeasured(context, axes);
        context.restore();
        this.drawScales(context, axes);
        if (paper) this.printPicture(paper);
        else this.drawCursor();
    }

    private printPicture(picture: HTMLCanvasElement): void {
        const context = this.canvas.getContext("2d")!;
        context.setTransform(1, 0, 0, 1, 0, 0);
        context.fillStyle = "#ffffff";
        context.fillRect(0, 0, this.canvas.width, this.canvas.height);
        context.imageSmoothingQuality = "high";
        context.drawImage(picture, 0, 0, this.canvas.width, this.canvas.height);
    }

    private drawMeasured(context: CanvasRenderingContext2D, axes: Axes): void {
        const { settings } = this;
        const eye = this.eye!;
        const unit = format.voltageUnit(axes.range.high - axes.range.low);
        const polygon = (points: Point[]): void => {
            context.beginPath();
            points.forEach(([ui, volt], index) => context[index === 0 ? "moveTo" : "lineTo"](axes.x(ui), axes.y(volt)));
            context.closePath();
        };
        if (settings.showMask && settings.mask) {
            context.fillStyle = kEyeColours.maskFill;
            context.strokeStyle = kEyeColours.mask;
            context.lineWidth = 1.5;
            for (const points of settings.mask.polygons) {
                polygon(points);
                context.fill();
                context.stroke();
            }
            const { hits, margin } = measureMask(eye.density!, settings.mask);
            const room = margin === null ? "no trace stands in its way"
                : `margin ${margin < 0 ? "" : "+"}${format.figure(100 * margin, 3)} % of its size`;
            this.maskResult.textContent = `Mask ${settings.mask.name}: ${hits} ${hits === 1 ? "hit" : "hits"}, ${room}`;
            this.maskResult.classList.toggle("bad", hits > 0);
            this.maskResult.hidden = false;
        }
        if (settings.contour) {
            context.strokeStyle = kEyeColours.contour;
            context.lineWidth = 2;
            for (const outline of eye.contour ?? []) {
                polygon(outline);
                context.stroke();
            }
        }
        for (const opening of eye.eyes) {
            const middle = axes.y(opening.threshold);
            if (settings.threshold) {
                context.strokeStyle = kEyeColours.threshold;
                context.lineWidth = 1;
                context.setLineDash([4, 3]);
                line(context, axes.x(-axes.spanUi / 2), middle, axes.x(axes.spanUi / 2), middle);
                context.setLineDash([]);
            }
            if (!settings.opening || opening.height === null) continue;
            context.strokeStyle = context.fillStyle = kEyeColours.opening;
            context.lineWidth = 1.5;
            if (opening.height > 0) {
                const half = 0.5 * opening.height;
                arrow(context, axes.x(0), axes.y(opening.threshold - half), axes.x(0), axes.y(opening.threshold + half));
                if (opening.leftUi !== null && opening.rightUi !== null && opening.rightUi > opening.leftUi)
                    arrow(context, axes.x(opening.leftUi), middle, axes.x(opening.rightUi), middle);
            }
            const percent = opening.openingPercent === null ? "" : ` (${format.fixed(opening.openingPercent, 1)} %)`;
            const closed = opening.height > 0 ? "" : "closed ";
            label(context, `${closed}${format.figure(opening.height * unit.perVolt)} ${unit.name}${percent}`,
                axes.x(-axes.spanUi / 2) + 6, middle - 4, kEyeColours.openingText);
        }
        if (settings.contour && eye.contour && eye.contour.length > 0 && axes.width >= kLabelledWidth) {
            context.textAlign = "right";
            label(context, `contour: what is left at a bit error ratio of ${format.ber(eye.targetBer)}`, axes.x(axes.spanUi / 2) - 6,
                axes.y(axes.range.low) - 6, kEyeColours.contour);
        }
    }

    private drawScales(context: CanvasRenderingContext2D, axes: Axes): void {
        const colours = theme();
        const unit = format.voltageUnit(axes.range.high - axes.range.low);
        context.font = kFont;
        context.fillStyle = colours.text;
        context.strokeStyle = colours.quiet;
        context.lineWidth = 1;
        const [left, bottom] = [axes.x(-axes.spanUi / 2), axes.y(axes.range.low)];
        const right = axes.x(axes.spanUi / 2);
        context.textBaseline = "top";
        for (const ui of format.ticks(-axes.spanUi / 2, axes.spanUi / 2, Math.min(8, (right - left) / 70))) {
            line(context, axes.x(ui), bottom, axes.x(ui), bottom + 4);
            context.textAlign = ui > 0.99 * axes.spanUi / 2 ? "right" : "center";
            context.fillText(format.figure(ui, 3), Math.min(axes.x(ui), right + kMargin.right), bottom + 7);
        }
        context.textAlign = "center";
        context.fillText("time from the measuring phase [UI]", (left + right) / 2, bottom + 25);
        context.textAlign = "right";
        context.textBaseline = "middle";
        const [low, high] = [axes.range.low * unit.perVolt, axes.range.high * unit.perVolt];
        for (const value of format.ticks(low, high, 6)) {
            const y = axes.y(value / unit.perVolt);
            line(context, left - 4, y, left, y);
            context.fillText(format.figure(value), left - 7, y);
        }
        context.save();
        context.translate(12, (axes.y(axes.range.high) + bottom) / 2);
        context.rotate(-Math.PI / 2);
        context.textAlign = "center";
        context.fillText(`voltage [${unit.name}]`, 0, 0);
        context.restore();
    }

    private drawCursor(): void {
        const axes = this.axes();
        if (!axes) return;
        const context = sized(this.overlay, axes);
        if (!this.cursor) return;
        const [x, y] = [axes.x(this.cursor.ui), axes.y(this.cursor.volt)];
        context.strokeStyle = kEyeColours.cursor;
        context.setLineDash([2, 3]);
        line(context, x, axes.y(axes.range.high), x, axes.y(axes.range.low));
        line(context, axes.x(-axes.spanUi / 2), y, axes.x(axes.spanUi / 2), y);
    }

    private point(event: PointerEvent): void {
        const axes = this.axes();
        if (!axes) return;
        const bounds = this.frame.getBoundingClientRect();
        const [ui, volt] = axes.at(event.clientX - bounds.left - this.frame.clientLeft, event.clientY - bounds.top - this.frame.clientTop);
        this.move(cellAt(this.eye!.density!, ui, volt));
    }

    private key(event: KeyboardEvent): void {
        const density = this.eye?.density;
        if (!density || event.ctrlKey || event.altKey || event.metaKey) return;
        const steps: Record<string, [number, number]> = {
            ArrowLeft: [-1, 0],
            ArrowRight: [1, 0],
            ArrowUp: [0, 1],
            ArrowDown: [0, -1],
        };
        const step = steps[event.key];
        if (step) {
            const middle = cell(density, density.columns >> 1, density.rows >> 1);
            const { column, row } = this.cursor ?? middle;
            const by = event.shiftKey ? 10 : 1;
            const within = (value: number, count: number): number => Math.min(Math.max(value, 0), count - 1);
            this.move(cell(density, within(column + by * step[0], density.columns), within(row + by * step[1], density.rows)));
        } else if (event.key === "Escape" && this.cursor) {
            this.move(null);
        } else {
            return;
        }
        event.preventDefault();
        event.stopPropagation();
    }

    private move(to: Cell | null): void {
        this.cursor = to;
        this.drawCursor();
        if (!to) {
            this.readout.textContent = "Point at the eye, or use the arrow keys on it, to read time, voltage and hits.";
            return;
        }
        const time = this.unitIntervalPs === null ? "" : ` (${format.figure(to.ui * this.unitIntervalPs)} ps)`;
        const density = this.eye!.density!;
        const unit = format.voltageUnit(density.high - density.low);
        this.readout.textContent = `${to.ui.toFixed(4)} UI${time}, ${format.figure(to.volt * unit.perVolt)} ${unit.name}: `
            + `${to.hits} ${to.hits === 1 ? "hit" : "hits"}`;
    }
}

/** Sized for the screen's pixels and cleared; drawing is in CSS pixels. */
function sized(canvas: HTMLCanvasElement, { width, height }: { width: number; height: number }): CanvasRenderingContext2D {
    const ratio = printing() ? kPaperRatio : Math.max(window.devicePixelRatio, 1);
    [canvas.width, canvas.height] = [Math.round(width * ratio), Math.round(height * ratio)];
    const context = canvas.getContext("2d")!;
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    return context;
}

function line(context: CanvasRenderingContext2D, x0: number, y0: number, x1: number, y1: number): void {
    context.beginPath();
    context.moveTo(x0, y0);
    context.lineTo(x1, y1);
    context.stroke();
}

/** With a head at either end. */
function arrow(context: CanvasRenderingContext2D, x0: number, y0: number, x1: number, y1: number): void {
    line(context, x0, y0, x1, y1);
    const direction = Math.atan2(y1 - y0, x1 - x0);
    const size = Math.min(7, Math.hypot(x1 - x0, y1 - y0) / 3);
    for (const [x, y, towards] of [[x0, y0, direction], [x1, y1, direction + Math.PI]] as const) {
        context.beginPath();
        context.moveTo(x, y);
        for (const side of [-0.4, 0.4]) context.lineTo(x + size * Math.cos(towards + side), y + size * Math.sin(towards + side));
        context.closePath();
        context.fill();
    }
}

function label(context: CanvasRenderingContext2D, text: string, x: number, y: number, colour: string): void {
    context.font = kFont;
    context.textBaseline = "bottom";
    const width = context.measureText(text).width;
    const left = context.textAlign === "right" ? x - width : x;
    context.fillStyle = "rgba(16, 16, 24, 0.82)";
    context.fillRect(left - 3, y - 15, width + 6, 17);
    context.fillStyle = colour;
    context.fillText(text, x, y);
    context.textAlign = "left";
}

/** Switches of what the eyes show. A mask comes by a file that is chosen, or dropped on the target. */
export function eyeControls(settings: EyeSettings, dropTarget: HTMLElement): HTMLElement {
    const toggle = (text: string, key: "logarithmic" | "commonScale" | "threshold" | "opening" | "contour" | "showMask"): HTMLElement =>
        checkbox(text, settings[key], (checked) => settings.change(() => (settings[key] = checked)));
    const status = h("span", { class: "status", role: "status" });
    const file = h("input", { type: "file", accept: ".json,application/json", class: "hidden", tabindex: -1, "aria-hidden": "true" });
    const maskSwitch = toggle("Mask", "showMask");
    const remove = button("Remove mask", () => settings.change(() => (settings.mask = null)), { class: "small" });
    const update = (): void => {
        maskSwitch.hidden = remove.hidden = settings.mask === null;
    };
    const load = async (chosen: File): Promise<void> => {
        try {
            const mask = readMask(await chosen.text(), chosen.name);
            settings.change(() => (settings.mask = mask));
            status.textContent = "";
        } catch (error) {
            status.textContent = error instanceof Error ? error.message : String(error);
        }
    };
    file.addEventListener("change", () => {
        const chosen = file.files?.[0];
        if (chosen) void load(chosen);
        file.value = "";
    });
    dropTarget.addEventListener("dragover", (event) => event.preventDefault());
    dropTarget.addEventListener("drop", (event) => {
        event.preventDefault();
        const dropped = event.dataTransfer?.files[0];
        if (dropped) void load(dropped);
    });
    settings.onChange(update);
    update();
    return h("div", { class: "controls", role: "group", "aria-label": "What the eye shows" },
        toggle("Threshold", "threshold"), toggle("Opening", "opening"), toggle("BER contour", "contour"),
        toggle("Logarithmic colour", "logarithmic"), settings.commonRange ? toggle("One voltage scale for all", "commonScale") : null,
        maskSwitch, button("Load mask…", () => file.click(), { class: "small" }), remove, file, status);
}
