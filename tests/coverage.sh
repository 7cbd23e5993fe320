#!/usr/bin/env bash
# Lines and branches that the tests reach in the framework, the logon-data module and the mechanism: figures per file,
# then what is not reached. Usage: coverage.sh [BUILD-FOLDER]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source .ci/setup.sh
build=${1:-build/gcov}

need_packages "${build_packages[@]}" libgtest-dev python3
programs=(allocation_sweep_test asn_test engine_test entry_points_test framework_test loader_test
    logon_string_test negotiation_test records_test state_table_test texts_test token_sweep_test
    token_test)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="-O0 --coverage" >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target "${programs[@]}" >/dev/null
find "$build" -name '*.gcda' -delete
for program in "${programs[@]}"; do
    "$build/bin/$program" >"$build/output" || { cat "$build/output"; exit 1; }
done
exec python3 tests/coverage.py "$build" gssp2qxnego qxat qxgss
