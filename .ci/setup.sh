# shellcheck shell=bash disable=SC2034
# What building and testing need, how a fresh machine gets it, and building. Sourced by ./demo and ./test.

# Debian's packages. What each holds is looked for by is_there, so that it may have come in another way.
build_packages=(
    g++ cmake ninja-build       # the compiler (12 or later) and the build
    pkg-config                  # finds libgsasl and krb5-gssapi
    libtomlplusplus-dev         # qxgss: the configuration file
    libgsasl-dev                # mechanisms/scram
    libkrb5-dev                 # mechanisms/hostgss
    libssl-dev                  # session, tools: digests, base64
    libcli11-dev                # tools: the command's options
    nlohmann-json3-dev          # tools: output for programs
)
test_packages=(
    libgtest-dev                # all of them
    krb5-kdc krb5-admin-server  # tests/realm.sh: a private Kerberos realm
    gss-ntlmssp                 # tests/hostgss_test.cpp
    krb5-user python3           # tests/network_test.py
    krb5-gss-samples python3-gssapi # tests/bridge_programs_test.py
)

has_program() {
    PATH=$PATH:/usr/sbin:/usr/local/sbin command -v "$1" >/dev/null
}

has_header() {
    [[ -e /usr/include/$1 ]] || "${CXX:-c++}" -std=c++20 -fsyntax-only -include "$1" -x c++ /dev/null 2>/dev/null
}

is_there() {
    case $1 in
    g++) has_program "${CXX:-c++}" ;;
    ninja-build) has_program ninja ;;
    libtomlplusplus-dev) has_header toml++/toml.h ;;
    libgsasl-dev) has_header gsasl.h ;;
    libkrb5-dev) has_header gssapi/gssapi_ext.h ;;
    libssl-dev) has_header openssl/evp.h ;;
    libcli11-dev) has_header CLI/CLI.hpp ;;
    nlohmann-json3-dev) has_header nlohmann/json.hpp ;;
    libgtest-dev) has_header gtest/gtest.h ;;
    build-essential) dpkg-query -s build-essential >/dev/null 2>&1 ;;
    debhelper) has_program dh ;;
    krb5-kdc) has_program krb5kdc ;;
    krb5-admin-server) has_program kadmin.local ;;
    krb5-user) has_program kinit ;;
    krb5-gss-samples) has_program gss-client ;;
    python3-gssapi) /usr/bin/python3 -c 'import gssapi' 2>/dev/null ;;
    gss-ntlmssp) compgen -G '/usr/lib*/gssntlmssp/' >/dev/null || compgen -G '/usr/lib/*/gssntlmssp/' >/dev/null ;;
    *) has_program "$1" ;;
    esac
}

fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# Runs a command whose output is of interest only when it fails.
quietly() {
    local output
    output=$("$@" 2>&1) || fail "$output"
}

install_packages() {
    "${as_root[@]}" apt-get -qq update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install --no-install-recommends "$@"
}

# need_packages PACKAGE...: installs those of which something is missing.
need_packages() {
    local package missing=() as_root=() output
    for package in "$@"; do
        is_there "$package" || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    has_program apt-get ||
        fail "Missing here, by the names of Debian's packages: ${missing[*]}. Install them, then run this again."
    if ((EUID != 0)); then
        has_program sudo || fail "Packages are missing; as root, run this, and then $0 again:" \
            "  apt-get update && apt-get install --no-install-recommends ${missing[*]}"
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}, which takes about a minute ..."
    output=$(install_packages "${missing[@]}" 2>&1) ||
        fail "They cannot be installed. Is there a network? What apt-get says first:" \
            "$(grep -m1 '^E:' <<<"$output" || tail -n1 <<<"$output")"
}

# The tests talk over loopback, which is down in a name space of its own: root can change that.
need_loopback() {
    python3 - <<'P' || fail "The loopback interface is down; as root, run this, and then $0 again:" "  ip link set lo up"
import fcntl, socket, struct, sys
SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 1
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
    def flags(request, value):
        return struct.unpack("16sH14x", fcntl.ioctl(any_socket, request, struct.pack("16sH14x", b"lo", value)))[1]
    try:
        is_up = flags(SIOCGIFFLAGS, 0)
        sys.exit(0 if is_up & IFF_UP else 0 * flags(SIOCSIFFLAGS, is_up | IFF_UP))
    except OSError:
        sys.exit(1)
P
}

# build PRESET: configures, unless that is done, and builds; its progress is shown at a terminal. Warnings are errors
# only if QXNEGO_WERROR=ON says so: another compiler may warn of something else.
build() {
    if [[ ! -e build/$1/build.ninja || -n ${QXNEGO_WERROR:-} ]]; then
        quietly cmake --preset "$1" -DQXNEGO_WERROR="${QXNEGO_WERROR:-OFF}"
    fi
    if [[ -t 1 ]]; then
        cmake --build --preset "$1" --parallel "$(nproc)"
    else
        quietly cmake --build --preset "$1" --parallel "$(nproc)" -- --quiet
    fi
}
