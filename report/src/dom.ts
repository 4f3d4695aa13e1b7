// Elements of the page. Texts become text nodes, never markup.
import { csvText } from "./format";

type Child = Node | string | null;
type Attributes = Record<string, string | number | boolean>;

/** An attribute that is true is set without a value, one that is false is left out. */
export function h<K extends keyof HTMLElementTagNameMap>(
    tag: K,
    attributes: Attributes = {},
    ...children: Child[]
): HTMLElementTagNameMap[K] {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes))
        if (value !== false) element.setAttribute(name, value === true ? "" : String(value));
    element.append(...children.filter((child): child is Node | string => child !== null));
    return element;
}

export function button(label: string, action: () => void, attributes: Attributes = {}): HTMLButtonElement {
    const element = h("button", { type: "button", ...attributes }, label);
    element.addEventListener("click", action);
    return element;
}

export function checkbox(label: string, checked: boolean, change: (checked: boolean) => void): HTMLLabelElement {
    const input = h("input", { type: "checkbox", checked });
    input.addEventListener("change", () => change(input.checked));
    return h("label", { class: "check" }, input, label);
}

/** A heading with what follows it, as a landmark of that name. */
export function section(id: string, title: string, ...children: Child[]): HTMLElement {
    return h("section", { "aria-labelledby": `${id}-title`, id }, h("h2", { id: `${id}-title` }, title), ...children);
}

/** Can be scrolled by keys, as it is wider than narrow screens. */
export function scrollable(label: string, content: Node): HTMLElement {
    return h("div", { class: "scroll", tabindex: 0, role: "region", "aria-label": label }, content);
}

export function saveCsv(name: string, rows: (string | number | null)[][]): void {
    const address = URL.createObjectURL(new Blob([csvText(rows)], { type: "text/csv" }));
    const link = h("a", { href: address, download: `${name.replace(/[^\w.-]+/g, "-")}.csv` });
    link.click();
    window.setTimeout(() => URL.revokeObjectURL(address), 1000);
}

export function csvButton(what: string, name: string, rows: () => (string | number | null)[][]): HTMLButtonElement {
    return button("CSV", () => saveCsv(name, rows()), { class: "small", "aria-label": `Save ${what} as CSV` });
}

export function copyButton(what: string, text: string): HTMLButtonElement {
    const say = (text: string): void => {
        element.textContent = text;
        element.setAttribute("aria-label", `${text}: ${what}`);
    };
    const copied = (done: boolean): void => {
        say(done ? "Copied" : "Not allowed here");
        window.setTimeout(() => say("Copy"), 2000);
    };
    const element = button("Copy", () => {
        // Pages from files may be refused the clipboard.
        navigator.clipboard.writeText(text).then(() => copied(true), () => copied(false));
    }, { class: "small", "aria-label": `Copy: ${what}` });
    return element;
}

const seen = new Map<Element, () => void>();
const watcher = new IntersectionObserver((entries) => {
    for (const { target, isIntersecting } of entries) if (isIntersecting) drawNow(target);
}, { rootMargin: "300px" });

function drawNow(target: Element): void {
    watcher.unobserve(target);
    const draw = seen.get(target);
    seen.delete(target);
    draw?.();
}

/** Draws once the element comes near the screen. */
export function whenNear(element: Element, draw: () => void): void {
    seen.set(element, draw);
    watcher.observe(element);
}

/** All that whenNear still waits for: paper has no screen. */
export function drawAll(): void {
    for (const element of [...seen.keys()]) drawNow(element);
}
