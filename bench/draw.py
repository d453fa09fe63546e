#!/usr/bin/env python3
"""Turns the rows of a run into docs/performance.svg and the tables of docs/performance.md.

RESULTS-FOLDER holds results.json and machine.json as `make bench` writes them. The drawing is made
anew; of the document only what stands between its markers, so that no figure in it is typed.
usage: bench/draw.py RESULTS-FOLDER DOCUMENT-FOLDER
"""
import html
import json
import pathlib
import re
import sys

# --- rows -------------------------------------------------------------------------------------

VERDICTS = {"stretch": "stretch met", "met": "met", "missed": "missed", "open": "stretch not met", "none": ""}
SIZED = re.compile(r"(?P<name>.*), (?P<size>[\d,]+) (?P<of>nodes|children)$")


def verdict(row):
    """How a row stands to its targets; a stretch target that stands alone cannot be missed."""
    if row["stretch"] is not None and row["ratio"] <= row["stretch"]:
        return "stretch"
    if row["target"] is not None:
        return "met" if row["ratio"] <= row["target"] else "missed"
    return "none" if row["stretch"] is None else "open"


def title_and_rest(subject):
    title, colon, rest = subject.partition(": ")
    return (title, rest) if colon else ("others", subject)


def is_growth(row):
    """A row whose peer is the same work on a smaller size."""
    return bool(SIZED.match(row["subject"]) and SIZED.match(row["peer"]))


def grouped(rows):
    """Title -> rows, in the order in which titles and rows came."""
    groups = {}
    for row in rows:
        groups.setdefault(title_and_rest(row["subject"])[0], []).append(row)
    return groups


def series(rows):
    """(title, name, unit) -> [(size, cost)], and the last row, of rows that name sizes."""
    found = {}
    for row in rows:
        title, rest = title_and_rest(row["subject"])
        now, before = SIZED.match(rest), SIZED.match(row["peer"])
        one = found.setdefault((title, now["name"], row["unit"]), {"costs": {}})
        number = lambda match: int(match["size"].replace(",", ""))
        one["costs"].setdefault(number(before), row["theirs"])
        one["costs"][number(now)] = row["ours"]
        one["last"] = row
    return found


def figure(value):
    """Three digits, as people write them."""
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.{0 if value >= 100 else 1 if value >= 10 else 2}f}"


def short_size(nodes):
    for unit, name in ((1_000_000, "M"), (1000, "k")):
        if nodes >= unit:
            return f"{nodes / unit:.0f}{name}"
    return str(nodes)


# --- drawing ----------------------------------------------------------------------------------

WIDTH, MARGIN = 1180, 28
CAP = 2.5  # ratios beyond are cut off, with an arrow; their figure stands beside the bar
STYLE = """
  text { font: 12.5px system-ui, 'Segoe UI', 'DejaVu Sans', sans-serif; fill: #1c2530; }
  .paper { fill: #ffffff; stroke: #d5dbe1; }
  .head { font-size: 22px; font-weight: 600; }
  .group { font-size: 14px; font-weight: 600; }
  .quiet { fill: #5b6774; }
  .small { font-size: 11px; }
  .loud { font-weight: 600; }
  .rule { stroke: #d5dbe1; }
  .grid { stroke: #eceff2; }
  .peer { stroke: #5b6774; stroke-width: 1.4; }
  .target { stroke: #1c2530; stroke-width: 2.2; }
  .aim { stroke: #1c2530; stroke-width: 1.6; stroke-dasharray: 2.5 2; }
  .stretch { fill: #00548f; } .met { fill: #5fb0e5; } .missed { fill: #d55e00; } .open, .none { fill: #a3adb8; }
  .curve { fill: none; stroke: #00548f; stroke-width: 2; } .dot { fill: #00548f; }
  .cut { fill: none; stroke: #ffffff; stroke-width: 2; }
  @media (prefers-color-scheme: dark) {
    text { fill: #e3e8ee; }
    .paper { fill: #12171d; stroke: #2c3641; }
    .quiet { fill: #a0acb9; }
    .rule { stroke: #2c3641; } .grid { stroke: #1f2831; }
    .peer { stroke: #a0acb9; } .target, .aim { stroke: #f4f7fa; }
    .stretch { fill: #8fd0ff; } .met { fill: #3b86bd; } .missed { fill: #f0803c; } .open, .none { fill: #66717d; }
    .curve { stroke: #8fd0ff; } .dot { fill: #8fd0ff; }
    .cut { stroke: #12171d; }
  }
"""


