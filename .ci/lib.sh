# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=sh disable=SC2154 # root is the reader's
#
# What ./run, ./test and .ci/run share; read with "." from a POSIX shell after `root` was set to the
# project's folder. Messages go to stderr, stdout is left to the results.

# What a build of the command and the plugin takes, and what the tests take besides. With make g++ optimises
# across sources on all cores, and does not warn that it does not.
# shellcheck disable=SC2034 # used by the scripts that read this file
build_packages="g++ make cmake ninja-build libcli11-dev nlohmann-json3-dev zlib1g-dev"
# shellcheck disable=SC2034
test_packages="libgtest-dev mandoc python3 python3-jsonschema jq parallel sqlite3"
# Besides the compiler for tests on another machine.
# shellcheck disable=SC2034
machine_packages="googletest qemu-user"
# clang with its sanitizers and libFuzzer.
# shellcheck disable=SC2034
clang_packages="clang libclang-rt-dev"

say() {
    echo "$*" >&2
}

# As root or through sudo; fails with a message when there is no way.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        say "error: this needs root or sudo: $*"
        return 1
    fi
}

# Its output is shown only when it fails.
apt_get() {
    log=$(mktemp) || return 1
    if as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" >"$log" 2>&1; then
        rm -f "$log"
        return 0
    fi
    cat "$log" >&2
    rm -f "$log"
    return 1
}

# need_packages PACKAGE...: installs those that are missing, and says so.
need_packages() {
    if ! command -v dpkg-query >/dev/null; then
        say "note: no dpkg here; taken as installed: $*"
        return 0
    fi
    installed=$(dpkg-query -W -f='=${db:Status-Status} ${Package} \n' "$@" 2>/dev/null || true)
    missing=
    for package in "$@"; do
        case "$missing " in
        *" $package "*) continue ;;
        esac
        case $installed in
        *"=installed $package "*) ;;
        *) missing="$missing $package" ;;
        esac
    done
    if [ -z "$missing" ]; then
        return 0
    fi

    say "installing:$missing"
    if install_packages "$missing"; then
        return 0
    fi
    say "error: could not install them; as root: apt-get update && apt-get install$missing"
    return 1
}

# install_packages "PACKAGE...": with new package lists only when that is needed.
install_packages() {
    # A fresh system has no lists yet.
    if ls /var/lib/apt/lists/*_Packages* >/dev/null 2>&1; then
        # shellcheck disable=SC2086 # a list of names
        apt_get install --no-install-recommends -y $1 && return 0
        say "trying again with new package lists"
    fi
    # shellcheck disable=SC2086
    apt_get update && apt_get install --no-install-recommends -y $1
}

# configure PRESET [CMAKE_ARGUMENT...]: unless that is done; later changes to CMake files are ninja's,
# but for those to the presets.
configure() {
    preset=$1
    shift
    cache=$root/build/$preset/CMakeCache.txt
    done=$root/build/$preset/CMakeFiles/cmake.check_cache
    if [ -f "$root/build/$preset/build.ninja" ] && [ $# -eq 0 ] && [ -f "$done" ] &&
        [ -z "$(find "$root/CMakePresets.json" -newer "$done")" ] &&
        grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        return 0
    fi
    fresh=
    # A build folder that came along with a copy of the project belongs to the old place.
    if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        fresh=--fresh
    fi
    # shellcheck disable=SC2086 # one option or none
    (cd "$root" && cmake --preset "$preset" $fresh "$@") >&2
}

# build PRESET [TARGET...]: silent when there is nothing to do.
build() {
    preset=$1
    shift
    case $(ninja -C "$root/build/$preset" -n "$@" 2>&1) in
    *"no work to do."*) ;;
    *) ninja -C "$root/build/$preset" "$@" >&2 ;;
    esac
}
