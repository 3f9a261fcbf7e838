#!/usr/bin/env python3
"""Counts the lines of code of product and tests; tests stay below a third of the product.

Usage: scripts/count_lines.py [FOLDER]...

A line counts unless it is blank or a comment. Tests are tests/, web/tests/ and reference/; all other
code is product. What is generated, data and prose is left out.
"""

import collections
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CODE = re.compile(r"\.(cpp|h|c|py|pyi|sh|js|mjs|css|html|cmake)$|CMakeLists\.txt$|^(run|test)$")
COMMENT = re.compile(r"//|\*|#(?!\s*(include|define|undef|if|el|endif|error|pragma))")


def lines_of(path):
    lines = (line.strip() for line in path.read_text(errors="replace").splitlines())
    return sum(1 for line in lines if line and not COMMENT.match(line))


def main():
    names = subprocess.run(["git", "-C", ROOT, "ls-files", *sys.argv[1:]], check=True,
                           stdout=subprocess.PIPE, text=True).stdout.splitlines()
    counts = collections.Counter()
    for name in filter(CODE.search, names):
        folder = name.split("/")[0] if "/" in name else "."
        counts["web/tests" if name.startswith("web/tests/") else folder] += lines_of(ROOT / name)
    for folder, count in sorted(counts.items()):
        print(f"{count:7} {folder}")
    tests = sum(counts[folder] for folder in ("tests", "web/tests", "reference"))
    product = counts.total() - tests
    share = f": {100 * tests / product:.1f} %" if product else ""
    print(f"{tests} lines of tests beside {product} of the product{share}")


if __name__ == "__main__":
    main()