def text_width(text, size):
    """About as wide as common sans-serif fonts make it, and rather too much."""
    narrow = sum(c in "ijltfI.,:;|' ()[]" for c in text)
    return size * (0.60 * (len(text) - narrow) + 0.33 * narrow)


def fitted(text, width, size=12.5):
    if text_width(text, size) <= width:
        return text
    while text and text_width(text + "…", size) > width:
        text = text[:-1]
    return text.rstrip(" ,") + "…"


def cut_inside(text, width, size):
    """Keeps both ends."""
    tail = next(n for n in range(len(text), -1, -1) if text_width(text[len(text) - n:], size) <= 0.6 * width)
    head = len(text) - tail
    while head and text_width(text[:head] + "…" + text[len(text) - tail:], size) > width:
        head -= 1
    return text[:head].rstrip(" ,") + "…" + text[len(text) - tail:]


def told_apart(texts, width, size=12.5):
    """Text -> the text cut to the width. Those that would be cut to the same are cut inside."""
    cut = {text: fitted(text, width, size) for text in texts}
    shown = list(cut.values())
    return {text: cut_inside(text, width, size) if shown.count(short) > 1 else short for text, short in cut.items()}


class Drawing:
    def __init__(self):
        self.parts = []
        self.y = MARGIN

    def text(self, x, y, text, classes="", anchor="start"):
        attributes = f' class="{classes}"' if classes else ""
        attributes += f' text-anchor="{anchor}"' if anchor != "start" else ""
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}"{attributes}>{html.escape(text)}</text>')

    def line(self, x1, y1, x2, y2, classes):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{classes}"/>')

    def rect(self, x, y, width, height, classes):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" class="{classes}"/>')

    def add(self, part):
        self.parts.append(part)

    def heading(self, text, space=22):
        self.y += space
        self.text(MARGIN, self.y, text[0].upper() + text[1:], "group")
        self.y += 7
        self.line(MARGIN, self.y, WIDTH - MARGIN, self.y, "rule")

    def axis(self, x, unit, ticks, top, bottom):
        """`unit` points for a ratio of 1; the ticks are named above the top."""
        for tick in ticks:
            self.text(x + tick * unit, top - 7, f"{tick:g}×" if tick else "0", "small" if tick == 1 else "quiet small", "middle")
            self.line(x + tick * unit, top, x + tick * unit, bottom, "peer" if tick == 1 else "grid")

    def bar(self, row, x, y, unit, height, row_height):
        """From x on around the line y. The targets of rows that follow each other form one line."""
        kind = verdict(row)
        at = lambda ratio: x + min(ratio, CAP) * unit
        self.rect(x, y - height / 2, max(1.5, at(row["ratio"]) - x), height, f"bar {kind}")
        if row["ratio"] > CAP:
            for left in (at(CAP) - 14, at(CAP) - 9):
                self.add(f'<path d="M{left:.1f} {y - height / 2:.1f}l4 {height / 2:.1f}l-4 {height / 2:.1f}" class="cut"/>')
        for what, classes, reach in (("stretch", "aim", height / 2 + 3), ("target", "target", row_height / 2)):
            if row[what] is not None and row[what] <= CAP:
                self.line(at(row[what]), y - reach, at(row[what]), y + reach, classes)

    def svg(self):
        height = self.y + MARGIN
        return "\n".join(
            [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" width="{WIDTH}" height="{height:.0f}" role="img">',
             "<title>Cost of the library beside its peers, and how it grows</title>", f"<style>{STYLE}</style>",
             f'<rect x="0.5" y="0.5" width="{WIDTH - 1}" height="{height - 1:.0f}" rx="6" class="paper"/>', *self.parts, "</svg>", ""])


