# The Debian packages that building and testing need, and how a fresh machine gets them. Sourced by ./demo and ./test.

build_packages=(
    g++ cmake ninja-build       # the compiler (12 or later) and the build
    pkg-config                  # finds libgsasl
    libtomlplusplus-dev         # qxgss: the configuration file
    libutfcpp-dev               # qxgss: checks and converts UTF-8, UTF-16 and UTF-32
    libgsasl-dev                # mechanisms/scram
    libcli11-dev                # tools: the command's options
    nlohmann-json3-dev          # tools: output for programs
)
test_packages=(
    libgtest-dev                # tests
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
