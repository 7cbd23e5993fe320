#!/bin/sh
# The demo from outside: every scenario ends as it should and leaves nothing behind, what it saves can be read back, and
# wrong input gives one line and its exit status. Usage: demo_test.sh QXNEGO
set -u
qxnego=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export TMPDIR="$folder/tmp"
mkdir "$TMPDIR"
failures=0

# expect STATUS PATTERN ARGUMENT...: the exit status, and a pattern that the output and the error lines must contain.
expect() {
    status=$1 pattern=$2
    shift 2
    "$qxnego" "$@" >"$folder/out" 2>"$folder/err" </dev/null
    actual=$?
    if [ "$actual" -ne "$status" ] || ! cat "$folder/out" "$folder/err" | grep -q -- "$pattern"; then
        echo "qxnego $*: status $actual, expected $status and \"$pattern\""
        cat "$folder/out" "$folder/err"
        failures=$((failures + 1))
    fi
    if [ "$status" -eq 2 ] && [ "$(wc -l <"$folder/err")" -ne 1 ]; then
        echo "qxnego $*: the error is not one line"
        failures=$((failures + 1))
    fi
}

# check TEXT COMMAND...: the command succeeds.
check() {
    text=$1
    shift
    "$@" || {
        echo "$text"
        failures=$((failures + 1))
    }
}

expect 0 'nothing-in-common  -  *as expected' demo --save "$folder/saved"
check "a line outside the logs is wider than 100" test "$(awk '!/^  [|]/ && length > 100' "$folder/out" | wc -l)" -eq 0
check "not seven scenarios" test "$(grep -c '^  [a-z-]*  *[S-].*as expected$' "$folder/out")" -eq 7
expect 0 '^  SCRAM-SHA-256  Rejected *Rejected *rejected *Due to Policy' demo policy --brief

expect 0 '  20  qxnegolog .*negotiation log' properties "$folder/saved/both/server.properties"
expect 0 'SCRAM-SHA-256  Rejected  GSSAPI Error' log "$folder/saved/wrong-password/server.properties"
expect 0 'SCRAM-SHA-256  Available  Available' log "$folder/saved/wrong-password/client.log"
head -c 200 "$folder/saved/both/server.properties" >"$folder/cut"
expect 2 'no record begins at byte 88' properties "$folder/cut"
expect 2 'holds no negotiation log' log "$folder/saved/both/token-1-client"

# Without the library of its mechanisms nothing can be negotiated.
mkdir "$folder/lib"
ln -s "$(dirname "$qxnego")/../lib/libgssp2qxnego.so" "$folder/lib"
expect 1 'libscram.so' demo both --library-path "$folder/lib"

expect 2 'subcommand is required'
expect 2 'nope' demo nope
expect 2 '--nope' demo --nope
expect 2 'has no libgssp2qxnego.so' demo --library-path "$folder"
expect 2 'FILE is required' log
expect 2 'No such file' properties "$folder/missing"

# A signal at any moment ends it cleanly: before it has begun, while it works, or too late to matter.
for delay in 0.05 0.1 0.2 0.4; do
    "$qxnego" demo >"$folder/out" 2>"$folder/err" &
    sleep "$delay"
    kill -TERM $! 2>/dev/null
    wait $!
    status=$?
    check "after a signal the status is $status" test "$status" -eq 143 -o "$status" -eq 130 -o "$status" -eq 0
done

check "temporary folders are left" test -z "$(ls "$TMPDIR")"
exit "$failures"
