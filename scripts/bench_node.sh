#!/bin/sh
# Builds the package for Node.js and runs bench/node_bench.mjs: bench_node.sh [OPTION...]
# With QUICK=1 in the environment it takes about half a minute. better-sqlite3 is built from source
# into build/bench/node, against Node's own headers; where it cannot be had it is left out.
set -eu
cd "$(dirname "$0")/.."

version=12.11.1
scripts/bootstrap.sh build bindings
scripts/build.sh bench velmora_node_package

directory=build/bench/node
cp bench/node_bench.mjs "$directory"
fetch() {
    echo '{ "private": true }' >"$directory/package.json"
    # Headers under /usr are those that velmora is built with; npm would fetch others.
    (cd "$directory" && npm_config_nodedir=/usr npm install --no-save --no-audit --no-fund \
        --fetch-retries=1 --fetch-timeout=60000 "better-sqlite3@$version") >&2
    ln -sfn ../package "$directory/node_modules/velmora" # npm takes away what it does not know
}
[ -e "$directory/node_modules/better-sqlite3/build" ] || fetch ||
    echo "bench_node.sh: no better-sqlite3 to compare with" >&2

quick=""
if [ -n "${QUICK:-}" ] && [ "$QUICK" != 0 ]; then
    quick=--quick
fi
exec node "$directory/node_bench.mjs" ${quick:+"$quick"} "$@"
