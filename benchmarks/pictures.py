"""Draws the cases of a theme as bars, the library among its peers, in SVG."""

import html

import ratios

WIDTH = 920
GAP = 32  # between the two columns
MARGIN = 14
COLUMN = (WIDTH - 2 * MARGIN - GAP) // 2
ROW = 16
HEAD = 24  # of a case: its name
BAR = 10
LETTER = 7.3  # the width of a letter of 11 pixels, in fonts that are wide
TIME = 62  # the columns of the numbers
RATIO = 40
# Bars reach to this multiple of the library's own; longer ones are cut.
LONGEST = 3

OURS, PEER, LIMIT, MISSED, TEXT, QUIET, LINE = (
    "#1f5fbf", "#b4bac4", "#d97706", "#b91c1c", "#24292f", "#57606a", "#d0d7de")


def text(x, y, content, fill=TEXT, anchor="start", size=11, weight="normal"):
    return (f'<text x="{x:g}" y="{y:g}" fill="{fill}" text-anchor="{anchor}" font-size="{size}" '
            f'font-weight="{weight}">{html.escape(content)}</text>')


def rectangle(x, y, width, height, fill):
    return f'<rect x="{x:.1f}" y="{y:g}" width="{width:.1f}" height="{height:g}" fill="{fill}"/>'


def bar(x, y, length, room, fill):
    """A bar of at most `room`; one that is longer has a gap near its end."""
    yield rectangle(x, y, min(length, room), BAR, fill)
    if length > room + 0.1:
        end = x + room - 14
        yield (f'<path d="M{end:.1f} {y + BAR + 1:g}l4 -{BAR + 2}h4l-4 {BAR + 2}z" fill="white"/>')


def limit_tick(x, y, missed):
    return rectangle(x - 1, y - 2, 2, BAR + 4, MISSED if missed else LIMIT)


def limit_of(row):
    """The time that the library may take."""
    return row.limit * (1 if row.peer is None else row.time)


def draw_case(rows, x, y, labels):
    """One case at a place, the fastest first. `labels` is the width of the names."""
    [case, ours] = rows[0].case, rows[0].ours
    limits = {row.peer: row for row in rows if row.limit is not None}
    bars = sorted([(ours, None)] + [(row.time, row.peer) for row in rows if row.peer is not None])
    left = x + labels + 6
    room = COLUMN - labels - 6 - TIME - RATIO
    ends = [time for time, _ in bars] + [limit_of(row) for row in limits.values()]
    longest = max(end for end in ends if end <= LONGEST * ours)
    scale = room / (LONGEST * ours if max(time for time, _ in bars) > longest else longest)
    yield text(x, y + 15, case.split("/")[1], weight="bold", size=12)
    top = y + HEAD
    for number, (time, peer) in enumerate(bars):
        middle = top + number * ROW
        base = middle + BAR - 1
        name, fill = (ratios.OURS, OURS) if peer is None else (peer, PEER)
        yield text(left - 6, base, name, OURS if peer is None else TEXT, "end",
                   weight="bold" if peer is None else "normal")
        yield from bar(left, middle, time * scale, room, fill)
        yield text(x + COLUMN - RATIO, base, ratios.time_text(time), QUIET, "end")
        row = limits.get(peer)
        missed = row is not None and ratios.is_missed(row)
        if peer is not None:
            yield text(x + COLUMN, base, ratios.ratio_text(ours / time), MISSED if missed else TEXT, "end",
                       weight="bold" if missed else "normal")
        if row is not None:
            place = limit_of(row) * scale
            if place <= room + 0.1:
                yield limit_tick(left + place, middle, missed)
    end = left + ours * scale
    yield (f'<path d="M{end:.1f} {top - 3}v{len(bars) * ROW}" stroke="{OURS}" stroke-width="1" '
           f'stroke-dasharray="2 2" fill="none"/>')


def height_of(rows):
    return HEAD + ROW * (1 + sum(row.peer is not None for row in rows)) + 10


def legend(y):
    for x, sample, words in [
            (MARGIN, rectangle(MARGIN, y - 9, 18, BAR, OURS), "this library"),
            (114, rectangle(114, y - 9, 18, BAR, PEER), "a peer; shorter is faster"),
            (298, limit_tick(314, y - 9, False), "where the library's bar must end"),
            (522, limit_tick(538, y - 9, True), "where it should have ended")]:
        yield sample
        yield text(x + 24, y, words, QUIET)
    yield text(WIDTH - MARGIN, y, "time; the library's time over it", QUIET, "end")


def draw(title, cases):
    """The picture of a theme. `cases` are the rows of each of its cases."""
    labels = LETTER * max(len(row.peer or ratios.OURS) for rows in cases for row in rows)
    total = sum(map(height_of, cases))
    top = 62
    lines, x, y, lowest = [], MARGIN, top, top
    for rows in cases:
        if x == MARGIN and y > top and y - top + height_of(rows) / 2 > total / 2:
            x, y = MARGIN + COLUMN + GAP, top
        lines.extend(draw_case(rows, x, y, labels))
        y += height_of(rows)
        lowest = max(lowest, y)
    height = lowest + 6
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
        f'viewBox="0 0 {WIDTH} {height}" font-family="Helvetica,Arial,sans-serif">',
        f"<title>{html.escape(title)}</title>",
        # A white box, so that the picture can be read on dark pages too.
        f'<rect x="0.5" y="0.5" width="{WIDTH - 1}" height="{height - 1}" rx="6" fill="white" '
        f'stroke="{LINE}"/>',
        text(MARGIN, 24, title, size=14, weight="bold"),
        *legend(46),
        f'<path d="M{MARGIN} 56h{WIDTH - 2 * MARGIN}" stroke="{LINE}"/>',
        *lines,
        "</svg>",
    ]) + "\n"
