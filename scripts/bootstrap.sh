#!/bin/sh
# Makes sure that the tools a task needs are here: bootstrap.sh GROUP...
# with the groups build, tools, test, bindings, package, bench, fuzz, lint, coverage.
# What is missing is installed where that needs no question (Debian's apt-get as root or with
# passwordless sudo); anywhere else the packages are named and the script fails.
set -eu

missing=""

needs_command() {  # COMMAND PACKAGE
    command -v "$1" >/dev/null 2>&1 || missing="$missing $2"
}

needs_header() {  # HEADER PACKAGE
    [ -e "/usr/include/$1" ] || [ -e "/usr/local/include/$1" ] || missing="$missing $2"
}

# The headers are those of the interpreter that is found first, which need not be the system's.
needs_python() {
    needs_command python3 python3
    python3 -c 'import os, sysconfig
assert os.path.exists(sysconfig.get_path("include") + "/Python.h")' >/dev/null 2>&1 ||
        missing="$missing python3-dev"
    # Debian has what a virtual environment begins with in a package of its own.
    python3 -c 'import ensurepip' >/dev/null 2>&1 || missing="$missing python3-venv"
}

check_group() {
    case "$1" in
    build)
        needs_command cmake cmake
        needs_command make make
        needs_command c++ g++
        ;;
    tools)
        needs_header CLI/CLI.hpp libcli11-dev
        needs_header nlohmann/json.hpp nlohmann-json3-dev
        needs_header histedit.h libedit-dev
        ;;
    test)
        check_group tools
        needs_header gtest/gtest.h libgtest-dev
        needs_command cc gcc
        needs_command nm binutils
        needs_command pkg-config pkg-config
        needs_command mandoc mandoc
        if [ -e /var/lib/dpkg/status ]; then check_group package; fi
        ;;
    package)
        needs_python
        check_group tools
        needs_command dpkg-shlibdeps dpkg-dev
        needs_command file file
        needs_command readelf binutils
        ;;
    bindings)
        needs_python
        needs_command node nodejs
        needs_header node/node_api.h libnode-dev
        ;;
    bench)
        needs_python
        needs_header benchmark/benchmark.h libbenchmark-dev
        needs_header sqlite3.h libsqlite3-dev
        ;;
    fuzz)
        needs_command clang++ clang
        ;;
    lint)
        needs_command clang++ clang
        needs_command clang-format clang-format
        needs_command clang-tidy clang-tidy
        needs_command cppcheck cppcheck
        ;;
    coverage)
        needs_command gcovr gcovr
        ;;
    *)
        echo "bootstrap.sh: unknown group '$1'" >&2
        exit 2
        ;;
    esac
}

check_all() {
    missing=""
    for group in "$@"; do
        check_group "$group"
    done
}

check_all "$@"
[ -n "$missing" ] || exit 0

as_root=""
if [ "$(id -u)" -ne 0 ]; then
    as_root="sudo -n"
fi
if ! command -v apt-get >/dev/null 2>&1 ||
    { [ -n "$as_root" ] && ! sudo -n true 2>/dev/null; }; then
    echo "Please install these packages (named as in Debian), then try again:$missing" >&2
    exit 1
fi

echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
# The package names are words of their own.
# shellcheck disable=SC2086
$as_root apt-get update -qq </dev/null
# shellcheck disable=SC2086
$as_root apt-get install -y -qq --no-install-recommends $missing </dev/null

check_all "$@"
if [ -n "$missing" ]; then
    echo "Installed, but still not found:$missing" >&2
    exit 1
fi