# What people ask first: a question, the row that answers it (a pattern for its subject, its peer).
QUESTIONS = [
    ("read a value again and again", r"reads: 1,000 hot paths, memory repository", "absl::flat_hash_map"),
    ("read any of 90,000 values", r"reads: 90,000 paths, memory repository", "absl::flat_hash_map"),
    ("read beside a second thread", r"reads: two threads on the same paths, memory repository", "the same with one thread"),
    ("memory of a tree", r"memory: in use", "absl::flat_hash_map"),
    ("copy a tree", r"whole trees: deep copy", "nested std::map"),
    ("read a tree from an XML file", r"XML: import, file to finished tree", "bare Xerces, empty handlers"),
    ("write it to an XML file, for good", r"XML: export of a path, synced to disk", "escape by runs, to a file, synced"),
    ("set a value in a file's database", r"stored tree: in a file, one value set for good", "SQLite, prepared"),
    ("read a value from the service", r"reads of the service: a value, one client, all on one processor, p50", "redis GET"),
    ("read values with 32 clients", r"reads of the service: values, 32 clients", "redis GET"),
    ("read a whole tree from the service", r"trees and writes of the service: a tree of [\d,]+ nodes, read and built",
     "PostgreSQL, SELECT, nothing built"),
    ("set a value at the service, for good", r"trees and writes of the service: a value set for good.*", "SQLite, prepared"),
]


def asked_first(rows):
    """The rows that answer the questions, by the names of those."""
    found = []
    for question, subject, peer in QUESTIONS:
        row = next((r for r in rows if re.fullmatch(subject, r["subject"]) and r["peer"] == peer), None)
        if row:
            found.append({**row, "subject": "at a glance: " + question})
    return found


def machine_line(machine):
    if not machine:
        return "machine not recorded"
    parts = [machine["date"], f"{machine['processor']}, {machine['processors']} processors, {machine['memory_gb']:.0f} GB",
             machine["system"], machine["compiler"], f"other programs kept {machine['others']:.1f} processors busy meanwhile"]
    return " · ".join(parts)


def counted(rows):
    """"3 of 4 targets met, 1 of 2 stretch targets" """
    targets = [r for r in rows if r["target"] is not None]
    aims = [r for r in rows if r["stretch"] is not None]
    met = sum(r["ratio"] <= r["target"] for r in targets)
    reached = sum(r["ratio"] <= r["stretch"] for r in aims)
    return f"{met} of {len(targets)} targets met, {reached} of {len(aims)} stretch targets"


def draw_head(to, rows, machine):
    to.y += 18
    to.text(MARGIN, to.y, "Halvoria CFG beside its peers", "head")
    to.text(WIDTH - MARGIN, to.y, counted(rows) if rows else "no rows", "group", "end")
    for line in (machine_line(machine), "A bar is our cost over the peer's for the same work in the same run, in time or in "
                 "bytes: the shorter the better, and left of 1 we are cheaper."):
        to.y += 20
        to.text(MARGIN, to.y, line, "quiet")
    to.y += 26
    x = MARGIN
    for kind, name in (("stretch", "stretch target met"), ("met", "target met"), ("missed", "target missed"), ("none", "no target")):
        to.rect(x, to.y - 10, 18, 11, kind)
        to.text(x + 24, to.y, name)
        x += 24 + text_width(name, 12.5) + 26
    for classes, name in (("target", "target"), ("aim", "stretch target"), ("peer", "the peer's cost")):
        to.line(x + 4, to.y - 13, x + 4, to.y + 4, classes)
        to.text(x + 14, to.y, name)
        x += 14 + text_width(name, 12.5) + 26
    to.y += 20


def draw_comparisons(to, rows):
    subject_x, peer_x, bar_x, unit = MARGIN, 392, 640, 138
    row_height, bar_height = 21, 11
    for title, members in grouped(rows).items():
        to.heading(title)
        bottom = to.y + 4 + row_height * len(members)
        to.axis(bar_x, unit, (0, 0.5, 1, 1.5, 2, 2.5), to.y, bottom)
        subjects = told_apart([title_and_rest(row["subject"])[1] for row in members], peer_x - subject_x - 8)
        peers = told_apart([row["peer"] for row in members], bar_x - peer_x - 12)
        before = None
        for row in members:
            to.y += row_height
            subject = title_and_rest(row["subject"])[1]
            if subject != before:
                to.text(subject_x, to.y, subjects[subject])
            to.text(peer_x, to.y, peers[row["peer"]], "quiet")
            to.bar(row, bar_x, to.y - 4.5, unit, bar_height, row_height)
            to.text(bar_x + CAP * unit + 60, to.y, f"{figure(row['ratio'])}×", "loud", "end")
            kind = verdict(row)
            to.text(bar_x + CAP * unit + 70, to.y, VERDICTS[kind], "loud" if kind == "missed" else "quiet")
            before = subject
        to.y = bottom + 6


