// The top of every report: what it is about, what to beware of, where it came from.
import type { CaptureHead, Head, Warning } from "./document";
import { copyButton, h, scrollable, section } from "./dom";
import { quantityList } from "./figures";
import * as format from "./format";

const kKinds: Record<Warning["kind"], string> = {
    contradiction: "Contradiction",
    clipped: "Clipped samples",
    ends: "Ends left out",
    question: "Open question",
    failure: "Failure",
    note: "Note",
};

export function pageHead(head: Head): HTMLElement {
    const made = `${head.program} ${head.version}, ${head.date.replace("T", " ").replace("Z", " UTC")}`;
    return h("header", {}, h("h1", {}, head.title), h("p", { class: "subtitle" }, made));
}

export function warningList(warnings: Warning[]): HTMLElement | null {
    if (warnings.length === 0) return null;
    return section("warnings", "Warnings", h("ul", { class: "warnings" }, ...warnings.map((warning) =>
        h("li", { class: warning.kind }, h("strong", {}, `${kKinds[warning.kind] ?? warning.kind}: `), warning.text))));
}

function hash(sha256: string | null): HTMLElement {
    return sha256 === null ? h("span", {}, format.kNone) : h("code", { class: "hash" }, sha256);
}

function captureTable(captures: CaptureHead[]): HTMLElement {
    return scrollable("Captures", h("table", { class: "list" },
        h("thead", {}, h("tr", {}, ...["Capture", "Samples", "SHA-256"].map((name) => h("th", { scope: "col" }, name)))),
        h("tbody", {}, ...captures.map((capture) => h("tr", {},
            h("th", { scope: "row" }, capture.name), h("td", { class: "number" }, capture.samples === null ? format.kNone : String(capture.samples)),
            h("td", {}, hash(capture.sha256)))))));
}

function part(title: string, kind: string, ...content: Node[]): HTMLElement {
    return h("div", { class: `part ${kind}` }, h("h3", {}, title), ...content);
}

function codeBlock(what: string, text: string): HTMLElement {
    return h("div", { class: "code" }, h("pre", { tabindex: 0, role: "region", "aria-label": what }, h("code", {}, text)), copyButton(what, text));
}

const kCapturesInSight = 4;

export function origins(head: Head): HTMLElement {
    const { captures, chain } = head;
    const several = captures.length > kCapturesInSight;
    const parts: (HTMLElement | null)[] = [
        captures.length === 0 ? null : part(captures.length > 1 ? `${captures.length} captures` : "Capture", "wide",
            several ? h("details", {}, h("summary", {}, "Their names and hashes"), captureTable(captures)) : captureTable(captures)),
        head.acquisition.length === 0 ? null : part("Found by acquisition", "found",
            scrollable("Found by acquisition", h("table", { class: "list" },
                h("thead", {}, h("tr", {}, ...["Figure", "Value", "How sure"].map((name) => h("th", { scope: "col" }, name)))),
                h("tbody", {}, ...head.acquisition.map((found) => h("tr", {}, h("th", { scope: "row" }, found.name),
                    h("td", {}, format.quantityText(found)), h("td", { class: "words" }, found.confidence ?? format.kNone))))))),
        head.device.length === 0 ? null : part("Device", "", quantityList(head.device.map((each) => [each.name, format.quantityText(each)]))),
        !chain ? null : part("Chain", "wide",
            h("p", {}, h("strong", {}, chain.name), " SHA-256 ", hash(chain.sha256)),
            h("details", {}, h("summary", {}, "Chain file"), codeBlock("the chain file", chain.text))),
        head.command === null ? null : part("Makes this report again", "wide", codeBlock("the command", head.command)),
    ];
    return section("origin", "Capture, chain and instrument", h("div", { class: "parts" }, ...parts));
}
