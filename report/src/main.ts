// The page of a report: reads the document that the program wrote into it and builds everything from it.
import { kFormat, type ReportDocument } from "./document";
import { drawAll, h } from "./dom";
import { pageHead, warningList } from "./head";
import { onThemeChange, printing } from "./palette";
import { runPage } from "./run";
import { tablePage } from "./table";

function build(root: HTMLElement): void {
    const report = JSON.parse(document.getElementById("tarnwick-report")?.textContent ?? "") as ReportDocument;
    if (report.format !== kFormat) throw new Error(`format is ${String(report.format)}; expected ${kFormat}`);
    onThemeChange(() => {
        if (!printing()) return;
        drawAll(); // paper has no screen to scroll
        for (const folded of document.querySelectorAll("details")) folded.open = true;
    });
    root.replaceChildren(pageHead(report.head), ...[warningList(report.warnings)].flatMap((warnings) => warnings ?? []),
        ...(report.kind === "run" ? runPage(report) : tablePage(report)));
}

const root = document.querySelector("main") ?? document.body.appendChild(h("main"));
try {
    build(root);
} catch (error) {
    root.prepend(h("p", { role: "alert" }, `This report cannot be shown: ${error instanceof Error ? error.message : String(error)}`));
    throw error;
}
