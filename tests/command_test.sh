#!/bin/sh
# The command from outside: the demo ends as it should and leaves nothing behind; what dump, mechs, status, try and the
# others say; wrong input gives one line and its exit status. Usage: command_test.sh QXNEGO VERIFIERS
set -u
qxnego=$1 verifiers=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export QXGSS_CONF="$folder/qxgss.conf" TMPDIR="$folder/tmp"
mkdir "$TMPDIR" "$folder/lib"
cp "$verifiers" "$folder/verifiers"
failures=0

# fail TEXT: a failure, with what the command said last.
fail() {
    echo "$1"
    cat "$folder/out" "$folder/err"
    failures=$((failures + 1))
}

# expect STATUS PATTERN ARGUMENT...: the exit status, and a pattern that the output and the error lines must contain. An
# error is one line.
expect() {
    status=$1 pattern=$2
    shift 2
    "$qxnego" "$@" >"$folder/out" 2>"$folder/err" <"${input:-/dev/null}"
    actual=$?
    if [ "$actual" -ne "$status" ] || ! cat "$folder/out" "$folder/err" | grep -q -- "$pattern" ||
        [ "$(wc -l <"$folder/err")" -ne "$((status != 0))" ]; then
        fail "qxnego $*: status $actual, expected $status and \"$pattern\""
    fi
}

# also PATTERN...: the output of the command before has these, too.
also() {
    for pattern; do
        grep -q -- "$pattern" "$folder/out" || fail "\"$pattern\" is missing"
    done
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

expect 0 'nothing-in-common  -  *as expected' demo --full --save "$folder/saved"
[ "$(awk '!/^  [|]/ && length > 100' "$folder/out" | wc -l)" -eq 0 ] || fail "a line outside the logs is too wide"
[ "$(grep -c '^  [a-z-]*  *[S-].*as expected$' "$folder/out")" -eq 7 ] || fail "not seven scenarios"
also 'accept_sec_context  GSS_S_COMPLETE' '^  | *Mechanism: '
for form in '' --brief; do
    # shellcheck disable=SC2086 # no argument, or one
    expect 0 '^  SCRAM-SHA-256  Rejected *Rejected *rejected *Due to Policy' demo policy $form
    also '^Next: demo policy --full'
    [ "$(grep -c 'expected' "$folder/out")" -eq 2 ] || fail "something is printed twice"
    ! grep -q sec_context "$folder/out" || fail "not the brief form"
done
ln -s "$(dirname "$qxnego")/../lib/libgssp2qxnego.so" "$folder/lib" # without the library of its mechanisms
expect 1 'libscram.so' demo both --library-path "$folder/lib"
expect 2 'subcommand is required'
expect 2 'no subcommand or option "mehcs" (see qxnego --help)' mehcs
expect 2 '-.nope (see qxnego mechs --help)' mechs --nope
expect 2 'nope' demo nope
for form in 'log FILE' 'try --user bob --offer' 'connect ADDRESS'; do
    # shellcheck disable=SC2086 # words
    expect 2 "${form##* } is required" ${form% *}
done
expect 2 'has no libgssp2qxnego.so' demo --library-path "$folder"
# A signal at any moment ends it cleanly: before it has begun, while it works, or too late to matter.
for delay in 0.05 0.1 0.2 0.4; do
    "$qxnego" demo >"$folder/out" 2>"$folder/err" &
    sleep "$delay"
    kill -TERM $! 2>/dev/null
    wait $!
    status=$?
    case $status in 143 | 130 | 0) ;; *) fail "after a signal the status is $status" ;; esac
done
[ -z "$(ls "$TMPDIR")" ] || fail "temporary folders are left"

