"""The figures that run.sh has left in a folder, as tables on the output and a plot (handshake.svg) in the folder."""
import glob
import json
import os
import re
import sys

REPETITIONS = 100  # as in cases.cpp


def read_times(folder):
    """Least CPU time of each case in ns, and the counters of that run."""
    least, counters = {}, {}
    for file in glob.glob(os.path.join(folder, "*.json")):
        for run in json.load(open(file))["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            name = run["run_name"]
            if run["cpu_time"] < least.get(name, float("inf")):
                least[name], counters[name] = run["cpu_time"], run
    return least, counters


def read_instructions(folder):
    counts = {}
    for file in glob.glob(os.path.join(folder, "*.callgrind.*")):
        text = open(file).read()
        name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        if name:
            counts[name[1]] = int(re.search(r"^totals: (\d+)", text, re.M)[1]) / REPETITIONS
    return counts


# Where the instructions of a handshake go, by function or else by the file or library that it is in.
PARTS = (
    ("allocator", r"malloc|calloc|realloc|free|_int_\w+|malloc_consolidate|unlink_chunk\S*|sysmalloc|systrim\S*|"
                  r"alloc_perturb|tcache\S*"),
    ("copying", r"__(mem|str)\S+|explicit_bzero|strndup"),
    ("clock", r"clock_gettime\S*"),
    ("mechanisms", r"\S*libnull_mechanism\.so"),
    ("codec", r".*/(asn_\w+|token_\w+)\.(cpp|h)"),
    ("log", r".*/log\.cpp"),
)


def part_of(function, file, library):
    for part, pattern in PARTS:
        if any(re.fullmatch(pattern, name) for name in (function, file, library)):
            return part
    return "rest"


def read_parts(folder, program):
    """Instructions of each case by part. A dump names each function once; later dumps give its number alone."""
    names, cases = {}, {}
    files = glob.glob(os.path.join(folder, program + ".callgrind.*"))
    for file in sorted(files, key=lambda name: int(name.rsplit(".", 1)[1])):
        at, parts, case, is_call = {}, {}, None, False
        for line in open(file):
            position = re.match(r"c?(fn|fl|fi|fe|ob)=\((\d+)\)(?: (.*))?$", line)
            if line.startswith("desc: Trigger: Client Request: "):
                case = line.split(": ", 3)[3].rstrip("\n")
            elif position:
                kind = "fl" if position[1] in ("fi", "fe") else position[1]
                if position[3] is not None:
                    names[kind, position[2]] = position[3]
                if line.startswith(("fn", "fl", "ob")):
                    at[kind] = names.get((kind, position[2]), "")
            elif line.startswith("calls="):
                is_call = True
            elif re.match(r"[-+*\d]", line):
                if not is_call:
                    part = part_of(at.get("fn", ""), at.get("fl", ""), at.get("ob", ""))
                    parts[part] = parts.get(part, 0) + int(line.split()[1]) / REPETITIONS
                is_call = False
        if case:
            cases[case] = parts
    return cases


def read_allocations(folder):
    rows = (line.rstrip("\n").split("\t") for line in open(os.path.join(folder, "allocations")))
    return {row[1]: float(row[2]) for row in rows}


class Figures:
    def __init__(self, folder):
        self.ns, self.counters = read_times(folder)
        self.instructions = read_instructions(folder)
        self.allocations = read_allocations(folder)

    def cells(self, name):
        kinds = (self.ns, self.instructions, self.allocations)
        return [f"{kind[name]:,.0f}" if name in kind else "-" for kind in kinds]

    def ratio(self, ours, theirs, kind):
        figures = getattr(self, kind)
        return f"{figures[ours] / figures[theirs]:.2f}" if ours in figures and theirs in figures else "-"


def table(title, head, rows):
    print(f"\n### {title}\n\n| {' | '.join(head)} |\n|{'---|' * len(head)}")
    for row in rows:
        print(f"| {' | '.join(row)} |")


THREE = ["ns", "instructions", "allocations"]


def beside_peer(figures, title, pairs):
    rows = []
    for label, ours, theirs in pairs:
        ratios = [figures.ratio(ours, theirs, kind) for kind in THREE]
        rows.append([label, *figures.cells(ours), *figures.cells(theirs), *ratios])
    head = ["case", *THREE, *[f"peer's {kind}" for kind in THREE], *[f"ratio, {kind}" for kind in THREE]]
    table(title, head, rows)


def handshakes(figures, legs):
    sizes = [n for n in (1, 2, 4, 8, 16, 32, 64) if f"handshake/legs:{legs}/candidates:{n}" in figures.instructions]
    return [(str(n), f"handshake/legs:{legs}/candidates:{n}", f"spnego/legs:{legs}/candidates:{n}") for n in sizes]


def breakdown(folder):
    cases = read_parts(folder, "handshake_bench")
    names = [part for part, _ in PARTS] + ["rest"]
    rows = [[case.split("/", 1)[1], *[f"{parts.get(name, 0):,.0f}" for name in names], f"{sum(parts.values()):,.0f}"]
            for case, parts in cases.items() if re.fullmatch(r"handshake/legs:1/candidates:[1248]", case)]
    table("Where the instructions of a handshake go", ["case", *names, "all"], rows)


def kerberos(figures):
    alone, negotiated = "kerberos/alone", "kerberos/negotiated"
    if alone not in figures.instructions:
        return
    rows = [[label, *figures.cells(name), *[figures.ratio(name, alone, kind) for kind in THREE]]
            for label, name in (("alone", alone), ("under QXNEGO", negotiated), ("in a session", "kerberos/session"))]
    table("A Kerberos handshake", ["case", *THREE, *[f"ratio, {kind}" for kind in THREE]], rows)


def bridge(figures):
    for work in ("handshake", "wrap and unwrap"):
        plain = f"host/{work}/plain"
        if plain not in figures.instructions:
            return
        rows = []
        for way in ("plain", "spnego", "bridge"):
            name = f"host/{work}/{way}"
            ratios = [figures.ratio(name, plain, kind) for kind in THREE]
            rows.append([way, *figures.cells(name), *ratios])
        table(f"Kerberos through the host's GSS-API library: {work}",
              ["way", *THREE, *[f"ratio, {kind}" for kind in THREE]], rows)


def messages(figures):
    rows = []
    for call in ("wrap", "unwrap", "get_mic", "verify_mic"):
        ours, direct = f"qxnego/{call}", f"direct/{call}"
        rows.append([call, f"{figures.ns[ours] - figures.ns[direct]:.1f}",
                     f"{figures.instructions[ours] - figures.instructions[direct]:.0f}",
                     f"{figures.allocations[ours] - figures.allocations[direct]:.0f}"])
    table("What a per-message call adds to the mechanism's own", ["call", *THREE], rows)


def log(figures):
    rows = [["record 64 events", *figures.cells("record"), "-"]]
    for name in sorted((n for n in figures.ns if n.startswith("render/")), key=lambda n: int(n.split(":")[1])):
        speed = figures.counters[name]["bytes_per_second"] / 1e6
        rows.append([f"render {name.split(':')[1]} records", *figures.cells(name), f"{speed:,.0f}"])
    table("Log", ["case", *THREE, "MB/s"], rows)


def many(figures):
    runs = [figures.counters[f"threads/real_time/threads:{n}"] for n in (1, 2)]
    speeds = [run["items_per_second"] for run in runs]
    rows = [["handshakes of 4 candidates a second, one thread", f"{speeds[0]:,.0f}"],
            ["the same on two threads", f"{speeds[1]:,.0f} ({speeds[1] / speeds[0]:.2f} times)"],
            ["CPU time of each, alone and beside another, ns", " and ".join(f"{run['cpu_time']:,.0f}" for run in runs)]]
    for candidates in (1, 4, 8):
        size = figures.counters[f"half_open/{candidates}/iterations:1"]["heap_bytes"]
        rows.append([f"bytes of the heap for a half-open context of {candidates} candidates", f"{size:,.0f}"])
    table("Many at once", ["case", "figure"], rows)


def plot(figures, file):
    """Instructions of a handshake over its candidates, both axes logarithmic."""
    width, height, left, bottom, low = 640, 400, 70, 350, 1e4

    def x(candidates):
        return left + 85 * (candidates.bit_length() - 1)

    def y(instructions):
        steps = 0.0
        while instructions > low * 1.0001:
            instructions, steps = instructions / 1.0905077326652577, steps + 1  # 2 ** (1 / 8)
        return bottom - steps * 5

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" font-family="sans-serif" '
           'font-size="12"><rect width="100%" height="100%" fill="white"/>',
           f'<text x="{left}" y="20">Instructions of a handshake, one leg, over its candidates</text>']
    for n in (1, 2, 4, 8, 16, 32, 64):
        out.append(f'<text x="{x(n)}" y="{bottom + 20}" text-anchor="middle">{n}</text>')
    for value in (1e4, 3e4, 1e5, 3e5, 1e6):
        out.append(f'<line x1="{left}" x2="{width - 40}" y1="{y(value):.0f}" y2="{y(value):.0f}" stroke="#ddd"/>'
                   f'<text x="{left - 8}" y="{y(value) + 4:.0f}" text-anchor="end">{value:,.0f}</text>')
    for i, (label, prefix, colour) in enumerate((("QXNEGO, full log", "handshake", "#1f5fa8"),
                                                 ("system's SPNEGO", "spnego", "#b04a2f"))):
        points = [(x(n), y(figures.instructions[name])) for n in (1, 2, 4, 8, 16, 32, 64)
                  if (name := f"{prefix}/legs:1/candidates:{n}") in figures.instructions]
        path = " ".join(f"{px},{py:.1f}" for px, py in points)
        out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
                   f'<text x="{left + 20}" y="{45 + 18 * i}" fill="{colour}">{label}</text>')
    open(file, "w").write("\n".join(out) + "\n</svg>\n")


def main(folder):
    figures = Figures(folder)
    for legs in (1, 2):
        beside_peer(figures, f"Handshake, {legs} leg{'s' if legs == 2 else ''}, over its candidates (peer: the "
                    "system's GSS-API library and its negotiation layer)", handshakes(figures, legs))
    breakdown(folder)
    kerberos(figures)
    bridge(figures)
    messages(figures)
    sizes = ("entries:1", "entries:4", "entries:16", "entries:64", "entries:200", "largest")
    beside_peer(figures, "Codec (peer: OpenSSL's ASN.1 templates)",
                [(f"{way} {size}", f"{way}/{size}", f"templates/{way}/{size}")
                 for way in ("encode", "decode") for size in sizes])
    log(figures)
    many(figures)
    plot(figures, os.path.join(folder, "handshake.svg"))


main(sys.argv[1])
