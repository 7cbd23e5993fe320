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
measure "${rooms[@]/#/--filter=}" --json -o "$build/coverage.json"
for room in "${rooms[@]}"; do
    echo "$room: $(measure -a "$build/coverage.json" --filter="$room/" --print-summary -o "$build/room.txt" | xargs)"
done
measure -a "$build/coverage.json"
