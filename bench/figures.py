"""Where the benchmarks' tables go: into a file of their own, or between two lines of a document."""
from pathlib import Path

BEGIN, END = "<!-- figures of script/bench -->\n", "<!-- end of the figures -->\n"


def keep(path, text, behind=False):
    """Writes `text` to the file; into the place that a document has for it.
    behind: after what is there of this run."""
    file = Path(path)
    before = file.read_text(encoding="utf-8") if file.exists() else ""
    head, mark, rest = before.partition(BEGIN)
    if mark:
        figures, end, tail = rest.partition(END)
        if not end:
            raise SystemExit(f"{path}: '{BEGIN.strip()}' without '{END.strip()}' after it")
        text = f"{head}{BEGIN}{figures if behind else chr(10)}{text}\n{END}{tail}"
    elif behind:
        text = before + text
    file.write_text(text, encoding="utf-8")
