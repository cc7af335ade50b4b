#!/usr/bin/env python3
"""Sets the library's medians beside those of its peers.

Give it the results of the benchmark programs:

    bench_core --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true \\
               --benchmark_out=core.json --benchmark_out_format=json
    ratios.py core.json ...

Prints a table in Markdown: for every case and peer the ratio of the medians (below 1 the library is
faster) and, where one is set, the limit. The exit status is 1 if a limit is missed. Only ratios
within one run mean anything: machines change their pace by more than any of these differences.
"""

import collections
import json
import pathlib
import re
import sys

OURS = "quillmere"

# Case, peer and the greatest ratio to it. The first match counts.
LIMITS = [(re.compile(case + "$"), re.compile(peer + "$"), limit) for case, peer, limit in [
    (r"core/pointer_.*", r"boost_intrusive_ptr", 1.05),
    (r"core/lock.*", r"std_recursive_mutex", 1.3),
    (r"core/event_ping_pong", r"pthread_cond", 1.1),
    (r"strings/(from_utf8|copy|to_utf8|round_trip)_.*", r"qstring", 1.0),
    (r"strings/(order|sort)_.*", r"icu_utf8", 1.15),
    (r"strings/(order|sort)_.*", r"qcollator", 1.0),
    (r"strings/equal_.*", r"memcmp", 2.0),
    (r"strings/find_.*", r"icu_(kept_collator|by_locale)", 0.5),
    (r"paths/.*", r"qfileinfo|qdir|qstring_split|std_path", 1.0),
    (r"collections/.*", r"std_vector", 1.1),
    (r"dictionaries/.*_ascii", r"std_map_icu", 1.0),
    (r"dictionaries/.*", r"std_map_icu", 1.2),
    (r"dictionaries/insert_.*", r"qmap_qcollator", 1.15),
    (r"dictionaries/.*", r"qmap_qcollator", 1.0),
    (r"streams/(read|write)_.*", r"pread_pwrite", 1.1),
    (r"streams/grow_.*", r"ftruncate_pwrite", 1.3),
    (r"files/copy_.*", r"cp|std_copy_file|g_file_copy", 1.05),
    (r"files/move", r"rename_with_checks", 1.5),
    (r"files/list_.*", r"readdir", 3.0),
    (r"files/list_.*", r"qdir|g_file_enumerator|std_directory_iterator", 1.0),
    (r"files/delete_.*", r"std_remove_all", 1.3),
    (r"files/delete_.*", r"qdir|poco_file", 1.0),
    (r"dates/now_fields", r"localtime_r", 3.0),
    (r"dates/now_fields", r"qdatetime|poco_localdatetime|gdatetime", 1.0),
    (r"dates/fixed_text", r"qdatetime", 1.0),
    (r"dates/localised_text", r"icu_kept_format", 1.2),
    (r"logging/line", r"plain_c", 2.0),
    (r"logging/flush_.*", r"fwrite", 1.5),
    (r"threads/queue", r"std_deque", 1.2),
    (r"threads/start_join", r"pthread", 1.2),
    (r"values/uuid", r"getrandom", 1.1),
    (r"values/uuid", r"quuid", 1.0),
    (r"values/measure_time", r"clock_gettime", 1.5),
    (r"xml/load", r"qdomdocument|poco_dom|libxml2_tree", 1.0),
    (r"xml/load", r"expat_alone", 2.5),
    (r"xml/write", r"qdomdocument|poco_dom", 1.0),
]]

# Cases whose own time has a limit, in nanoseconds.
TIME_LIMITS = {"logging/filtered": 50, "logging/start_end": 3000}

UNITS = [("ns", 1), ("µs", 1e3), ("ms", 1e6), ("s", 1e9)]
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

# The library beside one peer, or by itself with a limit in nanoseconds: then `peer` is None, and
# `ratio` the time that it has taken. `limit` is None where there is none.
Row = collections.namedtuple("Row", "case ours peer time ratio limit")


def is_missed(row):
    return row.limit is not None and row.ratio > row.limit


def limit_for(case, peer):
    for case_pattern, peer_pattern, limit in LIMITS:
        if case_pattern.match(case) and peer_pattern.match(peer):
            return limit
    return None


def read_results(paths):
    """What the benchmark programs have written, a file each."""
    return [json.loads(pathlib.Path(path).read_text(encoding="utf-8")) for path in paths]


def medians_of(results):
    """The medians in nanoseconds: {case: {peer: time}}. Processor time, unless a case is marked as
    one whose threads wait for each other."""
    cases = {}
    for entry in (entry for result in results for entry in result["benchmarks"]):
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry['error_message']}")
        if entry.get("aggregate_name") != "median":
            continue
        theme, case, peer, *marks = entry["run_name"].split("/")
        time = entry["real_time" if "real_time" in marks else "cpu_time"]
        cases.setdefault(f"{theme}/{case}", {})[peer] = time * NANOSECONDS[entry["time_unit"]]
    return cases


def rows_of(cases):
    """All comparisons, in the order of their names. A filter may have left a case without the
    library's own time: that has none."""
    for case, times in sorted(cases.items()):
        if OURS not in times:
            continue
        ours = times[OURS]
        if case in TIME_LIMITS:
            yield Row(case, ours, None, None, ours, TIME_LIMITS[case])
        for peer, time in sorted(times.items()):
            if peer != OURS:
                yield Row(case, ours, peer, time, ours / time, limit_for(case, peer))


def time_text(nanoseconds):
    """Three digits and a unit."""
    for unit, size in reversed(UNITS):
        if nanoseconds >= 0.9995 * size or unit == "ns":
            value = nanoseconds / size
            digits = 2 if value < 9.995 else 1 if value < 99.95 else 0
            return f"{value:.{digits}f} {unit}"


def ratio_text(ratio):
    return f"{ratio:.2f}" if ratio < 9.995 else f"{ratio:.1f}"


def cells_of(row):
    """The columns of a row in a table: case, time, peer, time, ratio, limit."""
    if row.peer is None:
        return [row.case, time_text(row.ours), "", "", "", time_text(row.limit)]
    return [row.case, time_text(row.ours), row.peer, time_text(row.time), ratio_text(row.ratio),
            "" if row.limit is None else f"{row.limit:g}"]


def main(paths):
    rows = list(rows_of(medians_of(read_results(paths))))
    print("| Case | Time | Peer | Time | Ratio | Limit | |")
    print("|---|---:|---|---:|---:|---:|---|")
    for row in rows:
        print("| " + " | ".join([*cells_of(row), "missed" if is_missed(row) else ""]) + " |")
    return 1 if any(map(is_missed, rows)) else 0


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1:]))