def draw_growth(to, rows):
    columns, cell_height = 5, 158
    cell = (WIDTH - 2 * MARGIN) / columns
    for title, members in grouped(rows).items():
        to.heading(f"{title}: what it costs a node as the tree grows")
        curves = list(series(members).items())
        names = told_apart([name for (_, name, _), _ in curves], cell - 8)
        for i, ((_, name, unit), one) in enumerate(curves):
            left, top = MARGIN + i % columns * cell, to.y + i // columns * cell_height
            to.text(left, top + 20, names[name])
            to.text(left, top + 35, unit, "quiet small")
            costs = sorted(one["costs"].items())
            floor, ceiling = top + 128, top + 62
            highest = max(cost for _, cost in costs) or 1
            step = (cell - 46) / max(1, len(costs) - 1)
            points = [(left + 18 + k * step, floor - cost / highest * (floor - ceiling)) for k, (_, cost) in enumerate(costs)]
            to.line(left, floor, left + cell - 14, floor, "rule")
            to.add('<polyline class="curve" points="' + " ".join(f"{x:.1f},{y:.1f}" for x, y in points) + '"/>')
            for (x, y), (size, cost) in zip(points, costs):
                to.add(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.2" class="dot"/>')
                to.text(x, y - 8, figure(cost), "small", "middle")
                to.text(x, floor + 15, short_size(size), "quiet small", "middle")
        to.y += (len(curves) + columns - 1) // columns * cell_height


def draw_children(to, rows):
    bar_height, row_height, unit = 10, 19, 84
    width = (WIDTH - 2 * MARGIN - 32) / 2
    for title, members in grouped(rows).items():
        found = list(series(members).items())
        sizes = sorted(found[0][1]["costs"])
        to.heading(f"{title}: what one costs where a key has {sizes[-1]:,}, beside {sizes[-2]:,}", 26)
        to.y += 18
        half = (len(found) + 1) // 2
        names = told_apart([name for (_, name, _), _ in found], 224)
        for i, ((_, name, _), one) in enumerate(found):
            left, y = MARGIN + i // half * (width + 32), to.y + 18 + i % half * row_height
            bar_x = left + 232
            if i % half == 0:
                to.axis(bar_x, unit, (0, 1, 2), to.y, y + half * row_height - 12)
            to.text(left, y, names[name])
            to.bar(one["last"], bar_x, y - 4.5, unit, bar_height, row_height)
            mark = "missed " if verdict(one["last"]) == "missed" else ""
            to.text(left + width, y, f"{mark}{figure(one['last']['ratio'])}×", "loud", "end")
        to.y += 18 + half * row_height


def drawing(rows, machine):
    to = Drawing()
    draw_head(to, rows, machine)
    growing = [row for row in rows if is_growth(row)]
    draw_comparisons(to, asked_first(rows))
    draw_comparisons(to, [row for row in rows if not is_growth(row)])
    draw_growth(to, [row for row in growing if row["subject"].endswith(" nodes")])
    draw_children(to, [row for row in growing if row["subject"].endswith(" children")])
    return to.svg()


# --- document ---------------------------------------------------------------------------------


def table(heads, rows):
    """The first column of texts, the others of figures, but for those whose head ends in a colon."""
    rule = ["---" if head.endswith(":") or i == 0 else "--:" for i, head in enumerate(heads)]
    lines = [[head.rstrip(":") for head in heads], rule, *rows]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def comparison_table(rows):
    target = lambda value: "" if value is None else f"{value:.2f}"
    lines = [[title_and_rest(r["subject"])[1], r["peer"], figure(r["ours"]), figure(r["theirs"]), r["unit"],
              f"{r['ratio']:.2f}", target(r["target"]), target(r["stretch"]), VERDICTS[verdict(r)]] for r in rows]
    return table(["", "peer:", "ours", "theirs", "unit:", "ratio", "target", "stretch", ":"], lines)


def comparison_tables(rows):
    return "\n\n".join(f"### {title[0].upper()}{title[1:]}\n\n" + comparison_table(members)
                       for title, members in grouped(r for r in rows if not is_growth(r)).items())


def growth_tables(rows):
    parts = []
    for title, members in grouped(r for r in rows if is_growth(r)).items():
        found = series(members)
        sizes = sorted(next(iter(found.values()))["costs"])
        has_target = any(one["last"]["target"] is not None for one in found.values())
        heads = ["", "unit:", *(f"{size:,}" for size in sizes), *(["last step", "target", ":"] if has_target else [])]
        lines = []
        for (_, name, unit), one in found.items():
            line = [name, unit, *(figure(one["costs"][size]) for size in sizes)]
            last = one["last"]
            if has_target:
                line += [f"{last['ratio']:.2f}", f"{last['target']:.2f}", VERDICTS[verdict(last)]]
            lines.append(line)
        parts.append(f"### {title[0].upper()}{title[1:]}\n\n" + table(heads, lines))
    return "\n\n".join(parts)


def duration(ns):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3), ("ns", 1)):
        if ns >= size:
            break
    return f"{figure(ns / size)} {unit}"


