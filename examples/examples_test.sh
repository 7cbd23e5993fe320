#!/bin/sh
# The server and the client talk: within tests/realm.sh, examples_test.sh PROGRAMS LIBRARIES.
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
[mechanism.properties]
authentication = true
authorization = true
single_sign_on = false
rank = 1
[mechanism.settings]
keytab_file = "$REALM/service.keytab"
END
port=$((20000 + $$ % 20000))
for logon in "authcid=alice password=Alice1" "authcid=alice password=wrong"; do
    "$programs/session_server" "$folder/qxgss.conf" $port >"$folder/server" &
    server=$!
    status=2
    for _ in 1 2 3 4 5 6 7 8 9 10; do # until the server listens
        status=0
        echo "$logon" | "$programs/session_client" "$folder/qxgss.conf" $port host@localhost "good day" \
            >"$folder/client" 2>"$folder/failure" || status=$?
        test $status -ne 2 && break
        sleep 0.2
    done
    wait $server || echo "server: $?" >>"$folder/server"
    cat "$folder/server" "$folder/client" "$folder/failure"
    if [ "$logon" = "authcid=alice password=Alice1" ]; then
        test $status -eq 0
        printf 'Kerberos: user alice@QXNEGO.TEST\nended\n' | cmp - "$folder/server"
        echo "good day" | cmp - "$folder/client"
    else
        test $status -eq 1
        grep -q '^Kerberos: ' "$folder/failure"
        grep -q '^server: 1' "$folder/server"
    fi
done
