#!/bin/sh
# The commands that ask why, from outside: dump, mechs, status and try. Usage: command_test.sh QXNEGO VERIFIERS
set -u
qxnego=$1 verifiers=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export QXGSS_CONF="$folder/qxgss.conf"
cp "$verifiers" "$folder/verifiers"
failures=0

# expect STATUS PATTERN ARGUMENT...: the exit status, and a pattern that the output and the error lines must contain. An
# error is one line.
expect() {
    status=$1 pattern=$2
    shift 2
    "$qxnego" "$@" >"$folder/out" 2>"$folder/err" <"${input:-/dev/null}"
    actual=$?
    if [ "$actual" -ne "$status" ] || ! cat "$folder/out" "$folder/err" | grep -q -- "$pattern" ||
        [ "$(wc -l <"$folder/err")" -ne "$((status != 0))" ]; then
        echo "qxnego $*: status $actual, expected $status and \"$pattern\""
        cat "$folder/out" "$folder/err"
        failures=$((failures + 1))
    fi
}

# mechanism NAME OID PREFIX RANK AUTHORIZATION: an entry of the configuration file.
mechanism() {
    printf '[[mechanism]]\nname = "%s"\noid = "%s"\nlibrary = "libscram.so"\nprefix = "%s"\n' "$1" "$2" "$3"
    printf 'settings = { verifiers_file = "verifiers" }\n'
    printf 'properties = { authentication = true, single_sign_on = false, rank = %s, authorization = %s }\n' "$4" "$5"
}

{
    printf 'library_path = "%s"\n' "$(dirname "$qxnego")/../lib"
    printf '[[mechanism]]\nname = "QXNEGO"\noid = "1.3.6.1.4.1.32473.1.1"\nlibrary = "libgssp2qxnego.so"\n'
    printf 'prefix = "QXNEGO"\nnegotiates = [ { oid = "1.3.6.1.5.5.18" }, { oid = "1.3.6.1.5.5.14" },\n'
    printf '  { oid = "1.2.3.5" }, { oid = "1.2.3.6" }, { oid = "1.2.3.7", enabled = false } ]\n'
    mechanism SCRAM-SHA-256 1.3.6.1.5.5.18 SCRAM_SHA_256 10 false
    mechanism SCRAM-SHA-1 1.3.6.1.5.5.14 SCRAM_SHA_1 20 true
    mechanism UNLISTED 1.2.3.4 SCRAM_SHA_1 30 true
    printf '[[mechanism]]\nname = "GONE"\noid = "1.2.3.5"\nlibrary = "gone.so"\nprefix = "GONE"\n'
    mechanism OFF 1.2.3.7 SCRAM_SHA_1 40 true
    printf '[policy.users]\nalice = ["SCRAM-SHA-1"]\ncarol = ["UNLISTED"]\n'
} >"$QXGSS_CONF"

"$qxnego" demo both --brief --save "$folder" >"$folder/out" || failures=1
token="$folder/both/token-1-client"
expect 0 '^ *20 .*\[6\] inner token .*SCRAM client-first$' dump "$token"
expect 0 '^ *22  6e 2c 2c .* n,,n=alice,r=' dump --inner "$token"
expect 0 '"name": "authentication ID"' dump --json "$token"
if "$qxnego" dump "$token" --json | grep -q "$(head -c 30 "$token" | tail -c 8 | od -An -tx1 | tr -d ' ')"; then
    echo "the contents of an inner token are shown without --inner"
    failures=$((failures + 1))
fi
"$qxnego" dump "$token" >"$folder/whole"
for form in base64 'od -An -v -tx1'; do
    $form "$token" >"$folder/text"
    input="$folder/text" expect 0 '^INIT token of' dump
    cmp "$folder/out" "$folder/whole" || failures=$((failures + 1))
done
head -c 60 "$token" >"$folder/cut"
expect 1 'Byte 1 is wrong: the length is .* and only 58 bytes follow' dump "$folder/cut"
expect 1 '"valid": false' dump --json "$folder/cut"
printf 'a0:0d:a0:08:a0:06:80:01:01:81:01:01:81:01:09' >"$folder/state"
expect 1 '81 01 \[09\]$' dump "$folder/state"
printf 'a00' >"$folder/odd"
expect 2 'odd number' dump "$folder/odd"
expect 2 'neither a token nor' dump "$QXGSS_CONF"
expect 2 'No such file' dump "$folder/missing"

expect 0 '^  SCRAM-SHA-1  *1.3.6.1.5.5.14  *20  *yes  *yes  *authentication, authorization$' mechs
for line in 'not loaded: .*gone.so' 'not negotiable: it is not loaded' 'it is not listed' 'it is disabled in' \
    '1.2.3.6 is listed .* does not define it'; do
    grep -q "$line" "$folder/out" || { echo "mechs does not say: $line"; failures=$((failures + 1)); }
done
expect 0 '"negotiable": true' mechs --json --client
expect 2 'there is no such file' mechs --config "$folder/missing"
expect 3 'state:1: ' mechs --config "$folder/state"

expect 0 'GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE$' status 0x020D0000
expect 0 'routine error GSS_S_NO_CRED: No credentials' status 458752
expect 0 'of QXNEGO, NO_MECHANISM' status E3000406
expect 0 'severity error, component 1, message 101$' status 0xE1000065
expect 0 'The peer sent no token.' status --mechanism SCRAM-SHA-1 0x10B
expect 2 'is no status' status 0x100000000
expect 2 'no mechanism of the configuration' status --mechanism NONE 1

both=SCRAM-SHA-256,1.3.6.1.5.5.14,NTLMSSP
expect 0 'SCRAM-SHA-256  *Selected .* the first that is left,$' try --user bob --offer "$both"
expect 0 'NTLMSSP .* Not Available at Server' try --user bob --offer "$both"
expect 0 'SCRAM-SHA-1  *Rejected .* SCRAM-SHA-256 comes before' try --user bob --offer "$both"
expect 0 'SCRAM-SHA-256  *Rejected .* Due to Policy ' try --user alice --offer "$both"
expect 0 'SCRAM-SHA-256  *Rejected .* Authorization Required ' try --user bob --as bob --offer "$both"
expect 0 'Selected: SCRAM-SHA-1' try --user bob --profile p --offer "$both"
expect 0 'the policy allows alice only' try --user bob --as alice --offer "$both"
expect 6 'no mechanism is selected' try --user carol --offer "$both"
expect 6 'SCRAM-SHA-1 .* Not Available at Client  *it is not in the offer' try --user alice --offer SCRAM-SHA-256
expect 2 'neither a mechanism' try --user bob --offer NONE
expect 2 'must not be empty' try --user '' --offer "$both"
expect 2 'offer is required' try --user bob

rm "$folder/verifiers"
expect 3 'QXNEGO is not in use' try --user bob --offer "$both"
expect 0 'not loaded: .*verifiers: No such file' mechs
exit "$failures"
