#!/usr/bin/env bash
# Builds Debian's packages beside the tree and checks them with lintian: build_deb.sh [--install]. Installs what is missing
# to build them; with --install also what was built, and tries it: the demo, and a program of the examples.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source .ci/setup.sh

need_packages "${build_packages[@]}" build-essential debhelper lintian
dpkg-buildpackage -us -uc -b
lintian --fail-on error ../qxnego_*.changes
[[ ${1:-} = --install ]] || exit 0
(cd .. && apt-get -qq install --no-install-recommends ./libqxgss*.deb ./qxgss-*.deb ./qxnego*.deb)
qxnego demo both | tail -n 12
program=$(mktemp) examples=/usr/share/doc/qxnego/examples
for name in session_client table_client; do
    for how in "" --static; do
        flags=$(pkg-config $how --cflags --libs qxgss-session)
        [[ $how ]] && flags=$(sed 's/-lqxgss[^ ]*/-Wl,-Bstatic & -Wl,-Bdynamic/g' <<<"$flags") # ours alone
        # shellcheck disable=SC2086 # flags are words
        cc -D_DEFAULT_SOURCE $examples/$name.c -o "$program" $flags
        said=$("$program" $examples/qxgss.conf 1 host@localhost x 2>&1) || [[ $? -eq 2 ]] # nobody listens there
        [[ -z $said ]] || fail "$name $how: $said" # nor is a mechanism out of use
    done
done
rm -f "$program"
echo "installed, and built against"
