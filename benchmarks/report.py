#!/usr/bin/env python3
"""Makes the page on performance from a run of the benchmarks.

    report.py RESULTS    writes docs/performance.md and docs/performance/*.svg

RESULTS is a folder with the results of all benchmark programs, bench_*.json, and what machine.py
printed, as machine.json. The same results give the same page. What is said of a case that is slower
than a peer stands in remarks.md. Where that says nothing of one, nothing is written, and the exit
status is 1.
"""

import json
import pathlib
import re
import sys
import textwrap

import pictures
import ratios

HERE = pathlib.Path(__file__).resolve().parent
PAGE = HERE.parent / "docs" / "performance.md"
PICTURES = PAGE.parent / "performance"
# A ratio up to here, or down to its inverse, counts as equal: so far apart are two runs of the same
# code.
EQUAL = 1.05

INTRODUCTION = """\
# Performance

Each operation of this library beside the same work done by others: the standard library, Qt, GLib,
Poco, Boost, ICU, or the bare calls of the system. This page is made from one run by

```console
scripts/bench --report
```

which measures all of it anew, in minutes with `REPETITIONS=3 BENCHMARK_MIN_TIME=0.05` in front;
`scripts/bench` and a regular expression measures some cases and prints a table. A case and its peers
run in one program and in an order of chance, {repetitions} times each, and the medians are compared.
Times are processor time, but for cases whose threads wait for each other, which are elapsed time.
Compare the ratios: the times themselves depend on the machine.

- **Ratio**: the library's time over the peer's. Below 1 the library is faster. From {low:.2f} to
  {high:.2f} counts as equal, since two runs of the same code differ by as much.
- **Limit**: the greatest ratio that the project allows itself; `scripts/bench` fails where one is
  missed. In the pictures it is the mark on a peer's row, before which the library's bar must end. Bars
  longer than {longest} times the library's are cut.

"""


def read_remarks():
    """The text of each theme, and the remarks on it: {theme: (title, text, [remark])}."""
    themes = {}
    text = re.sub(r"<!--.*?-->", "", (HERE / "remarks.md").read_text(encoding="utf-8"),
                  flags=re.DOTALL)
    for part in re.split(r"^# ", text, flags=re.MULTILINE)[1:]:
        head, *remarks = re.split(r"^## ", part, flags=re.MULTILINE)
        heading, _, introduction = head.partition("\n")
        theme, _, title = heading.partition(": ")
        themes[theme] = (title, introduction.strip(), [Remark(remark) for remark in remarks])
    return themes


class Remark:
    """What is said of the cases that are slower than some peers. Its heading names both, by regular
    expressions."""

    def __init__(self, text):
        heading, _, self.text = text.partition("\n")
        cases, _, peers = heading.partition(" beside ")
        self.heading = heading
        self.cases = re.compile(cases)
        self.peers = re.compile(peers)

    def speaks_of(self, row):
        return (self.cases.fullmatch(row.case.split("/")[1]) is not None and
                self.peers.fullmatch(row.peer) is not None)


def paragraph(text, indent=""):
    return textwrap.fill(" ".join(text.split()), width=100, subsequent_indent=indent,
                         break_long_words=False, break_on_hyphens=False)


def is_slower(row):
    return row.peer is not None and row.ratio > EQUAL


def remarks_by_row(rows, themes):
    """The slower rows that each remark speaks of, {(theme, remark): [row]}, and those of none."""
    spoken, silent = {}, []
    for row in filter(is_slower, rows):
        theme = row.case.split("/")[0]
        remark = next((remark for remark in themes[theme][2] if remark.speaks_of(row)), None)
        if remark is None:
            silent.append(row)
        else:
            spoken.setdefault(remark, []).append(row)
    return spoken, silent


def machine_section(machine, contexts):
    loads = [context["load_avg"][0] for context in contexts if context["load_avg"]]
    date = min(context["date"] for context in contexts)[:10]
    caches = ", ".join(f"L{cache['level']} {cache['size'] // 1024} KiB"
                       for cache in contexts[0]["caches"] if cache["type"] != "Instruction")
    packages = ", ".join(f"{name} {version}" for name, version in machine["packages"].items())
    facts = [
        f"{machine['processor']} ({machine['architecture']}), {machine['cores']} cores"
        f"{' of a virtual machine' if machine['virtual'] else ''}; caches: {caches}; "
        f"{round(machine['memory'] / 2**20)} GiB of memory",
        f"{machine['system']}, {machine['kernel']}; temporary files on {machine['temporary']}",
        f"{machine['compiler']}, build type {machine['build']}",
        packages,
    ]
    if loads:
        facts.append(f"measured on {date}; as the programs began, the load was {min(loads):.1f} to "
                     f"{max(loads):.1f}, of which the benchmarks themselves are about 1")
    yield "## The machine\n"
    for fact in facts:
        yield paragraph(f"- {fact}", "  ")
    yield ""


