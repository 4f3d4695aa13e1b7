// The JSON document of a report, as the library writes it into <script type="application/json" id="tarnwick-report">.
//
// Every key is there; a figure that is not known is null. Numbers are finite: infinity and not-a-number are null. Voltages
// are in V, times in UI unless the name says otherwise. Texts are plain text in UTF-8, never markup. Inside the element
// "<", ">" and "&" of every text are written as \u003c, \u003e and \u0026, so that no text can end the element.

/** Goes up when a key is added, goes away or changes its meaning. The page refuses any other number. */
export const kFormat = 1;

export type ReportDocument = RunDocument | TableDocument;

/** A value and its unit as they are shown and copied; the unit is "" for plain numbers and texts. */
export interface Quantity {
    name: string;
    value: string | number | boolean | null;
    unit: string;
}

export interface CaptureHead {
    name: string;
    samples: number | null;
    /** 64 lower-case hexadecimal digits of the file's bytes; null: there is no file (standard input, an array). */
    sha256: string | null;
}

export interface ChainHead {
    name: string;
    /** The chain file as it was read. */
    text: string;
    sha256: string | null;
}

export interface Head {
    /** Of the page, for example "prbs15.csv through receiver.json". */
    title: string;
    program: string;
    version: string;
    /** ISO 8601 with its offset, "2026-11-22T17:58:22Z". */
    date: string;
    /** The command line that makes the report again, quoted for a shell; null: made by Python. */
    command: string | null;
    captures: CaptureHead[];
    chain: ChainHead | null;
    /** What the report assumes of the instrument: symbol rate, samples per UI, coding, pattern length. */
    device: Quantity[];
    /** What was found in the capture; empty where there was no acquisition. */
    acquisition: Finding[];
}

export interface Finding extends Quantity {
    /** How sure, in words: "given", "line 34.1 dB above its neighbours", "rms at the seam 1.02 of the interior"; null: does not apply. */
    confidence: string | null;
}

/** Stands at the top of the page, in this order. */
export interface Warning {
    kind: "contradiction" | "clipped" | "ends" | "question" | "failure" | "note";
    /** A sentence. */
    text: string;
}

/** values[k] at first + k spacing; the unit of first and spacing is told where it is used. null: not known or not finite. */
export interface Series {
    first: number;
    spacing: number;
    values: (number | null)[];
}

/**
 * How often the traces of a waveform cross each cell of a picture, two UI wide with the measuring phase in the middle.
 *
 * Column c covers the times (c / columns - 1/2) spanUi to ((c + 1) / columns - 1/2) spanUi from the measuring phase, row r
 * the voltages low + r (high - low) / rows and so on: row 0 is the lowest.
 */
export interface Density {
    columns: number;
    rows: number;
    /** [V] lower edge of the lowest row. */
    low: number;
    /** [V] upper edge of the highest row. */
    high: number;
    /** [UI] from the left to the right edge. */
    spanUi: number;
    /**
     * columns * rows whole numbers from 0 to 2^32 - 1, row by row from the lowest row, in each from left to right, coded as
     * a sequence of unsigned LEB128 numbers (7 bits a byte, lowest first, the top bit set in all bytes but the last) in
     * base64 with padding (alphabet A-Z a-z 0-9 + /). A number v > 0 is a cell with v hits. A 0 is followed by one more
     * number n >= 1: n cells without hits follow one another. Runs may cross rows. All cells are written, the last run too.
     * Example: the cells 0 0 0 5 300 0 are the numbers 0 3 5 300 0 1, the bytes 00 03 05 ac 02 00 01, "AAMFrAIAAQ==".
     */
    counts: string;
    /** The sum over all cells, by which the page checks what it has decoded. */
    total: number;
}

/** One opening, as EyesToJson of the library has it. */
export interface EyeOpening {
    /** [V] below 0: closed. */
    height: number | null;
    openingPercent: number | null;
    widthUi: number | null;
    widthPs: number | null;
    /** [UI] from the measuring phase: where the width begins and ends. */
    leftUi: number | null;
    rightUi: number | null;
    /** [V] */
    threshold: number;
    /** [V] at Eye.targetBer. */
    heightAtBer: number | null;
    /** null also for no noise beyond rounding. */
    q: number | null;
}

/** [UI from the measuring phase, V] */
export type Point = [number, number];

export interface Bathtub {
    /** Offsets in UI from the measuring phase; bit error ratios, 0 included. */
    ber: Series;
}

