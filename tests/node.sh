#!/bin/sh
# Runs Node.js where it finds the package of bindings/node: node.sh DIRECTORY ARGUMENT...
# The package and the examples that use it are copied into DIRECTORY, and what it depends on is
# installed there, so that the source tree stays clean. Where the npm registry cannot be reached
# there is nothing to run: the status is then 77, which ctest shows as skipped.
set -eu

directory=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$directory/examples"
cp -R "$root/bindings/node/." "$directory"
find "$root/examples" -name '*.mjs' -exec cp {} "$directory/examples" \;

installed=$directory/node_modules/.installed-lock.json
if ! cmp -s "$directory/package-lock.json" "$installed"; then
    log=$directory/npm.log
    if ! (cd "$directory" && npm ci --ignore-scripts --no-audit --no-fund --fetch-retries=1 \
        --fetch-retry-mintimeout=1000) >"$log" 2>&1 </dev/null; then
        cat "$log" >&2
        if grep -Eq 'code (EAI_AGAIN|ENOTFOUND|ECONN|ETIMEDOUT|ENETUNREACH)' "$log"; then
            echo "node.sh: skipped, since the npm registry cannot be reached" >&2
            exit 77
        fi
        exit 1
    fi
    cp "$directory/package-lock.json" "$installed"
fi
exec node "$@"
