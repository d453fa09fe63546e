#!/usr/bin/env python3
"""Checks the documents against the tree they describe.

Every block of C++ in a document stands, but for white space, in one of the examples, which are built
and run; every link to a file leads to one.
usage: docs_test.py SOURCE-FOLDER
"""
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
examples = ["".join(path.read_text().split()) for path in root.glob("examples/**/*.cpp")]
faults = []
for document in [root / "README.md", root / "CONTRIBUTING.md", *sorted((root / "docs").glob("*.md"))]:
    text = document.read_text()
    name = document.relative_to(root)
    for block in re.findall(r"```cpp\n(.*?)```", text, re.S):
        if not any("".join(block.split()) in example for example in examples):
            faults.append(f"{name}: this code stands in no example:\n{block}")
    for target in re.findall(r"\]\(([^)#:]+)\)", text):
        if not (document.parent / target).exists():
            faults.append(f"{name}: {target} does not exist")
print("\n".join(faults) if faults else "documents agree with the examples")
sys.exit(1 if faults else 0)
