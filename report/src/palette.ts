// Colours: the program's, so that pictures of the program and of the page compare. Lines come in an order that colour-blind
// eyes tell apart, each with a dash of its own, so that they stay apart in grey print too.

/** From no hits to the most: lightness rises all the way, whichever cones see it. */
const kDensityStops: [number, number, number, number][] = [
    [0.0, 0x10, 0x10, 0x18],
    [0.15, 0x14, 0x28, 0x8c],
    [0.4, 0x1e, 0x96, 0xc8],
    [0.65, 0x50, 0xdc, 0x78],
    [0.85, 0xff, 0xe6, 0x50],
    [1.0, 0xff, 0xff, 0xff],
];
const kShades = 1024;

/** kShades colours as the pixels of an ImageData. */
const densityColours: Uint32Array = (() => {
    const bytes = new Uint8ClampedArray(4 * kShades);
    for (let shade = 0; shade < kShades; ++shade) {
        const at = shade / (kShades - 1);
        const above = Math.max(1, kDensityStops.findIndex((stop) => stop[0] >= at));
        const [low, high] = [kDensityStops[above - 1]!, kDensityStops[above]!];
        const part = (at - low[0]) / (high[0] - low[0]);
        for (let channel = 0; channel < 3; ++channel) {
            const [from, to] = [low[channel + 1]!, high[channel + 1]!];
            bytes[4 * shade + channel] = Math.round(from + part * (to - from));
        }
        bytes[4 * shade + 3] = 255;
    }
    return new Uint32Array(bytes.buffer);
})();

/** @param shade 0 to 1 */
export function densityColour(shade: number): number {
    return densityColours[Math.round(shade * (kShades - 1))]!;
}

export const kEyeColours = {
    background: "#101018",
    threshold: "#e8e8f0",
    opening: "#ff6060",
    openingText: "#ffb0b0",
    contour: "#ff9040",
    mask: "#e0b3ff",
    maskFill: "rgba(199, 125, 255, 0.28)",
    cursor: "#ffffff",
};

export interface Theme {
    text: string;
    quiet: string;
    grid: string;
    lines: string[];
}

const kLight: Theme = {
    text: "#1d2129",
    quiet: "#5a6270",
    grid: "#d9dde3",
    lines: ["#0072b2", "#8a6800", "#8c0f2d", "#1f7f57", "#8a45c2", "#3a2a10"],
};
const kDark: Theme = {
    text: "#e8eaf0",
    quiet: "#a5adba",
    grid: "#343a46",
    lines: ["#4cc9f0", "#f9c74f", "#ff6b6b", "#90be6d", "#c77dff", "#f8961e"],
};

/** Of lines in the order of Theme.lines, in pixels. */
export const kDashes: number[][] = [[], [8, 4], [2, 3], [8, 3, 2, 3], [13, 4, 4, 4], [5, 2, 2, 2, 2, 2]];

const dark = window.matchMedia("(prefers-color-scheme: dark)");
let isPrinting = false;
const listeners: (() => void)[] = [];

/** Paper is light whatever the reader's screen is. */
export function theme(): Theme {
    return dark.matches && !isPrinting ? kDark : kLight;
}

/** Calls when colours or paper have changed and pictures must be drawn anew. */
export function onThemeChange(listener: () => void): void {
    listeners.push(listener);
}

export function printing(): boolean {
    return isPrinting;
}

function announce(): void {
    for (const listener of listeners) listener();
}

dark.addEventListener("change", announce);
for (const [event, value] of [["beforeprint", true], ["afterprint", false]] as const)
    window.addEventListener(event, () => {
        isPrinting = value;
        announce();
    });
