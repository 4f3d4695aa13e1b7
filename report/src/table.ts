// Reports of many runs: a table that sorts, small eyes, and a large one in a dialog.
import type { Column, Row, TableDocument } from "./document";
import { button, csvButton, h, scrollable, section, whenNear } from "./dom";
import { commonRange, drawSmall, eyeControls, EyeSettings, EyeView } from "./eyeview";
import { eyeTable, quantityList } from "./figures";
import * as format from "./format";
import { origins } from "./head";
import { lineOf, Plot } from "./plot";

const kDigits = 5;
const kRowsAtOnce = 250; // more are shown when asked for: a browser lays tables out as a whole

type Direction = "ascending" | "descending";

/** What is not known comes last, whichever way. */
export function compareValues(one: Row["values"][number], other: Row["values"][number], direction: Direction): number {
    if (one === null || other === null) return Number(one === null) - Number(other === null);
    const order = typeof one === "number" && typeof other === "number" ? one - other
        : String(one).localeCompare(String(other), "en", { numeric: true });
    return direction === "ascending" ? order : -order;
}

function cellText(value: Row["values"][number], column: Column): string {
    if (value === null) return format.kNone;
    if (typeof value === "string") return value;
    if (column.kind !== "number" || Number.isInteger(value)) return String(value);
    return format.figure(value, kDigits);
}

/** Points stand below each other: all of a column have the decimals of the one that needs most. */
function columnText(value: Row["values"][number], column: Column, decimals: number): string {
    const text = cellText(value, column);
    return typeof value === "number" && column.kind === "number" && !text.includes("e") ? value.toFixed(decimals) : text;
}

const headOf = (column: Column): string => (column.unit === "" ? column.label : `${column.label} [${column.unit}]`);

export function tablePage(report: TableDocument): HTMLElement[] {
    const { rows } = report;
    const hasReason = rows.some((row) => row.failure !== null) && !report.columns.some((column) => column.key === "reason");
    const columns: Column[] = hasReason ? [...report.columns, { key: "failure", label: "Failed because", unit: "", kind: "text" }] : report.columns;
    const valuesOf = (row: Row): Row["values"] => (hasReason ? [...row.values, row.failure] : row.values);
    const hasEyes = rows.some((row) => row.eye?.density);
    const settings = new EyeSettings(report.mask, commonRange(rows.map((row) => row.eye)));
    const decimals = columns.map((_, index) => rows.reduce((most, row) => {
        const value = valuesOf(row)[index];
        return typeof value === "number" ? Math.max(most, format.decimalsOf(value, kDigits)) : most;
    }, 0));
    const dialog = new EyeDialog(report, columns, settings);

    let sorted: Row[] = rows;
    let shown: Row[] = rows;
    let limit = kRowsAtOnce;
    const body = h("tbody");
    const status = h("p", { class: "status", role: "status" });
    const more = button("Show all rows", () => {
        limit = Infinity;
        update();
    });
    const filter = h("input", { type: "search", id: "filter", autocomplete: "off", spellcheck: "false" });
    const elements = new Map<Row, HTMLTableRowElement>();
    const rowOf = (row: Row): HTMLTableRowElement => {
        const known = elements.get(row);
        if (known) return known;
        const element = tableRow(row, valuesOf(row), columns, decimals, hasEyes, settings, () => dialog.open(row, shown));
        elements.set(row, element);
        return element;
    };
    const update = (): void => {
        const wanted = filter.value.trim().toLowerCase();
        shown = wanted === "" ? sorted
            : sorted.filter((row) => [row.label, ...valuesOf(row)].some((value) => value !== null && String(value).toLowerCase().includes(wanted)));
        body.replaceChildren(...shown.slice(0, limit).map(rowOf));
        more.hidden = shown.length <= limit;
        const failed = shown.filter((row) => row.failure !== null).length;
        status.textContent = `${shown.length} of ${rows.length} rows`
            + (shown.length > limit ? `, the first ${limit} shown` : "") + (failed > 0 ? `; ${failed} failed` : "");
    };
    filter.addEventListener("input", update);

    const heads = columns.map((column, index) => {
        const head = h("th", { scope: "col", class: column.kind === "number" ? "number" : "", "aria-sort": "none" });
        head.append(button(headOf(column), () => {
            const direction: Direction = head.getAttribute("aria-sort") === "ascending" ? "descending" : "ascending";
            for (const each of heads) each.setAttribute("aria-sort", "none");
            head.setAttribute("aria-sort", direction);
            sorted = [...rows].sort((one, other) => compareValues(valuesOf(one)[index] ?? null, valuesOf(other)[index] ?? null, direction));
            update();
        }, { class: "sort" }));
        return head;
    });
    update();
    const table = h("table", { class: "list runs" },
        h("thead", {}, h("tr", {}, hasEyes ? h("th", { scope: "col" }, "Eye") : null, ...heads)), body);
    const result = section("runs", "Runs",
        h("div", { class: "controls" }, h("label", { for: "filter" }, "Show rows with"), filter, status),
        scrollable("Runs", table), more, dialog.element);
    result.querySelector("h2")!.append(csvButton("the table", "runs", () => [
        columns.map(headOf), ...sorted.map((row) => columns.map((_, index) => valuesOf(row)[index] ?? null))]));
    return [origins(report.head), result];
}

