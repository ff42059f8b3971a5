#!/bin/sh
# Prints the path of DuckDB's shared library, which the benchmark compares with; it is fetched into
# build/duckdb when it is first wanted. Fails where it cannot be had.
set -eu
cd "$(dirname "$0")/.."

version=1.5.6-r.1
directory=$PWD/build/duckdb/$version
library=$directory/libduckdb.so

fetch() {
    case "$(uname -sm)" in
    "Linux x86_64") machine=x64 ;;
    "Linux aarch64") machine=arm64 ;;
    *) return 1 ;;
    esac
    mkdir -p "$directory"
    (
        cd "$directory"
        npm pack --silent --fetch-retries=1 --fetch-timeout=60000 \
            "@duckdb/node-bindings-linux-$machine@$version" >/dev/null
        tar -xzf ./*.tgz package/libduckdb.so
        rm ./*.tgz
        # Whole or not at all under the name that is looked for.
        mv package/libduckdb.so "$library"
        rmdir package
    )
}

[ -e "$library" ] || fetch >&2
echo "$library"