# What rows mean to someone who uses the library: a sentence a row, left out where there is no
# such row. {one}: our cost as a time; {million}: of a million such; {mb}: megabytes of a million.
SENTENCES = [
    ("reads: 1,000 hot paths, memory repository",
     "Reading a value that is read again and again takes {one} in a tree of a million nodes."),
    ("reads: 90,000 paths, memory repository",
     "Reading any of 90,000 values, all over such a tree, takes {one}; most of it is waiting for memory."),
    ("reads: two threads on the same paths, memory repository",
     "A second thread that reads the same values at the same moment costs the first one nearly nothing: "
     "a read takes {ratio} times as long as it takes one thread alone."),
    ("memory: in use", "A tree of a million nodes takes {mb} MB."),
    ("memory: in use, with path index", "Once such a tree is read a great deal it has an index of its paths, and takes {mb} MB."),
    ("whole trees: build, each node added to its key", "Building it node by node takes {million}."),
    ("whole trees: deep copy", "Copying it takes {million}."),
    ("whole trees: destroy", "Dropping it takes {million}."),
    ("XML: import, file to finished tree", "Reading it from an XML file that was exported takes {million}."),
    ("XML: export of a path, synced to disk", "Exporting it, until the file is safely on the disk, takes {million}."),
    ("byte arrays: array to finished tree", "Reading it from a byte array takes {million}."),
    ("byte arrays: tree to array", "Writing it as a byte array takes {million}."),
]


def in_words(rows):
    first = {}
    for row in rows:
        first.setdefault(row["subject"], row)
    said = []
    for subject, sentence in SENTENCES:
        if row := first.get(subject):
            said.append("- " + sentence.format(one=duration(row["ours"]), million=duration(row["ours"] * 1e6),
                                               mb=figure(row["ours"]), ratio=figure(row["ratio"])))
    return "\n".join(said)


def run_line(rows, machine):
    return f"{machine_line(machine)}.\n{counted(rows)}."


def filled(document, rows, machine):
    """The document with what stands between its markers made anew."""
    first = asked_first(rows)
    parts = {"run": run_line(rows, machine), "first": comparison_table(first) if first else "", "words": in_words(rows), "comparisons": comparison_tables(rows), "growth": growth_tables(rows)}
    for name, text in parts.items():
        pattern = re.compile(rf"(<!-- {name}: by bench/draw.py -->\n).*?(<!-- end -->)", re.S)
        document, places = pattern.subn(lambda m: m[1] + (text or "Nothing was measured.") + "\n" + m[2], document)
        if places != 1:
            raise SystemExit(f"draw.py: the document has {places} places for {name}, not one")
    return document


def main(results, documents):
    results, documents = pathlib.Path(results), pathlib.Path(documents)
    rows = json.loads((results / "results.json").read_text())
    machine_file = results / "machine.json"
    machine = json.loads(machine_file.read_text()) if machine_file.exists() else {}
    document = documents / "performance.md"
    text = filled(document.read_text(), rows, machine)
    (documents / "performance.svg").write_text(drawing(rows, machine))
    document.write_text(text)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
