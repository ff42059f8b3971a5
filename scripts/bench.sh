#!/bin/sh
# Builds the benchmark over the release library and runs it: bench.sh [OPTION...], the options being
# those of bench/main.cpp. With QUICK=1 in the environment it takes about a minute. Where DuckDB
# cannot be had it is left out.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build bench
scripts/build.sh bench velmora_bench

quick=""
if [ -n "${QUICK:-}" ] && [ "$QUICK" != 0 ]; then
    quick=--quick
fi
duckdb=$(scripts/duckdb.sh) || echo "bench.sh: no DuckDB to compare with" >&2
exec build/bench/bench/velmora_bench ${quick:+"$quick"} ${duckdb:+--duckdb "$duckdb"} "$@"
