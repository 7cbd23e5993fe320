# shellcheck shell=bash disable=SC2034
# The Debian packages that building and testing need, and how a fresh machine gets them. Sourced by ./demo and ./test.

build_packages=(
    g++ cmake ninja-build       # the compiler (12 or later) and the build
    pkg-config                  # finds libgsasl and krb5-gssapi
    libtomlplusplus-dev         # qxgss: the configuration file
    libgsasl-dev                # mechanisms/scram
    libkrb5-dev                 # mechanisms/hostgss
    libcli11-dev                # tools: the command's options
    nlohmann-json3-dev          # tools: output for programs
    libssl-dev                  # tools: base64, digests
)
test_packages=(
    libgtest-dev                # all of them
    krb5-kdc krb5-admin-server  # tests/realm.sh: a private Kerberos realm
    gss-ntlmssp                 # tests/hostgss_test.cpp
    krb5-user python3           # tests/network_test.py
)

# Installs those of the named packages that are missing.
need_packages() {
    local package missing=() as_root=()
    for package in "$@"; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and only root can install them: ${missing[*]}" >&2
            return 1
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get -qq update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install --no-install-recommends "${missing[@]}" \
        >/dev/null
}
