#!/bin/sh
# Builds the package for Python over the release library and compares it with the module
# sqlite3: bench_python.sh. With QUICK=1 in the environment it takes fewer rows.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build bench
scripts/build.sh bench velmora_python

quick=""
if [ -n "${QUICK:-}" ] && [ "$QUICK" != 0 ]; then
    quick=--quick
fi
cd build/bench
PYTHONPATH=$PWD/python PYTHONDONTWRITEBYTECODE=1 exec python3 ../../bench/python_bench.py $quick
