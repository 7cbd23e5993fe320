#!/bin/bash
# A private Kerberos realm and NTLM user file on loopback, everything inside one folder, for tests of real mechanisms.
# Needs no privileges and touches nothing of the host's own Kerberos configuration.
#
#   realm.sh start DIR   makes DIR, starts a KDC on a free port of 127.0.0.1 and prints the environment, NAME=VALUE
#                        lines without blanks: export $(realm.sh start DIR)
#   realm.sh stop DIR    ends the KDC and removes DIR
#   realm.sh kill DIR    ends the KDC only; tickets and keytabs stay
#   realm.sh restart DIR starts it again
#
# Realm QXNEGO.TEST: users alice (password Alice1) and bob (Bob1), expired (Expired1, an account past its end), service
# host/localhost. DIR/client.keytab holds alice's key, DIR/service.keytab (KRB5_KTNAME) the service's. No ticket is
# taken; KRB5CCNAME is DIR/ccache. NTLM: QXTEST\alice with password Secret1.
set -euo pipefail
PATH=$PATH:/usr/sbin:/usr/local/sbin
[ $# = 2 ] || { echo "usage: ${0##*/} start|stop|kill|restart DIR" >&2; exit 2; }
dir=$2

environment() {
    cat <<E
KRB5_CONFIG=$dir/krb5.conf
KRB5_KDC_PROFILE=$dir/kdc.conf
KRB5_KTNAME=FILE:$dir/service.keytab
KRB5_CLIENT_KTNAME=FILE:$dir/none.keytab
KRB5CCNAME=FILE:$dir/ccache
KRB5RCACHENAME=file2:$dir/replays
NTLM_USER_FILE=$dir/ntlm_users
NETBIOS_COMPUTER_NAME=QXHOST
NETBIOS_DOMAIN_NAME=QXTEST
E
}

configure() { # PORT
    cat > "$dir/krb5.conf" <<C
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
    cat > "$dir/kdc.conf" <<C
[kdcdefaults]
 kdc_listen = ""
 kdc_tcp_listen = 127.0.0.1:$1
[realms]
 QXNEGO.TEST = {
  database_name = $dir/principal
  key_stash_file = $dir/stash
  acl_file = $dir/acl
  supported_enctypes = aes256-cts-hmac-sha1-96:normal
  max_life = 24h
 }
[logging]
 kdc = FILE:$dir/kdc.log
 admin_server = FILE:$dir/kdc.log
 default = FILE:$dir/kdc.log
C
}

populate() {
    kdb5_util create -s -r QXNEGO.TEST -P "$RANDOM$RANDOM$RANDOM"
    kadmin.local <<Q
addprinc -randkey host/localhost
addprinc +requires_preauth -pw Alice1 alice
addprinc +requires_preauth -pw Bob1 bob
addprinc +requires_preauth -pw Expired1 -expire "2001-01-01 00:00:00" expired
ktadd -norandkey -k $dir/client.keytab alice
ktadd -k $dir/service.keytab host/localhost
Q
}

answers() { # PORT
    (: <> "/dev/tcp/127.0.0.1/$1") 2> /dev/null
}

# A KDC would share the port of another one, so a port that answers is passed over; on one that is taken it fails.
start_kdc() {
    local port
    for _ in {1..20}; do
        port=$((20000 + RANDOM))
        answers $port && continue
        configure $port
        krb5kdc -P "$dir/kdc.pid" && return
    done
    return 1
}

# The KDC no longer answers when this returns (the port tells: an ended process may wait long for its parent).
stop_kdc() {
    [ -s "$dir/kdc.pid" ] || return 0
    local port
    port=$(sed -n 's/.*kdc = 127.0.0.1://p' "$dir/krb5.conf")
    kill "$(<"$dir/kdc.pid")" || true
    rm -f "$dir/kdc.pid"
    for _ in {1..100}; do
        answers "$port" || return 0
        sleep 0.02
    done
    return 1
}

case $1 in
start)
    umask 077
    mkdir -p "$dir"
    export $(environment)
    echo 'QXTEST:alice:Secret1' > "$dir/ntlm_users"
    configure 1
    { populate && start_kdc; } > "$dir/setup.log" 2>&1 || { cat "$dir/setup.log" >&2; exit 1; }
    environment
    ;;
stop)
    stop_kdc
    rm -rf "$dir"
    ;;
kill) stop_kdc ;;
restart)
    export $(environment)
    start_kdc >> "$dir/setup.log" 2>&1
    ;;
*) exit 2 ;;
esac
