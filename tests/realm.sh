#!/bin/bash
# A private Kerberos realm and NTLM user file on loopback, everything inside one folder, for tests of real mechanisms.
# Needs no privileges and touches nothing of the host's own Kerberos configuration.
#
#   realm.sh COMMAND ARGUMENT...  runs the command in the realm, which ends with it
#   source realm.sh               goes on in the realm until this shell ends
#
# Realm QXNEGO.TEST: user alice (password Alice1), service host/localhost. $REALM/client.keytab holds alice's key,
# $REALM/service.keytab (KRB5_KTNAME) the service's. No ticket is taken. NTLM: QXTEST\alice with the same password, as a
# hash: the host's library loses thread keys with each one that it makes of a password.
set -euo pipefail
PATH=$PATH:/usr/sbin:/usr/local/sbin
REALM=$(mktemp -d)
trap '[ ! -s "$REALM/kdc.pid" ] || kill "$(<"$REALM/kdc.pid")"; rm -rf "$REALM"' EXIT
export REALM
export LSAN_OPTIONS=suppressions=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/lsan.supp:print_suppressions=0
export KRB5_CONFIG=$REALM/krb5.conf KRB5_KDC_PROFILE=$REALM/kdc.conf
export KRB5_KTNAME=FILE:$REALM/service.keytab KRB5_CLIENT_KTNAME=FILE:$REALM/none.keytab
export KRB5CCNAME=FILE:$REALM/ccache KRB5RCACHENAME=file2:$REALM/replays
export NTLM_USER_FILE=$REALM/ntlm_users NETBIOS_COMPUTER_NAME=QXHOST NETBIOS_DOMAIN_NAME=QXTEST

# The clients' file is as short as a host's: their library reads it again for each context, which is measured, too.
configure() { # PORT
    cat > "$KRB5_CONFIG" <<C
[libdefaults]
 default_realm = QXNEGO.TEST
 dns_lookup_kdc = false
 dns_lookup_realm = false
 dns_canonicalize_hostname = false
 rdns = false
 udp_preference_limit = 1
 forwardable = true
[realms]
 QXNEGO.TEST = {
  kdc = 127.0.0.1:$1
 }
[domain_realm]
 localhost = QXNEGO.TEST
C
    cat > "$KRB5_KDC_PROFILE" <<C
[kdcdefaults]
 kdc_listen = ""
 kdc_tcp_listen = 127.0.0.1:$1
[realms]
 QXNEGO.TEST = {
  database_name = $REALM/principal
  key_stash_file = $REALM/stash
  supported_enctypes = aes256-cts-hmac-sha1-96:normal
 }
[logging]
 default = FILE:$REALM/kdc.log
C
}

populate() {
    kdb5_util create -s -r QXNEGO.TEST -P "$RANDOM$RANDOM$RANDOM"
    kadmin.local <<Q
addprinc -randkey host/localhost
addprinc +requires_preauth -pw Alice1 alice
ktadd -norandkey -k $REALM/client.keytab alice
ktadd -k $REALM/service.keytab host/localhost
Q
}

# A KDC would share the port of another one, so a port that answers is passed over; on one that is taken it fails.
start_kdc() {
    local port
    for _ in {1..20}; do
        port=$((20000 + RANDOM))
        (: <> "/dev/tcp/127.0.0.1/$port") 2> /dev/null && continue
        configure $port
        krb5kdc -P "$REALM/kdc.pid" && return
    done
    return 1
}

(umask 077 && echo 'QXTEST\alice:0:X:A40E586DFDDC53FE383E01FFB26CF642:[U]:' > "$NTLM_USER_FILE")
configure 1
{ populate && start_kdc; } > "$REALM/setup.log" 2>&1 || { cat "$REALM/setup.log" >&2; exit 1; }
[ "${BASH_SOURCE[0]}" != "$0" ] || "$@"