/** The eyes of a waveform and their picture. */
export interface Eye {
    /** null: the report was written without, or there is nothing to draw. */
    density: Density | null;
    /** [V] lowest first. */
    levels: number[];
    /** One fewer than levels, lowest first. */
    eyes: EyeOpening[];
    /** [UI] 0 to below 1: of the measuring phase from the start of a UI of the record. */
    phaseUi: number | null;
    /** [samples] the part that was measured, first and count. */
    valid: { first: number; count: number } | null;
    /** false: symbols were decided, and a closed eye looks more open than it is. */
    symbolsKnown: boolean | null;
    ber: number | null;
    /** [V] */
    noiseRms: number | null;
    targetBer: number;
    /** Closed outlines of what is left of the eyes at targetBer, first point repeated at the end; empty: closed; null: not measured. */
    contour: Point[][] | null;
    bathtub: Bathtub | null;
}

/** Of a filter, or of all of them one after the other. */
export interface Response {
    /** Frequencies in GHz. [dB] */
    magnitudeDb: Series;
    /** Frequencies in GHz. [ps] */
    groupDelayPs: Series | null;
    /** Times in UI from the impulse. [1/UI] */
    impulse: Series | null;
}

export interface Taps {
    kind: "feed-forward" | "feedback";
    values: number[];
    /** [UI] of each from the main cursor, as many as values. */
    offsetsUi: number[];
}

export interface PulseResponses {
    source: "known symbols" | "decided symbols" | "ideal symbol";
    /** Times in UI from the cursor. [V] */
    before: Series;
    /** null: only a waveform can tell. */
    after: Series | null;
    valuesPerUi: number;
}

export interface Stage {
    /** The stage's type, "capture" for the first; with a number where a type comes twice, for example "ffe 2". */
    name: string;
    /** As they were used, defaults included; empty for the capture. */
    settings: Quantity[];
    samples: number;
    repetitions: number;
    /** [V] */
    mean: number | null;
    /** [V] mean included. */
    rms: number | null;
    /** [V] */
    peakToPeak: number | null;
    /** null: coding or samples per UI are not known. */
    eye: Eye | null;
    /** What the filter has found: delay, port order, boost. Taps have their own place. */
    findings: Quantity[];
    taps: Taps | null;
    pulses: PulseResponses | null;
    /** null: the capture, or a stage that has none (decision feedback). */
    response: Response | null;
}

/** A chain and a capture. */
export interface RunDocument {
    format: typeof kFormat;
    kind: "run";
    head: Head;
    warnings: Warning[];
    stages: Stage[];
    chainResponse: Response | null;
    clockPhase: ClockPhase | null;
    spectrum: Spectrum | null;
    levels: LevelsOverRecord | null;
    /** null: none was given; the reader can load one. */
    mask: Mask | null;
    /** [ps] null: no rate is known, and the page tells no ps. */
    unitIntervalPs: number | null;
}

export interface ClockPhase {
    /** Times in UI from the record's first sample. [UI] about a constant clock. */
    phase: Series;
    /** The same, what the tracked clock follows; null: the clock is constant. */
    tracked: Series | null;
}

export interface Spectrum {
    /** Frequencies in frequencyUnit. [dB] */
    magnitudeDb: Series;
    frequencyUnit: "GHz" | "cycles per sample";
    /** The label of the vertical axis: "squared slope over its neighbourhood". */
    quantity: string;
    /** [frequencyUnit] the clock's line. */
    line: number | null;
    /** [dB] a weaker line is not taken for the clock. */
    leastDb: number | null;
}

export interface LevelsOverRecord {
    /** One a level, lowest first; times in UI from the record's first sample. [V] mean of the level's samples about there. */
    levels: Series[];
}

/** Also what the reader loads: a JSON file {"name": "...", "polygons": [[[ui, volt], ...], ...]}. */
export interface Mask {
    name: string;
    /** At least three points each, [UI from the measuring phase, V]; closed by the page. */
    polygons: Point[][];
}

/** A sweep, a search of `optimise`, or a batch. */
export interface TableDocument {
    format: typeof kFormat;
    kind: "table";
    head: Head;
    warnings: Warning[];
    columns: Column[];
    /** In the order in which they are first shown. */
    rows: Row[];
    mask: Mask | null;
    unitIntervalPs: number | null;
}

export interface Column {
    /** Unique. */
    key: string;
    label: string;
    unit: string;
    /** Numbers are aligned to the right and sorted by value. */
    kind: "text" | "number";
}

export interface Row {
    /** What names the row in the dialog: "gain 4.5, order 2", the capture's name. */
    label: string;
    /** As many as columns, in their order. A number in a column of texts is shown as it is. */
    values: (string | number | null)[];
    /** The reason; null: it succeeded. */
    failure: string | null;
    eye: Eye | null;
    /** [ps] of the row's own capture; null: as the document's. */
    unitIntervalPs: number | null;
}
