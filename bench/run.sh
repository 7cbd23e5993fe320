#!/bin/bash
# Builds and runs the benchmarks and prints their figures, those of peers beside them where their packages are
# installed. Instructions and allocations do not depend on the machine's load; times are the least of five runs' CPU time.
#   bench/run.sh [BUILD-FOLDER]      figures and plot go to BUILD-FOLDER/results; default build/bench
# Needs valgrind, libbenchmark-dev, python3; for the peers libkrb5-dev and libssl-dev; for Kerberos krb5-kdc, krb5-user.
set -e
source=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$source/build/bench}
cd "$source"
if [ ! -e "$build/build.ninja" ]; then
    cmake --preset bench -B "$build" > /dev/null
fi
ninja -C "$build" bench/all > /dev/null

# Otherwise large copies and clears are one instruction that counts as many, and is slow on some virtual machines.
export GLIBC_TUNABLES=glibc.cpu.x86_rep_movsb_threshold=100000000:glibc.cpu.x86_rep_stosb_threshold=100000000
export KRB5_CONFIG=/dev/null
results=$build/results
rm -rf "$results"
mkdir -p "$results"

times() { # NAME PROGRAM ARGUMENTS...
    "$build/bin/$2" "${@:3}" --benchmark_repetitions=5 --benchmark_min_time="${MIN_TIME:-0.05}" \
        --benchmark_out="$results/$1.json" --benchmark_out_format=json > /dev/null 2>> "$results/errors"
}

counts() { # NAME PROGRAM ARGUMENTS...
    LD_PRELOAD=$build/lib/liballocation_counter.so "$build/bin/$2" "${@:3}" --counts >> "$results/allocations"
    valgrind -q --tool=callgrind --callgrind-out-file="$results/$1.callgrind" "$build/bin/$2" "${@:3}" --counts \
        > /dev/null 2>> "$results/errors"
}

for program in handshake_bench message_bench codec_bench log_bench asn1_bench; do
    [ -x "$build/bin/$program" ] || continue
    times $program $program
    counts $program $program
done
for legs in 1 2; do
    for candidates in 1 2 4 8 16 32 64; do
        [ -x "$build/bin/spnego_bench" ] && [ "$legs$candidates" != 264 ] || continue
        times spnego-$legs-$candidates spnego_bench $candidates $legs
        counts spnego-$legs-$candidates spnego_bench $candidates $legs
    done
done
if PATH=$PATH:/usr/sbin command -v krb5kdc > /dev/null; then
    (
        source tests/realm.sh
        export KRB5RCACHENAME=none:
        kinit -k -t "$REALM/client.keytab" alice
        times kerberos kerberos_bench
        counts kerberos kerberos_bench
        times bridge bridge_bench
        counts bridge bridge_bench
    )
fi
MIN_TIME=0.5 times many_bench many_bench

python3 bench/report.py "$results" | tee "$results/report.md"
