#!/usr/bin/env python3
"""Each row is a small repository in which one include is refused, or none.
usage: check_includes_test.py SOURCE-FOLDER
"""
import pathlib
import subprocess
import sys
import tempfile

HOUSE = {
    "inc/CFG/Public.h": "", "src/CFG/detail/shared.h": "", "src/CFG/xml/helper.h": "", "service/session.h": "",
    "platform/tree/Node.h": "", "platform/logging/Log.h": "", "platform/strings/Text.h": "",
    "platform/strings/CMakeLists.txt": "halvoria_platform_library(strings SOURCES Text.cpp)",
    "platform/logging/CMakeLists.txt": "halvoria_platform_library(logging LINKS platform::strings)",
    "platform/tree/CMakeLists.txt": "halvoria_platform_library(tree LINKS platform::logging)",
    "src/CFG/Public.cpp": "#include <CFG/detail/shared.h>", "src/CFG/xml/a.cpp": '#include "helper.h"',
}
# A file that comes to it, what it includes, and what is said of that; empty for nothing.
ROWS = [
    ("platform/tree/Node.cpp", "strings/Text.h", ""),
    ("platform/logging/Log.cpp", "tree/Node.h", "is not linked by platform/logging"),
    ("platform/logging/tests/Log_test.cpp", "tree/Node.h", ""),
    ("platform/tree/Node.cpp", "CFG/Public.h", "is not for platform/tree"),
    ("inc/CFG/Other.h", "CFG/detail/shared.h", "is not for inc"),
    ("src/CFG/remote/a.cpp", "CFG/detail/shared.h", ""),
    ("src/CFG/remote/a.cpp", "CFG/xml/helper.h", "is for the sources of src/CFG/xml"),
    ("src/CFG/Other.cpp", "CFG/xml/helper.h", "is for the sources of src/CFG/xml"),
    ("src/CFG/Other.cpp", "service/session.h", "is not for src"),
    ("src/CFG/detail/lonely.h", "CFG/Public.h", ""),
    ("tests/CFG/xml/a_test.cpp", "CFG/xml/helper.h", ""),
    ("service/session.cpp", "CFG/Public.h", ""),
    ("service/session.cpp", "CFG/detail/shared.h", "is not for service"),
    ("apps/cfg/main.cpp", "CFG/xml/helper.h", "is not for apps/cfg"),
    ("apps/cfg/main.cpp", "service/session.h", "is not for apps/cfg"),
    ("apps/svcfg/main.cpp", "service/session.h", ""),
]


def said_of(files):
    with tempfile.TemporaryDirectory() as folder:
        for name, text in files.items():
            path = pathlib.Path(folder, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text + "\n")
        subprocess.run(["git", "init", "-q", "."], cwd=folder, check=True)
        subprocess.run(["git", "add", "."], cwd=folder, check=True)
        run = subprocess.run([pathlib.Path(sys.argv[1], "tools/check-includes"), folder], capture_output=True, text=True)
        return run.stdout if run.returncode else ""


faults = []
for name, include, expected in ROWS:
    said = said_of({**HOUSE, name: f"#include <{include}>"})
    if said != (f"{name}: <{include}> {expected}\n" if expected else ""):
        faults.append(f"{name} includes {include}: said '{said}', expected '{expected}'")
said = said_of({**HOUSE, "src/CFG/Public.cpp": "", "src/CFG/xml/b.cpp": "#include <CFG/detail/shared.h>"})
if said != "src/CFG/detail/shared.h: only src/CFG/xml uses it, where it belongs\n":
    faults.append(f"a helper of one room: said '{said}'")
print("\n".join(faults) if faults else f"{len(ROWS)} rows")
sys.exit(1 if faults else 0)
