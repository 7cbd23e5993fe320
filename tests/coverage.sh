#!/usr/bin/env bash
# Lines and branches that all tests reach, by folder; then, by file, what they do not. Branches that only an exception
# takes do not count. Usage: coverage.sh [BUILD-FOLDER]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source .ci/setup.sh
build=${1:-build/gcov}
rooms=(bridge common gssp2qxnego mechanisms/hostgss mechanisms/scram qxat qxgss session tools)

need_packages "${build_packages[@]}" "${test_packages[@]}" gcovr
quietly cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_{C,CXX}_FLAGS="-O0 --coverage -fprofile-update=atomic"
quietly cmake --build "$build" --parallel "$(nproc)"
find "$build" -name '*.gcda' -delete
quietly ctest --test-dir "$build" --output-on-failure --exclude-regex '^(install|replay)'
measure() { gcovr --root . "$build" --exclude-throw-branches --exclude-unreachable-branches "$@"; }
measure "${rooms[@]/#/--filter=}" --json-summary -o "$build/coverage.json"
python3 - "$build/coverage.json" "${rooms[@]}" <<'P'
import json, sys
files = json.load(open(sys.argv[1]))["files"]
print("| Folder | Lines | Branches |\n|---|---:|---:|")
for room in sys.argv[2:]:
    rows = [file for file in files if file["filename"].startswith(room + "/")]
    of = lambda what: sum(row[what] for row in rows)
    print("| `%s/` | %d of %d | %d of %d |" % (
        room, of("line_covered"), of("line_total"), of("branch_covered"), of("branch_total")))
P
measure "${rooms[@]/#/--filter=}"
