#!/bin/sh
# The installed tree: a program builds against it in both ways and runs, also one that uses the host's GSS-API library,
# and the command finds its libraries and its configuration there. Usage: install_test.sh BUILD_FOLDER C_COMPILER COMPILER_FLAGS
set -eu
build=$1 compiler=$2 flags=$3 suppressions=$(dirname "$(readlink -f "$0")")/lsan.supp
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
prefix="$folder/usr"

cmake --install "$build" --prefix "$prefix" >"$folder/log" || { cat "$folder/log"; exit 1; }
libraries=$(dirname "$(find "$prefix" -name libqxgss.so)")
examples="$prefix/share/doc/qxnego/examples"
test -s "$prefix/share/man/man1/qxnego.1" -a -s "$prefix/share/man/man5/qxgss.conf.5"

# The framework's headers and the host's live together, in either order and language, and each name is what it says; the
# program configures the framework with the installed sample, reaches QXNEGO and reads a logon string.
mkdir "$folder/program"
cd "$folder/program"
cat >both.h <<'END'
#include <stdlib.h>
#include <string.h>
int main(int argc, char **argv) {
    gss_OID hosts = GSS_C_NT_HOSTBASED_SERVICE;
    qxgss_OID ours = QXGSS_C_NT_HOSTBASED_SERVICE;
    qxgss_OID_set names = NULL;
    char *user = NULL;
    switch (GSS_ERROR(GSS_S_BAD_MECH)) {
    case GSS_S_COMPLETE:
    case GSS_S_CONTINUE_NEEDED:
        return 1;
    }
    if ((void *)hosts == (void *)ours || hosts->length != ours->length)
        return 2;
    if (argc != 2 || qxgss_configure(NULL, QXGSS_SERVER, argv[1], NULL) != GSS_S_COMPLETE || MechCount != 2)
        return 3;
    if (pMechInfo[0].MechFtnTable.ftn_gssp_indicate_mechs(NULL, &names) != GSS_S_COMPLETE || names->count != 1)
        return 4;
    gssp_release_oid_set(NULL, &names);
    if (qxat_parse_logon(NULL, "authcid='a b' password=c", NULL, &user, NULL, NULL, NULL, NULL, NULL, NULL, NULL,
                         QXAT_FLAG_UNESCAPE_ALL) != GSS_S_COMPLETE || strcmp(user, "a b") != 0)
        return 5;
    free(user);
    return qxgss_shutdown(NULL) != GSS_S_COMPLETE;
}
END
ours="gssp2qxnego/gssp2qxnego.h qxat/qxatldapauthorize.h"
# shellcheck disable=SC2086 # names, and flags below, are words
{
    printf '#include <%s>\n' qxgss/gssp.h $ours gssapi/gssapi.h gssapi/gssapi_ext.h both.h >ours-first
    printf '#include <%s>\n' gssapi/gssapi_ext.h qxgss/qxgss.h $ours gssapi/gssapi.h both.h >hosts-first
}
found=$(PKG_CONFIG_PATH="$libraries/pkgconfig" pkg-config --cflags --libs qxnego)
hosts=$(pkg-config --cflags --libs krb5-gssapi)
for language in c c++; do
    for order in ours-first hosts-first; do
        # shellcheck disable=SC2086
        "$compiler" -x $language -Wall -Wextra -Wpedantic -Wconversion -Werror -I. $flags $order -o both -x none $found $hosts
        LD_LIBRARY_PATH="$libraries" ./both "$examples/qxgss.conf"
    done
done

# The programs with sessions, as they are installed: no client of the sample's mechanism is let in, which protects nothing.
cp "$examples"/*.[ch] .
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(program LANGUAGES C)
find_package(qxnego 1.0 REQUIRED COMPONENTS qxgss qxgss-session)
foreach(name session_server table_server table_client)
  add_executable(${name} ${name}.c)
  target_compile_definitions(${name} PRIVATE _DEFAULT_SOURCE)
  target_link_libraries(${name} PRIVATE qxnego::qxgss-session)
endforeach()
END
cmake -S . -B out -G Ninja -DCMAKE_C_COMPILER="$compiler" -DCMAKE_C_FLAGS="$flags" -DCMAKE_PREFIX_PATH="$prefix" \
    >>"$folder/log"
cmake --build out >>"$folder/log"
sessions=$(PKG_CONFIG_PATH="$libraries/pkgconfig" pkg-config --static --cflags --libs qxgss-session |
    sed 's/-lqxgss[^ ]*/-Wl,-Bstatic & -Wl,-Bdynamic/g') # ours alone
# shellcheck disable=SC2086
"$compiler" -std=c11 -D_DEFAULT_SOURCE -Wall -Wextra -Werror $flags session_client.c -o session_client \
    $sessions
port=$((20000 + $$ % 20000))
out/session_server "$examples/qxgss.conf" $port >server &
until echo "authcid=alice password=wonderland" |
    ./session_client "$examples/qxgss.conf" $port test@localhost x 2>client || test $? -eq 1; do
    kill -0 $! # it will listen soon
    sleep 0.2
done
wait $! || true
grep -q 'SCRAM-SHA-256 protects no messages' server client

# The command: its libraries by themselves, its configuration where an administrator puts it.
"$prefix/bin/qxnego" demo both --brief | grep -q 'both: as expected'
mkdir -p "$prefix/etc/qxgss"
cp "$examples/qxgss.conf" "$examples/verifiers" "$prefix/etc/qxgss"
test "$("$prefix/bin/qxnego" mechs | grep -c ' yes ')" -eq 2
"$prefix/bin/qxnego" try --user alice --offer SCRAM-SHA-256 | grep -q 'Selected: SCRAM-SHA-256'

# The host's library finds the bridge by the sample, and the bridge its configuration where it stands.
# shellcheck disable=SC2086
"$compiler" -Wall -Wextra -Werror $flags gssapi_story.c -o bridge $found $hosts
export LSAN_OPTIONS="suppressions=$suppressions:print_suppressions=0"
LD_LIBRARY_PATH="$libraries" GSS_MECH_CONFIG="$examples/mech.qxnego.conf" ./bridge test@localhost 2>client || true
grep -q '^SCRAM-SHA-256: .*no authentication identity' client
echo "installed, built against and run"
