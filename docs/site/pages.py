"""Makes the pages of the site ready for Sphinx, and runs their samples.

    pages.py TOP OUT PREFIX EACHFILTER XML

TOP is the project, OUT the folder for the pages, PREFIX where the project is installed, EACHFILTER the program of
examples/eachfilter.cpp, XML what doxygen made of the headers. Every `sh` and `python` block of a page runs, from top to bottom, in an empty folder that stands beside the
page as NAME.run; a page shows the pictures that its samples leave there. Below a sample, a `text output` block takes what it
printed. Anything else in a fence is refused: what is shown has been run.
"""
import contextlib
import io
import multiprocessing
import os
import re
import shutil
import subprocess
import sys
import traceback
from pathlib import Path
from xml.etree import ElementTree

FENCE = re.compile(r"^```(\w+)([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
RUN = ("start.md", "captures.md", "filters/*.md", "howto/*.md")
# A document that is read in the repository too: its commands begin at the top, and name the program in the build tree.
ALSO_RUN = ("reports.md",)
IN_BUILD_TREE = "build/release/apps/tarnwick/"
# Of a header, beside its classes: not its macros and not its includes.
SECTIONS = "enum typedef func var user-defined"
SECONDS = 120  # the longest that a sample may take


class SampleFailed(Exception):
    pass


def run_shell(code, folder):
    done = subprocess.run(["bash", "-euo", "pipefail", "-c", code], cwd=folder, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=SECONDS)
    if done.returncode:
        raise SampleFailed(f"exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def run_python(code, names):
    printed = io.StringIO()
    try:
        with contextlib.redirect_stdout(printed):
            exec(compile(code, "sample", "exec"), names)
    except Exception:
        raise SampleFailed(printed.getvalue() + traceback.format_exc()) from None
    return printed.getvalue()


def run_samples(text, name, folder, fence=FENCE):
    """The page with what its samples printed, and the names that its Python samples left."""
    names = {"__name__": "__main__"}
    last = None

    def replaced(match):
        nonlocal last
        language, extra, code = match[1], match[2].strip(), match[3]
        line = text.count("\n", 0, match.start()) + 1
        try:
            if language == "sh":
                last = run_shell(code, folder)
            elif language == "python":
                last = run_python(code, names)
            elif (language, extra) == ("text", "output"):
                if not last:
                    raise SampleFailed("there is no output to show")
                return f"```text\n{last.rstrip()}\n```"
            else:
                raise SampleFailed(f"a block of {language}, which nothing runs")
        except (SampleFailed, subprocess.TimeoutExpired) as failure:
            raise SampleFailed(f"{name}:{line}: {failure}") from None
        return match[0]

    return fence.sub(replaced, text), names


def same_three_ways(page, folder, names, program):
    """A filter's page shows it on the command line, in Python and in C++: the samples have to be the same, to the last bit."""
    import numpy as np
    kind = page.stem
    printed = subprocess.run([program, kind, "capture.txt"], cwd=folder, stdout=subprocess.PIPE, text=True, timeout=SECONDS)
    if printed.returncode:
        raise SampleFailed(f"{page.name}: eachfilter {kind} failed")
    by_host = np.array(printed.stdout.split(), float)
    by_command = np.load(folder / "filtered.npy")
    by_python = names["filtered"]
    if not (by_host.size and np.array_equal(by_host, by_command) and np.array_equal(by_python, by_command)):
        raise SampleFailed(f"{page.name}: the three examples do not give the same samples")


def make_ready(job):
    page, root, program = job
    name = page.relative_to(root).as_posix()
    try:
        text = page.read_text(encoding="utf-8")
        folder = page.with_suffix(".run")
        folder.mkdir()
        os.chdir(folder)
        if name in ALSO_RUN:
            Path("build").mkdir()
            run_samples(text.replace(IN_BUILD_TREE, ""), name, folder, re.compile(r"^```(sh)()\n(.*?)^```$", re.MULTILINE | re.DOTALL))
            return None
        # What a page shows of a program lies in its folder.
        for example in re.findall(r"^```{literalinclude} (\S+)", text, flags=re.MULTILINE):
            shutil.copy(page.parent / example, folder)
        text, names = run_samples(text, name, folder)
        if page.parent.name == "filters" and page.stem != "index":
            same_three_ways(page, folder, names, program)
        page.write_text(text, encoding="utf-8")
        for picture in re.findall(r"!\[[^\]]*\]\(([^)]+)\)", text):
            if not (page.parent / picture).is_file():
                raise SampleFailed(f"{name}: no sample drew {picture}")
    except SampleFailed as failure:
        return str(failure)
    return None


def sections(markdown):
    """The tables of `tarnwick chain-keys --markdown` by what they are about."""
    for part in re.split(r"^### ", markdown, flags=re.MULTILINE)[1:]:
        title, _, table = part.partition("\n")
        yield title.split(":")[0].strip("`").replace(" ", "-"), table.strip()


REFERENCES = {
    "filters": ("C++: filters", "The filters, their parameters, and `Filtered`, which runs one. `filters/filters.h` includes all of them.",
                ("filters/*.h", "filters/filters/*.h")),
    "framework": ("C++: framework", "Records, the two bases, and the public numeric operations.", ("framework/*.h",)),
    "workbench": ("C++: workbench", "Captures, chains, eyes and measurements. `workbench/workbench.h` includes all of them.", ("workbench/*.h",)),
}


def introduction(header):
    """The comment that a header opens with, as Markdown: indented lines are formulas."""
    lines = []
    for line in header.read_text(encoding="utf-8").splitlines():
        if not line.startswith("//"):
            break
        lines.append(line[2:].removeprefix(" "))
    parts, formula = [], False
    for line in lines:
        if line.startswith("    ") != formula:
            formula = not formula
            parts.append("```text" if formula else "```")
        parts.append(line[4:] if formula else re.sub(r"([\\`*_\[\]<>$|])", r"\\\1", line))
    return "\n".join(parts + ["```"] * formula)


def declared(xml):
    """The directives for what each header declares, by its path: its classes, and what stands outside of them."""
    for file in sorted(xml.glob("*_8h.xml")):
        compound = ElementTree.parse(file).getroot().find("compounddef")
        name = compound.find("location").get("file").partition("backend/")[2]
        classes = [(each.text, each.get("refid")) for each in compound.findall("innerclass") if each.get("prot") == "public"]
        names = {each for each, _ in classes}
        directives = []
        for each, refid in classes:
            if each.rpartition("::")[0] not in names:  # those within others stand there
                kind = "struct" if refid.startswith("struct") else "class"
                directives.append(f"```{{doxygen{kind}}} {each}\n:members:\n:protected-members:\n:undoc-members:\n```\n")
        if compound.find("sectiondef") is not None:
            directives.append(f"```{{doxygenfile}} {name}\n:sections: {SECTIONS}\n```\n")
        yield name, directives


def write_references(top, out, xml):
    """A page for every public header: its introduction, and what doxygen reads in it."""
    (out / "reference" / "cpp").mkdir()
    contents = dict(declared(xml))
    for layer, (title, text, patterns) in REFERENCES.items():
        rows, names = [], []
        for header in sorted(path for pattern in patterns for path in (top / "backend").glob(pattern)):
            name = header.relative_to(top / "backend").as_posix()
            # Those that only include or define macros, and the one that has a page of its own.
            if name in ("filters/filters.h", "workbench/workbench.h", "workbench/tarnwick.h", "framework/export.h",
                        "filters/filters/patternlockfailed.h"):
                continue
            intro = introduction(header)
            page = f"{layer}-{header.stem}"
            sentence = re.split(r"(?<=[.:])\s", intro.replace("\n", " "))[0].rstrip(":") if intro and not intro.startswith("`") else ""
            rows.append(f"| [`{name}`](cpp/{page}.md) | {sentence} |")
            names.append(f"cpp/{page}")
            (out / "reference" / "cpp" / f"{page}.md").write_text(
                "\n".join([f"# {name}\n", f"{intro}\n", f"```cpp\n#include \"{name}\"\n```\n", *contents[name]]), encoding="utf-8")
        table = "\n".join(["| header | what |", "|---|---|", *rows])
        toctree = "\n".join(["```{toctree}", ":hidden:", "", *names, "```"])
        (out / "reference" / f"cpp-{layer}.md").write_text(f"# {title}\n\n{text}\n\n{table}\n\n{toctree}\n", encoding="utf-8")


def commands():
    """What each command says of itself."""
    printed = lambda *arguments: subprocess.run(["tarnwick", *arguments], stdout=subprocess.PIPE, text=True, check=True).stdout
    overview = printed("--help")
    names = re.findall(r"^  ([a-z-]+) ", overview[overview.index("Subcommands:"):], flags=re.MULTILINE)
    return f"```text\n{overview}```\n" + "".join(f"\n## {name}\n\n```text\n{printed(name, '--help')}```\n" for name in names)


def main():
    top, out, prefix, program, xml = (Path(argument).resolve() for argument in sys.argv[1:6])
    shutil.rmtree(out, ignore_errors=True)
    shutil.copytree(top / "docs", out, ignore=shutil.ignore_patterns("site"))
    shutil.copytree(top / "examples", out / "examples")
    for document in ("CHANGELOG.md", "CONTRIBUTING.md"):
        shutil.copy(top / document, out / document.lower())
    shutil.copy(top / "NOTICE", out / "NOTICE")
    # The documents link from where they lie; here all of them lie one folder higher.
    for page in out.glob("*.md"):
        text = page.read_text(encoding="utf-8")
        page.write_text(re.sub(r"\]\((\.\./|docs/)", "](", text), encoding="utf-8")

    os.environ["PATH"] = f"{prefix / 'bin'}{os.pathsep}{os.environ['PATH']}"
    os.environ["MPLBACKEND"] = "Agg"
    os.environ["LC_ALL"] = "C.UTF-8"
    # As if the project were installed in the system.
    os.environ["CMAKE_PREFIX_PATH"] = str(prefix)
    os.environ["PKG_CONFIG_PATH"] = str(prefix / "lib" / "pkgconfig")
    os.environ["LD_LIBRARY_PATH"] = str(prefix / "lib")
    keys = subprocess.run(["tarnwick", "chain-keys", "--markdown"], stdout=subprocess.PIPE, text=True, check=True).stdout
    (out / "keys").mkdir()
    for name, table in sections(keys):
        if table:
            (out / "keys" / f"{name}.md").write_text(table + "\n", encoding="utf-8")
    (out / "keys" / "commands.md").write_text(commands(), encoding="utf-8")
    write_references(top, out, xml)
    shutil.copytree(top / "backend" / "workbench", out / "headers" / "workbench",
                    ignore=lambda folder, names: [name for name in names if name != "tarnwick.h"])

    pages = [page for pattern in RUN for page in sorted(out.glob(pattern))]
    jobs = [(page, out, program) for page in [*pages, *(out / name for name in ALSO_RUN)]]
    with multiprocessing.get_context("spawn").Pool(os.cpu_count(), maxtasksperchild=1) as pool:
        failures = [failure for failure in pool.imap_unordered(make_ready, jobs, chunksize=1) if failure]
    for failure in failures:
        print(f"docs: {failure}", file=sys.stderr)
    if not failures:
        print(f"docs: the samples of {len(jobs)} pages ran")
    sys.exit(bool(failures))


if __name__ == "__main__":
    main()