# What dump shows of user properties is what the older names show: the records, then the log.
properties="$folder/saved/wrong-password/server.properties"
expect 0 '  20  qxnegolog .*negotiation log' properties "$properties"
cp "$folder/out" "$folder/whole"
expect 0 'SCRAM-SHA-256  Rejected  GSSAPI Error' log "$properties"
cat "$folder/out" >>"$folder/whole"
for form in cat base64 'od -An -v -tx1'; do
    $form "$properties" >"$folder/text"
    expect 0 '' dump "$folder/text"
    cmp "$folder/out" "$folder/whole" || fail "$form differs"
done
expect 0 '"name": "qxnegolog"' dump --json "$properties"
expect 0 'SCRAM-SHA-256  Available  Available' dump "$folder/saved/wrong-password/client.log"
head -c 200 "$properties" >"$folder/cut"
expect 2 'token-1-client: holds no user properties' properties "$folder/saved/both/token-1-client"
for command in dump properties; do
    expect 2 'no record begins at byte 16' $command "$folder/cut"
done
expect 2 'holds no negotiation log' log "$folder/saved/both/token-1-client"
! "$qxnego" --help | grep -q '^  log' || fail "an older name is in the help"

token="$folder/saved/both/token-1-client"
expect 0 '^ *22  6e 2c 2c .* n,,n=alice,r=' dump --inner "$token"
expect 0 '"name": "authentication ID"' dump --json "$token"
inner=$(head -c 30 "$token" | tail -c 8 | od -An -tx1 | tr -d ' ')
! grep -q "$inner" "$folder/out" || fail "the contents of an inner token are shown without --inner"
expect 0 '^ *20 .*\[6\] inner token .*SCRAM client-first$' dump "$token"
cp "$folder/out" "$folder/whole"
base64 "$token" >"$folder/text"
input="$folder/text" expect 0 '^INIT token of' dump
cmp "$folder/out" "$folder/whole" || fail "base64 of a pipe differs"
head -c 60 "$token" >"$folder/cut"
expect 1 'Byte 1 is wrong: the length is .* and only 58 bytes follow' dump "$folder/cut"
expect 1 '"valid": false' dump --json "$folder/cut"
printf 'a0:0d:a0:08:a0:06:80:01:01:81:01:01:81:01:09' >"$folder/state"
expect 1 '81 01 \[09\]$' dump "$folder/state"
for line in '' 'WWW-Authenticate: Negotiate '; do
    echo "${line}TlRMTVNTUAABAAAAAgIAAA==" >"$folder/text"
    expect 0 '^NTLMSSP NEGOTIATE of 16 bytes' dump "$folder/text"
done
printf 'a00' >"$folder/odd"
expect 2 'odd number' dump "$folder/odd"
expect 2 'neither a token nor' dump "$QXGSS_CONF"
expect 2 'No such file' dump "$folder/missing"

expect 1 '^  SCRAM-SHA-1  *1.3.6.1.5.5.14  *20  *yes  *yes  *authentication, authorization$' mechs
also 'not loaded: .*gone.so' 'not negotiable: it is not loaded' 'it is not listed' 'it is disabled in' \
    '1.2.3.6 is listed .* does not define it' '^  QXNEGO .*  yes  *-  ' 'verifiers can be read by everybody'
[ "$(grep -c 'not negotiable' "$folder/out")" -eq 3 ] || fail "QXNEGO does not negotiate itself"
expect 1 '"negotiable": true' mechs --json --client
sed 's/^name = "GONE"/&\nenabled = false/' "$QXGSS_CONF" >"$folder/sound"
expect 0 '"credential": true' mechs --json --config "$folder/sound"
expect 2 'there is no such file' mechs --config "$folder/missing"
expect 3 'state:1: ' mechs --config "$folder/state"

expect 0 'GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE$' status 0x020D0000 458752 E3000406 0xE1000065
also 'routine error GSS_S_NO_CRED: No credentials' 'of QXNEGO, NO_MECHANISM' 'severity error, component 1, message 101$'
expect 0 'The peer sent no token.' status --mechanism SCRAM-SHA-1 0x10B
expect 2 'is no status' status 0x100000000
expect 2 'no mechanism of the configuration' status --mechanism NONE 1