function tableRow(row: Row, values: Row["values"], columns: Column[], decimals: number[], hasEyes: boolean, settings: EyeSettings, open: () => void): HTMLTableRowElement {
    const density = row.eye?.density;
    const element = h("tr", { class: row.failure === null ? "" : "failed" });
    if (hasEyes) {
        const cell = h("td", { class: "thumb" });
        if (density) {
            const picture = h("canvas", { width: 112, height: 64, "aria-hidden": "true" });
            whenNear(picture, () => drawSmall(picture, density, settings.logarithmic));
            const opener = button("", open, { "aria-label": `Open the eye of ${row.label}`, "aria-haspopup": "dialog" });
            opener.append(picture);
            cell.append(opener);
            element.classList.add("opens");
            element.addEventListener("click", (event) => {
                // Figures are to be copied: a click that ends a selection opens nothing, nor does one on the button twice.
                if (event.target instanceof Node && !opener.contains(event.target) && window.getSelection()?.isCollapsed !== false) open();
            });
        }
        element.append(cell);
    }
    columns.forEach((column, index) => {
        const text = columnText(values[index] ?? null, column, decimals[index]!);
        element.append(h("td", { class: column.kind === "number" ? "number" : text.length > 40 ? "words" : "" }, text));
    });
    return element;
}

class EyeDialog {
    readonly element: HTMLDialogElement;
    private readonly title: HTMLElement;
    private readonly view: EyeView;
    private readonly panel: HTMLElement;
    private readonly bathtub = new Plot("bathtub");
    private readonly previous: HTMLButtonElement;
    private readonly next: HTMLButtonElement;
    private rows: Row[] = [];
    private index = 0;

    constructor(private readonly report: TableDocument, private readonly columns: Column[], settings: EyeSettings) {
        this.title = h("h2", { id: "dialog-title" });
        this.view = new EyeView(settings);
        this.panel = h("div", { class: "panel" });
        this.previous = button("‹", () => this.show(this.index - 1), { "aria-label": "Previous row" });
        this.next = button("›", () => this.show(this.index + 1), { "aria-label": "Next row" });
        this.element = h("dialog", { "aria-labelledby": "dialog-title" });
        this.element.append(
            h("div", { class: "dialog-head" }, this.title, this.previous, this.next, button("Close", () => this.element.close())),
            eyeControls(settings, this.element), h("div", { class: "beside" }, this.view.root, this.panel), this.bathtub.root);
        this.element.addEventListener("keydown", (event) => {
            const step = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
            if (step !== undefined && !(event.target instanceof HTMLInputElement)) this.show(this.index + step);
        });
    }

    /** @param rows in whose order the reader goes on from it; those without an eye are passed over */
    open(row: Row, rows: Row[]): void {
        this.rows = rows.filter((each) => each.eye?.density);
        this.element.showModal();
        this.show(this.rows.indexOf(row));
    }

    private show(index: number): void {
        const row = this.rows[index];
        const eye = row?.eye;
        if (!row || !eye) return;
        this.index = index;
        this.previous.disabled = index === 0;
        this.next.disabled = index === this.rows.length - 1;
        const unitIntervalPs = row.unitIntervalPs ?? this.report.unitIntervalPs;
        this.title.textContent = row.label;
        this.view.show(eye, row.label, unitIntervalPs);
        const values = this.columns.flatMap((column, at): [string, string][] => {
            const value = row.values[at] ?? null;
            return value === null ? [] : [[headOf(column), cellText(value, column)]];
        });
        this.panel.replaceChildren(eyeTable(eye, unitIntervalPs), h("h3", {}, "Row of the table"), quantityList(values));
        this.bathtub.show(eye.bathtub && {
            title: "Bathtub", xLabel: "time from the measuring phase", xUnit: "UI", yLabel: "bit error ratio", yUnit: "",
            lines: [lineOf(row.label, eye.bathtub.ber, 0)], logarithmicY: [1e-15, 1],
            markers: [{ axis: "y", at: eye.targetBer, label: format.ber(eye.targetBer) }],
        });
    }
}
