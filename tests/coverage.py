"""Figures of what the tests reached, from gcov's records of a build with --coverage.

Usage: coverage.py BUILD-FOLDER FOLDER...

Prints, for each source file below the folders, the lines and branches reached, and then each that is not. A branch that
only an exception takes out of a call does not count.
"""

import collections
import json
import pathlib
import subprocess
import sys


def records(build):
    """gcov's record of every object that ran."""
    for counts in sorted(build.rglob("*.gcda")):
        gcov = ["gcov", "--json-format", "--branch-probabilities", "--stdout", counts.resolve()]
        output = subprocess.run(gcov, cwd=build, capture_output=True, check=True).stdout
        yield from json.loads(output)["files"]


def collect(build, folders):
    """{file: {line: [count, [count of each branch]]}}, summed over the objects that hold the file."""
    root = pathlib.Path.cwd()
    files = collections.defaultdict(dict)
    for record in records(build):
        path = (build / record["file"]).resolve()
        name = str(path.relative_to(root)) if path.is_relative_to(root) else ""
        if not name.startswith(folders):
            continue
        for line in record["lines"]:
            branches = [b["count"] for b in line["branches"] if not b["throw"]]
            total = files[name].setdefault(line["line_number"], [0, []])
            total[0] += line["count"]
            width = max(len(total[1]), len(branches))
            pad = lambda counts: counts + [0] * (width - len(counts))
            total[1] = [a + b for a, b in zip(pad(total[1]), pad(branches))]
    return files


def main():
    build, folders = pathlib.Path(sys.argv[1]), tuple(f"{folder}/" for folder in sys.argv[2:])
    missed, sums = [], [0, 0, 0, 0]
    print(f"{'file':<52}{'lines':>14}{'branches':>14}")
    for name, lines in sorted(collect(build, folders).items()):
        branches = [count for _, counts in lines.values() for count in counts]
        figures = [sum(count > 0 for count, _ in lines.values()), len(lines), sum(c > 0 for c in branches), len(branches)]
        sums = [a + b for a, b in zip(sums, figures)]
        print(f"{name:<52}{figures[0]:>5} of{figures[1]:>5} {figures[2]:>6} of{figures[3]:>5}")
        for number, (count, counts) in sorted(lines.items()):
            if count == 0:
                missed.append(f"{name}:{number}: line")
            elif 0 in counts:
                missed.append(f"{name}:{number}: {counts.count(0)} of {len(counts)} branches")
    print(f"{'all':<52}{sums[0]:>5} of{sums[1]:>5} {sums[2]:>6} of{sums[3]:>5}\n\nNot reached:")
    print("\n".join(missed))


main()