both=SCRAM-SHA-256,1.3.6.1.5.5.14,NTLMSSP
expect 0 'SCRAM-SHA-256  *Selected .* the first that is left,' try --user bob --offer "$both"
also 'NTLMSSP .* Not Available at Server' 'SCRAM-SHA-1  *Rejected .* SCRAM-SHA-256 comes before'
expect 0 'SCRAM-SHA-256  *Rejected .* Due to Policy ' try --user alice --offer "$both"
expect 0 'SCRAM-SHA-256  *Rejected .* Authorization Required ' try --user bob --as bob --offer "$both"
expect 0 'Selected: SCRAM-SHA-1' try --user bob --profile p --offer "$both"
expect 0 'the policy allows alice only' try --user bob --as alice --offer "$both"
expect 6 'no mechanism is selected' try --user carol --offer "$both"
expect 6 'SCRAM-SHA-1 .* Not Available at Client  *it is not in the offer' try --user alice --offer SCRAM-SHA-256
expect 0 'undecided\|selected' try --user bob --offer SCRAM-SHA-256,SCRAM-SHA-256
[ "$(grep -c '^  SCRAM-SHA-256' "$folder/out")" -eq 1 ] || fail "the same is offered twice"
expect 2 'neither a mechanism' try --user bob --offer NONE
expect 2 'must not be empty' try --user '' --offer "$both"

# The network's ends, where nothing comes of it. With --json they do not tell what is not loaded.
for address in localhost localhost:99999 ::1:80; do
    expect 2 "$address\": should be HOST:PORT" connect --json "$address"
done
expect 2 '/nonexistent: No such file' connect localhost:1 --file /nonexistent
expect 2 '/nonexistent: No such file' connect --json localhost:1 --logon-file /nonexistent
expect 2 'tmp: Is a directory' connect --json localhost:1 --logon-file "$TMPDIR"
printf '%070000d\n' 0 >"$folder/logon"
expect 2 'logon: its first line is too long' connect --json localhost:1 --logon-file "$folder/logon"
while IFS='|' read -r logon wrong; do # of a wrong item neither text nor value is shown
    expect 2 "logon string: item $wrong\$" connect localhost:1 --logon "$logon"
done <<'END'
authcid=alice pasword=secret|2 is unknown; "password=" is meant?
user=a autcid=b|2 is unknown; "authcid=" is meant?
Authcid=a passwordd=b|2 is unknown; "password=" is meant?
authcid=a password=two words|3 is not KEYWORD=VALUE .*
authcid='a''b' password="it's|2 has a quotation mark that is not closed
authcid=a password=|2 has no value
END
expect 2 'bench: Value 0 not in range' connect localhost:1 --bench 0
expect 2 'x.invalid:1: ' serve --json --listen x.invalid:1
expect 2 'max-clients' serve --max-clients none
for command in 'connect localhost:1' 'serve --listen localhost:0'; do
    # shellcheck disable=SC2086 # words
    expect 3 'state:1: ' $command --config "$folder/state"
done
expect 4 '127.0.0.1:1: Connection refused' connect --json 127.0.0.1:1 --logon 'cn=x@R@@p USER="u v",x y'
expect 4 'x.invalid:1: ' connect --json x.invalid:1

rm "$folder/verifiers"
expect 3 'QXNEGO is not in use' try --user bob --offer "$both"
sed 's/libscram/libscarm/' "$QXGSS_CONF" >"$folder/typo"
for command in 'connect localhost:1' 'serve --listen localhost:0'; do
    # shellcheck disable=SC2086 # words
    expect 3 'not in use; SCRAM-SHA-256: .*libscarm.so: cannot open' $command --config "$folder/typo"
done
expect 3 'not loaded: .*verifiers: No such file' mechs
exit "$failures"