def summary_section(rows, themes):
    yield "## All in all\n"
    yield "| Theme | Comparisons | Faster | Equal | Slower | Limits | Missed |"
    yield "|---|---:|---:|---:|---:|---:|---:|"
    sums = [0] * 6
    for theme, (title, _, _) in themes.items():
        own = [row for row in rows if row.case.startswith(theme + "/")]
        compared = [row for row in own if row.peer is not None]
        slower = sum(map(is_slower, compared))
        faster = sum(row.ratio < 1 / EQUAL for row in compared)
        counts = [len(compared), faster, len(compared) - faster - slower, slower,
                  sum(row.limit is not None for row in own), sum(map(ratios.is_missed, own))]
        sums = [a + b for a, b in zip(sums, counts)]
        yield f"| {title} | {' | '.join(map(str, counts))} |"
    yield f"| **All** | {' | '.join(map(str, sums))} |\n"


def remark_section(remark, rows):
    by_peer = {}
    for row in rows:
        by_peer.setdefault(row.peer, []).append(row.ratio)
    cases = ", ".join(f"`{case}`" for case in dict.fromkeys(row.case.split("/")[1] for row in rows))
    peers = []
    for peer, found in by_peer.items():
        least, most = ratios.ratio_text(min(found)), ratios.ratio_text(max(found))
        peers.append(f"`{peer}` ({least if least == most else f'{least} to {most}'})")
    yield paragraph(f"- {cases} beside {', '.join(peers)}: {remark.text}", "  ")


def theme_section(theme, title, introduction, remarks, rows, spoken):
    yield f"## {title}\n"
    yield f"{paragraph(introduction)}\n"
    yield f"![{title}](performance/{theme}.svg)\n"
    slower = [remark for remark in remarks if remark in spoken]
    if slower:
        yield "Where it is not first:\n"
    for remark in slower:
        yield from remark_section(remark, spoken[remark])
    if slower:
        yield ""
    yield "| Case | Time | Peer | Time | Ratio | Limit |"
    yield "|---|---:|---|---:|---:|---:|"
    for row in rows:
        case, ours, peer, time, ratio, limit = ratios.cells_of(row)
        limit = f"**{limit}, missed**" if ratios.is_missed(row) else limit
        yield f"| {case.split('/')[1]} | {ours} | {peer} | {time} | {ratio} | {limit} |"
    yield ""


def main(folder):
    results = ratios.read_results(sorted(folder.glob("bench_*.json")))
    rows = list(ratios.rows_of(ratios.medians_of(results)))
    repetitions = max(entry["repetitions"] for entry in results[0]["benchmarks"])
    machine = json.loads((folder / "machine.json").read_text(encoding="utf-8"))
    themes = read_remarks()
    by_theme = {theme: [row for row in rows if row.case.startswith(theme + "/")]
                for theme in themes}
    strange = {row.case for row in rows} - {row.case for own in by_theme.values() for row in own}
    empty = [theme for theme, own in by_theme.items() if not own]
    if strange or empty:
        sys.exit("benchmarks/remarks.md and the results are not of the same themes: "
                 f"{', '.join([*sorted(strange), *empty])}")
    spoken, silent = remarks_by_row(rows, themes)
    if silent:
        print("These are slower, and benchmarks/remarks.md does not say why:", file=sys.stderr)
        for row in silent:
            print(f"  {row.case} beside {row.peer}: {ratios.ratio_text(row.ratio)}", file=sys.stderr)
        return 1
    for theme, (_, _, remarks) in themes.items():
        for remark in remarks:
            if remark not in spoken:
                print(f"In this run nothing is slower of: {theme}, {remark.heading}",
                      file=sys.stderr)

    contexts = [result["context"] for result in results]
    lines = [*machine_section(machine, contexts), *summary_section(rows, themes)]
    PICTURES.mkdir(exist_ok=True)
    for theme, (title, introduction, remarks) in themes.items():
        own = by_theme[theme]
        lines.extend(theme_section(theme, title, introduction, remarks, own, spoken))
        cases = {}
        for row in own:
            cases.setdefault(row.case, []).append(row)
        (PICTURES / f"{theme}.svg").write_text(pictures.draw(title, list(cases.values())),
                                               encoding="utf-8")
    PAGE.write_text(INTRODUCTION.format(repetitions=repetitions, low=1 / EQUAL,
                                        high=EQUAL, longest=pictures.LONGEST) +
                    "\n".join(lines).rstrip() + "\n", encoding="utf-8")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(main(pathlib.Path(sys.argv[1])))
