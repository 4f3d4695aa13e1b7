// Reports of many runs: a table that sorts, small eyes, and a large one in a dialog.
import type { Column, Row, TableDocument } from "./document";
import { button, csvButton, h, scrollable, section, whenNear } from "./dom";
import { commonRange, drawSmall, eyeControls, EyeSettings, EyeView } from "./eyeview";
import { eyeTable, quantityList } from "./figures";
import * as format from "./format";
import { origins } from "./head";
import { lineOf, Plot } from "./plot";

const kDigits = 5;
const kNarrowColumns = 9; // more do not stand side by side on paper
const kRowsAtOnce = 250; // more are shown when asked for: a browser lays tables out as a whole

type Direction = "ascending" | "descending";

/** What is not known comes last, whichever way. */
export function compareValues(one: Row["values"][number], other: Row["values"][number], direction: Direction): number {
    if (one === null || other === null) return Number(one === null) - Number(other === null);
    const order = typeof one === "number" && typeof other === "number" ? one - other
        : String(one).localeCompare(String(other), "en", { numeric: true });
    return direction === "ascending" ? order : -order;
}

interface ShownColumn extends Column {
    /** Among the values of a row. */
    index: number;
    /** Points stand below each other: all have as many as the largest needs. */
    decimals: number;
    isKnown: boolean;
}

const valueOf = (row: Row, column: ShownColumn): Row["values"][number] => row.values[column.index] ?? null;

function cellText(row: Row, column: ShownColumn): string {
    const value = valueOf(row, column);
    if (value === null) return format.kNone;
    if (typeof value === "string") return value;
    if (column.key === "ber") return format.ber(value);
    // What is far smaller than the others would lose all its digits.
    const isSmall = value !== 0 && Math.abs(value) < 10 ** (2 - column.decimals);
    const text = format.figure(value, isSmall ? 3 : kDigits);
    return isSmall && column.decimals > 0 || text.includes("e") ? text : value.toFixed(column.decimals);
}

const headOf = (column: Column): string => (column.unit === "" ? column.label : `${column.label} [${column.unit}]`);

export function tablePage(report: TableDocument): HTMLElement[] {
    const { rows } = report;
    // What no row knows is left out here, not in the file that is saved.
    const columns = report.columns.map((column, index): ShownColumn => {
        const known = rows.flatMap((row) => row.values[index] ?? []);
        const largest = known.reduce<number>((most, value) => (typeof value === "number" ? Math.max(most, Math.abs(value)) : most), 0);
        const isWhole = known.every((value) => typeof value !== "number" || Number.isInteger(value));
        const decimals = isWhole || largest === 0 ? 0 : Math.min(Math.max(kDigits - 1 - Math.floor(Math.log10(largest)), 0), 12);
        return { ...column, index, decimals, isKnown: known.length > 0 };
    }).filter((column) => column.isKnown);
    const hasEyes = rows.some((row) => row.eye?.density);
    const settings = new EyeSettings(report.mask, commonRange(rows.map((row) => row.eye)));
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
        const element = tableRow(row, columns, hasEyes, settings, () => dialog.open(row, shown));
        elements.set(row, element);
        return element;
    };
    const update = (): void => {
        const wanted = filter.value.trim().toLowerCase();
        shown = wanted === "" ? sorted
            : sorted.filter((row) => [row.label, row.failure, ...row.values].some((value) => value !== null && String(value).toLowerCase().includes(wanted)));
        body.replaceChildren(...shown.slice(0, limit).map(rowOf));
        more.hidden = shown.length <= limit;
        const failed = shown.filter((row) => row.failure !== null).length;
        status.textContent = `${shown.length} of ${rows.length} rows`
            + (shown.length > limit ? `, the first ${limit} shown` : "") + (failed > 0 ? `; ${failed} failed` : "");
    };
    filter.addEventListener("input", update);

    const heads = columns.map((column) => {
        const head = h("th", { scope: "col", class: column.kind === "number" ? "number" : "", "aria-sort": "none" });
        head.append(button(headOf(column), () => {
            const direction: Direction = head.getAttribute("aria-sort") === "ascending" ? "descending" : "ascending";
            for (const each of heads) each.setAttribute("aria-sort", "none");
            head.setAttribute("aria-sort", direction);
            sorted = [...rows].sort((one, other) => compareValues(valueOf(one, column), valueOf(other, column), direction));
            update();
        }, { class: "sort" }));
        return head;
    });
    update();
    const table = h("table", { class: columns.length > kNarrowColumns ? "list runs wide" : "list runs" },
        h("thead", {}, h("tr", {}, hasEyes ? h("th", { scope: "col" }, "Eye") : null, ...heads)), body);
    const result = section("runs", "Runs",
        h("div", { class: "controls" }, h("label", { for: "filter" }, "Show rows with"), filter, status),
        scrollable("Runs", table), more, dialog.element);
    result.querySelector("h2")!.append(csvButton("the table", "runs", () => [
        [...report.columns.map(headOf), "failure"],
        ...sorted.map((row) => [...report.columns.map((_, index) => row.values[index] ?? null), row.failure])]));
    return [origins(report.head), result];
}

/** Where a failed row has room for its reason: the longest run of columns that it does not know, as first and count. */
function roomIn(row: Row, columns: ShownColumn[]): [number, number] {
    let [best, length, first] = [0, 0, 0];
    columns.forEach((column, at) => {
        if (valueOf(row, column) !== null) first = at + 1;
        else if (at + 1 - first > length) [best, length] = [first, at + 1 - first];
    });
    return [best, length];
}

function tableRow(row: Row, columns: ShownColumn[], hasEyes: boolean, settings: EyeSettings, open: () => void): HTMLTableRowElement {
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
    const [room, length] = row.failure === null ? [0, 0] : roomIn(row, columns);
    columns.forEach((column, at) => {
        if (at === room && length > 0) element.append(h("td", { class: "words reason", colspan: length }, row.failure));
        if (at >= room && at < room + length) return;
        const text = cellText(row, column);
        const kind = column.kind === "number" ? "number" : text.length > 40 ? "words" : "";
        element.append(h("td", { class: kind, "data-label": headOf(column) }, text));
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

    constructor(private readonly report: TableDocument, private readonly columns: ShownColumn[], settings: EyeSettings) {
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
        const values = this.columns.filter((column) => valueOf(row, column) !== null)
            .map((column): [string, string] => [headOf(column), cellText(row, column)]);
        this.panel.replaceChildren(eyeTable(eye, unitIntervalPs), h("h3", {}, "Row of the table"), quantityList(values));
        this.bathtub.show(eye.bathtub && {
            title: "Bathtub", xLabel: "time from the measuring phase", xUnit: "UI", yLabel: "bit error ratio", yUnit: "",
            lines: [lineOf(row.label, eye.bathtub.ber, 0)], logarithmicY: [1e-15, 1],
            markers: [{ axis: "y", at: eye.targetBer, label: format.ber(eye.targetBer) }],
        });
    }
}
