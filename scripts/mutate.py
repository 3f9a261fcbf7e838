#!/usr/bin/env python3
"""Changes the module's sources one small thing at a time and counts how many changes the tests notice.

Usage: scripts/mutate.py [--count N] [--seed S] [--only REGEX] [--without FILTER] [--levels LIST]

Works in a copy of the committed sources under build/mutants, never in the checkout. Each change builds
and runs the tests of its folder, then those for all operations; nothing is optimised. Changes that do
not compile do not count. Survivors are printed as FILE:LINE with the line before and after. Before a
test is removed, `--only` its sources `--without` it: nothing that it noticed may survive. `--levels sse2`
builds that processor level alone, in a third of the time; changes to what only higher levels do survive.
"""

import argparse
import pathlib
import random
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPY = ROOT / "build" / "mutants" / "source"
BUILD = ROOT / "build" / "mutants" / "build"
OPERATIONS = ["color", "transform", "filter", "maths"]
# Which tests notice changes of a folder, the likeliest first.
TESTS = {
    "image": ["image", *OPERATIONS, "solid"],
    "component": ["module", "solid"],
    "module": ["module", "solid"],
    **{folder: [folder, "solid"] for folder in OPERATIONS},
}
RUN = ["--gtest_fail_fast", "--gtest_brief=1"]
LEFT_OUT = "Threads.*:Loading.*"
SECONDS_PER_RUN = 200  # on a busy machine

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
        done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=seconds)
        return done.returncode == 0, done.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired:
        return False, "timed out"


def build(folder):
    targets = [word for test in TESTS[folder] for word in ("--target", f"{test}_tests")]
    return run(["cmake", "--build", BUILD, *targets], 1800)


def passes(folder, left_out):
    for test in TESTS[folder]:
        command = [BUILD / "tests" / f"{test}_tests", *RUN, f"--gtest_filter=-{left_out}"]
        passed, output = run(command, SECONDS_PER_RUN)
        if not passed:
            return False, output
    return True, ""


def prepare(folders, left_out, levels):
    """Brings the copy to what is committed, touching only what differs, and builds it."""
    listing = subprocess.run(["git", "-C", ROOT, "ls-tree", "-r", "-z", "--name-only", "HEAD"],
                             check=True, stdout=subprocess.PIPE).stdout.decode()
    names = [name for name in listing.split("\0") if name]
    kept = set(names)
    for path in COPY.rglob("*"):
        if path.is_file() and str(path.relative_to(COPY)) not in kept:
            path.unlink()
    for name in names:
        shown = subprocess.run(["git", "-C", ROOT, "show", f"HEAD:{name}"], check=True,
                               stdout=subprocess.PIPE).stdout
        path = COPY / name
        if not path.exists() or path.read_bytes() != shown:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(shown)
            path.chmod(0o755 if shown.startswith(b"#!") else 0o644)
    configure = ["cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=",
                 "-DCMAKE_CXX_FLAGS=-O1", "-DQEL_KERNEL_OPTIMISATION=-O1",
                 f"-DQEL_LEVELS={levels}"]
    done, output = run(configure, 600)
    for folder in folders:
        if done:
            done, output = build(folder)
        if done:
            done, output = passes(folder, left_out)
    if not done:
        sys.exit(f"the unchanged sources fail:\n{output[-3000:]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--count", type=int, default=50)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", default="", help="regular expression that file names must match")
    parser.add_argument("--without", default="", help="tests to leave out, as gtest_filter has them")
    parser.add_argument("--levels", default="sse2;avx2;avx512;avx512vbmi",
                        help="processor levels to build, the lowest first")
    arguments = parser.parse_args()
    left_out = ":".join(filter(None, [LEFT_OUT, arguments.without]))

    wanted = [path for folder in TESTS for path in sorted((ROOT / folder).rglob("*.[ch]*"))
              if path.suffix in (".h", ".cpp")
              and re.search(arguments.only, str(path.relative_to(ROOT)))]
    folder_of = {COPY / path.relative_to(ROOT): path.relative_to(ROOT).parts[0] for path in wanted}
    prepare(sorted(set(folder_of.values())), left_out, arguments.levels)
    sources = [path for path in folder_of if path.exists()]
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
        try:
            if build(folder_of[path])[0]:
                if passes(folder_of[path], left_out)[0]:
                    survived += 1
                    print(f"survived: {path.relative_to(COPY)}:{number + 1} ({rule})\n"
                          f"  {before.strip()}\n  {changed.strip()}", flush=True)
                else:
                    noticed += 1
        finally:
            path.write_text(original)
    total = noticed + survived
    print(f"{noticed} of {total} changes noticed" + (f", {100 * noticed / total:.1f} %" if total else ""))


if __name__ == "__main__":
    main()
