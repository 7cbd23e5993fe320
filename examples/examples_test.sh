#!/bin/sh
# The servers and the clients talk, and a program of the host's library is told the story: within tests/realm.sh,
# examples_test.sh PROGRAMS LIBRARIES.
set -eu
programs=$1 libraries=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cat >"$folder/qxgss.conf" <<END
library_path = "$libraries"
[[mechanism]]
name = "QXNEGO"
oid = "1.3.6.1.4.1.32473.1.1"
library = "libgssp2qxnego.so"
prefix = "QXNEGO"
negotiates = [ { oid = "1.2.840.113554.1.2.2" } ]
[[mechanism]]
name = "Kerberos"
oid = "1.2.840.113554.1.2.2"
library = "libhostgss.so"
prefix = "HOSTGSS"
properties = { authentication = true, authorization = true, single_sign_on = true, rank = 1 }
settings = { keytab_file = "$REALM/service.keytab" }
[policy.users]
"alice@QXNEGO.TEST" = [ "Kerberos" ]
END
port=$((20000 + $$ % 20000))

# talk PAIR LOGON: the server's standard output and exit status in "server", the client's output and status.
talk() {
    "$programs/$1_server" "$folder/qxgss.conf" $port >"$folder/server" 2>"$folder/why" &
    server=$!
    for _ in 1 2 3 4 5 6 7 8 9 10; do # until the server listens
        status=0
        echo "$2" | "$programs/$1_client" "$folder/qxgss.conf" $port host@localhost "good day" \
            >"$folder/client" 2>"$folder/failure" || status=$?
        test $status -ne 2 && break
        sleep 0.2
    done
    wait $server || echo "server: $?" >>"$folder/server"
    cat "$folder/server" "$folder/why" "$folder/client" "$folder/failure"
}

for pair in session table; do
    talk $pair "authcid=alice password=Alice1"
    test $status -eq 0
    grep -qx 'Kerberos: user alice@QXNEGO.TEST' "$folder/server"
    ! grep -q '^server:' "$folder/server"
    echo "good day" | cmp - "$folder/client"
    talk $pair "authcid=alice password=wrong"
    test $status -eq 1
    grep -q 'Kerberos\|could not find any mechanisms' "$folder/failure"
    grep -q '^server: 1' "$folder/server"
done

# The host's library loads the bridge, which finds the same configuration.
printf 'qxnego 1.3.6.1.4.1.32473.1.1 %s/libqxnego-gssapi.so\n' "$libraries" >"$folder/mech.conf"
echo Alice1 | kinit alice >/dev/null
suppressions=$(dirname "$(readlink -f "$0")")/../tests/lsan.supp
export QXGSS_CONF="$folder/qxgss.conf" GSS_MECH_CONFIG="$folder/mech.conf" KRB5_KTNAME="$REALM/service.keytab"
LSAN_OPTIONS="suppressions=$suppressions:print_suppressions=0" "$programs/gssapi_story" host@localhost | tee "$folder/story"
grep -q '"Kerberos"' "$folder/story"
