# What demo, check and bench share: Debian packages, configuring, building. To be sourced by a script at the root.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

# The reason for each package stands in docs/dependencies.md.
library_packages=(g++ cmake ninja-build ccache pkg-config libsqlite3-dev libicu-dev libfmt-dev libsimdjson-dev libpugixml-dev libtomlplusplus-dev tzdata)
tests_packages=(libgtest-dev python3 gdb)
toolkit_packages=(libglib2.0-dev libcairo2-dev libgtk-4-dev libpango1.0-dev qt6-base-dev xvfb xauth xdotool)
demo_packages=(node-mdn-browser-compat-data)
bench_packages=(libboost-dev libtbb-dev libsqlitecpp-dev qt6-base-dev libqt6sql6-sqlite libsigc++-3.0-dev libglib2.0-dev libkf5config-dev libhowardhinnant-date-dev)

say() { printf '\n== %s\n' "$*"; }
die() { printf '%s: %s\n' "${0##*/}" "$*" >&2; exit 1; }

# usage_error TEXT: for arguments that make no sense; `usage` is a function of the calling script.
usage_error() { printf '%s: %s\n' "${0##*/}" "$1" >&2; usage >&2; exit 2; }

installed() { [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]; }

# need PACKAGE…: installs those that are missing, and touches neither apt nor the network when none is.
need() {
    if ! command -v dpkg-query >/dev/null; then
        printf '%s: not a Debian system; these must be present: %s\n' "${0##*/}" "$*" >&2
        return 0
    fi
    local package missing=() as_root=()
    for package in "$@"; do installed "$package" || missing+=("$package"); done
    ((${#missing[@]})) || return 0

    say "Installing ${missing[*]}"
    if ((EUID != 0)); then
        command -v sudo >/dev/null || die "neither root nor sudo: please run 'apt-get install ${missing[*]}' as root"
        as_root=(sudo)
    fi
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
    "${apt[@]}" update </dev/null || printf 'No fresh package lists; trying with those at hand.\n' >&2
    "${apt[@]}" install --no-install-recommends "${missing[@]}" </dev/null ||
        die "could not install ${missing[*]}; is there a network and a Debian 12 source for them?"
}

# configure PRESET [-D…]
configure() {
    say "Configuring $1"
    (cd "$root" && cmake --preset "$@" >/dev/null)  # warnings and errors go to standard error
}

# build PRESET [TARGET…]: everything when no target is named.
build() {
    local preset=$1
    shift
    say "Building $preset"
    (cd "$root" && cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"})
}
