#!/usr/bin/env python3
"""Checks bench/draw.py: what the drawing and the tables make of rows.

usage: performance_drawing_test.py SOURCE-FOLDER
"""
import importlib.util
import json
import pathlib
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

SOURCE = pathlib.Path(sys.argv.pop(1))
spec = importlib.util.spec_from_file_location("draw", SOURCE / "bench/draw.py")
draw = importlib.util.module_from_spec(spec)
spec.loader.exec_module(draw)

MACHINE = {"date": "2026-01-02", "processor": "A & B", "processors": 2, "memory_gb": 8, "system": "S", "compiler": "C", "others": 0.5}


def row(subject, ratio, target=None, stretch=None, peer="peer", theirs=10.0, unit="ns"):
    return {"subject": subject, "peer": peer, "ratio": ratio, "target": target, "stretch": stretch,
            "ours": ratio * theirs, "theirs": theirs, "unit": unit}


def sized(subject, costs, target=None):
    pairs = list(costs.items())
    return [row(f"{subject}, {size}", cost / before, target, peer=f"the same, {smaller}", theirs=before)
            for (smaller, before), (size, cost) in zip(pairs, pairs[1:])]


def parts(rows, tag):
    """Elements of the drawing, which is so shown to be well-formed."""
    root = ElementTree.fromstring(draw.drawing(rows, MACHINE))
    return root.iter("{http://www.w3.org/2000/svg}" + tag)


def with_class(rows, tag, name):
    return [part for part in parts(rows, tag) if name in part.get("class", "").split()]


def texts(rows):
    return [text.text for text in parts(rows, "text")]


class Drawing(unittest.TestCase):
    def test_verdicts(self):
        for ratio, target, stretch, wanted in [
            (0.5, 1.0, 0.5, "stretch"), (0.51, 1.0, 0.5, "met"), (1.0, 1.0, None, "met"), (1.01, 1.0, 0.5, "missed"),
            (9.0, None, None, "none"), (0.9, None, 1.0, "stretch"), (1.1, None, 1.0, "open"), (0.0, 0.0, 0.0, "stretch"),
        ]:
            one = row("a: b", ratio, target, stretch)
            self.assertEqual(draw.verdict(one), wanted, one)
            self.assertEqual(len([bar for bar in with_class([one], "rect", "bar") if wanted in bar.get("class")]), 1)

    def test_bars_and_target_lines_share_a_scale(self):
        rows = [row("a: whole", 1.0, 2.0, 0.5), row("a: half", 0.5, 1.0), row("a: far", 40.0, 99.0)]
        whole, half, far = with_class(rows, "rect", "bar")
        left, width = float(whole.get("x")), float(whole.get("width"))
        self.assertAlmostEqual(float(half.get("width")), width / 2, delta=0.2)
        self.assertAlmostEqual(float(far.get("width")), width * draw.CAP, delta=0.2)
        self.assertIn("40.0×", texts(rows))
        self.assertEqual(len(with_class(rows, "path", "cut")), 2)
        lines = [float(line.get("x1")) - left for line in with_class(rows, "line", "target") if float(line.get("x1")) > left]
        self.assertEqual([round(x / width, 1) for x in lines], [2.0, 1.0], "a target beyond the edge has no line")

    def test_texts_stay_inside_and_are_escaped(self):
        rows = [row("a: " + "long <&> " * 30, 3.0, 1.0, peer="w" * 200), *sized("g: " + "W" * 99, {"10 nodes": 1, "100 nodes": 2})]
        self.assertTrue(any(text.startswith("long <&>") and text.endswith("…") for text in texts(rows)))
        for text in parts(rows, "text"):
            x, width = float(text.get("x")), draw.text_width(text.text, 11)
            shift = {"end": width, "middle": width / 2}.get(text.get("text-anchor"), 0)
            self.assertGreater(x - shift, 0, text.text)
            self.assertLess(x - shift + width, draw.WIDTH, text.text)

    def test_no_two_labels_are_cut_to_the_same_text(self):
        long = "a name that goes on and on until there is no room left for what makes it another one, "
        names = [long + end for end in ("a handle", "a file", "a memory repository")]
        rows = [row("a: " + name, 1.0, peer=peer) for name in names for peer in names]
        rows += [one for name in names for one in sized("g: " + name, {"10 nodes": 1, "100 nodes": 2})]
        shown = texts(rows)
        for end in ("a handle", "a file", "a memory repository"):
            self.assertEqual(sum(bool(text) and text.endswith(end) for text in shown), 5)

    def test_sizes_become_curves_and_bars(self):
        rows = (sized("growth: build", {"1,000 nodes": 4, "10,000 nodes": 5, "2,000,000 nodes": 9}) +
                sized("many: Search", {"10 children": 2, "100 children": 3, "1,000 children": 9}, target=2.0))
        self.assertEqual(len(with_class(rows, "circle", "dot")), 3)
        for text in ("1k", "10k", "2M", "4.00", "9.00", "missed 3.00×"):
            self.assertIn(text, texts(rows))
        self.assertEqual(len(with_class(rows, "rect", "bar")), 1, "the last step")
        table = draw.growth_tables(rows)
        self.assertIn("| build | ns | 4.00 | 5.00 | 9.00 |", table)
        self.assertIn("| Search | ns | 2.00 | 3.00 | 9.00 | 3.00 | 2.00 | missed |", table)

    def test_no_rows(self):
        self.assertIn("no rows", texts([]))
        self.assertEqual(with_class([], "rect", "bar"), [])


class Document(unittest.TestCase):
    def run_on(self, rows, document, machine=MACHINE):
        with tempfile.TemporaryDirectory() as folder:
            folder = pathlib.Path(folder)
            (folder / "results.json").write_text(json.dumps(rows))
            if machine:
                (folder / "machine.json").write_text(json.dumps(machine))
            (folder / "performance.md").write_text(document)
            draw.main(folder, folder)
            self.assertTrue((folder / "performance.svg").exists())
            return (folder / "performance.md").read_text()

    def test_figures_stand_between_the_markers_and_nowhere_else(self):
        shipped = (SOURCE / "docs/performance.md").read_text()
        rows = [row("reads: 1,000 hot paths, memory repository", 0.6, 1.0, peer="absl::flat_hash_map", theirs=200), row("reads: x", 3.0, 1.0)]
        first = self.run_on(rows, shipped)
        self.assertIn("takes 120 ns", first)
        self.assertIn("| read a value again and again | absl::flat_hash_map | 120 |", first)
        self.assertIn("| x | peer | 30.0 | 10.0 | ns | 3.00 | 1.00 |  | missed |", first)
        self.assertIn("2026-01-02 · A & B", first)
        self.assertIn("1 of 2 targets met", first)
        self.assertEqual(self.run_on(rows, first), first)
        outside = lambda text: draw.re.sub(r"(?s)(by bench/draw.py -->).*?<!-- end -->", r"\1", text)
        self.assertEqual(outside(first), outside(shipped))

    def test_nothing_measured(self):
        shipped = (SOURCE / "docs/performance.md").read_text()
        text = self.run_on([], shipped, machine=None)
        self.assertIn("Nothing was measured.", text)
        self.assertIn("machine not recorded", text)

    def test_a_document_without_its_markers_is_left_alone(self):
        with self.assertRaisesRegex(SystemExit, "0 places for run"):
            self.run_on([], "# Performance\n")


if __name__ == "__main__":
    unittest.main()
