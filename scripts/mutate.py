#!/usr/bin/env python3
"""Changes the module's sources one small thing at a time and counts how many changes the tests notice.

Usage: scripts/mutate.py [--count N] [--seed S] [--only REGEX]

Works in a copy of the committed sources under build/mutants, never in the checkout. Changes that do
not compile do not count. Survivors are printed as FILE:LINE with the line before and after.
"""

import argparse
import pathlib
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ["image", "module", "color", "transform", "filter", "maths"]
TESTS = "^(image|module|color|transform|filter|maths|solid)$"
SECONDS_PER_RUN = 300

# What is looked for, and what it becomes; the first group stays.
RULES = [
    ("relation", re.compile(r"(?<=[\w)\]] )<(?= [\w(])"), "<="),
    ("relation", re.compile(r"(?<=[\w)\]] )<=(?= [\w(])"), "<"),
    ("relation", re.compile(r"(?<=[\w)\]] )>(?= [\w(-])"), ">="),
    ("relation", re.compile(r"(?<=[\w)\]] )>=(?= [\w(-])"), ">"),
    ("relation", re.compile(r"(?<= )==(?= )"), "!="),
    ("relation", re.compile(r"(?<= )!=(?= )"), "=="),
    ("relation", re.compile(r"(?<= )&&(?= )"), "||"),
    ("arithmetic", re.compile(r"(?<=[\w)\]] )\+(?= [\w(])"), "-"),
    ("arithmetic", re.compile(r"(?<=[\w)\]] )-(?= [\w(])"), "+"),
    ("arithmetic", re.compile(r"(?<=[\w)\]] )\*(?= [\w(])"), "+"),
    ("constant", re.compile(r"(?<![\w.\"'])(\d+)(?![\w.\"'])"), None),
    ("reference", re.compile(r"^\s*\w[\w.>()-]*(AddRef|Release|Reset)\(\);$"), ""),
]


def strip_comment(line):
    return line.split("//")[0]


def candidates(path):
    """All changes of one file: (line number, rule name, new line)."""
    found = []
    for number, line in enumerate(path.read_text().split("\n")):
        code = strip_comment(line)
        if code.lstrip().startswith(("#", "template", "static_assert", "using", "namespace")):
            continue
        for name, pattern, replacement in RULES:
            for match in pattern.finditer(code):
                text = replacement
                if text is None:
                    text = str(int(match.group()) + 1)
                found.append((number, name, line[: match.start()] + text + line[match.end() :]))
    return found


def run(command, seconds):
    try:
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=seconds)
        return done.returncode, done.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired:
        return 1, "timed out"


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=50)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="", help="regular expression that file names must match")
    arguments = parser.parse_args()

    copy = ROOT / "build" / "mutants" / "source"
    build = ROOT / "build" / "mutants" / "build"
    shutil.rmtree(copy, ignore_errors=True)
    copy.mkdir(parents=True)
    archive = subprocess.run(["git", "-C", ROOT, "archive", "HEAD"], check=True, stdout=subprocess.PIPE)
    subprocess.run(["tar", "-x", "-C", copy], input=archive.stdout, check=True)
    configure = ["cmake", "-S", copy, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"]
    test = ["ctest", "--test-dir", build, "-R", TESTS, "--stop-on-failure", "-j2"]
    for command in (configure, ["cmake", "--build", build], test):
        code, output = run([str(word) for word in command], 3600)
        if code != 0:
            sys.exit(f"the unchanged sources fail:\n{output[-3000:]}")

    sources = [path for folder in FOLDERS for path in sorted((copy / folder).glob("*.[ch]*"))
               if path.suffix in (".h", ".cpp") and re.search(arguments.only, str(path))]
    everything = [(path, *change) for path in sources for change in candidates(path)]
    random.Random(arguments.seed).shuffle(everything)
    noticed = survived = 0
    for path, number, rule, changed in everything:
        if noticed + survived == arguments.count:
            break
        original = path.read_text()
        lines = original.split("\n")
        before, lines[number] = lines[number], changed
        path.write_text("\n".join(lines))
        code, _ = run(["cmake", "--build", str(build)], 1800)
        if code == 0:
            code, _ = run([str(word) for word in test], SECONDS_PER_RUN)
            if code != 0:
                noticed += 1
            else:
                survived += 1
                place = path.relative_to(copy)
                print(f"survived: {place}:{number + 1} ({rule})\n  {before.strip()}\n  {changed.strip()}",
                      flush=True)
        path.write_text(original)
    total = noticed + survived
    print(f"{noticed} of {total} changes noticed" + (f", {100 * noticed / total:.1f} %" if total else ""))


if __name__ == "__main__":
    main()
