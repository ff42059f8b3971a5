#!/bin/sh
# Builds and runs the tests of one preset: check.sh [check|debug|asan|tsan] [CTEST ARGUMENT...]
# The last lines are the test runner's own summary.
set -eu
cd "$(dirname "$0")/.."

preset=${1:-check}
[ $# -eq 0 ] || shift

scripts/bootstrap.sh build test bindings
if [ "$preset" = tsan ]; then
    # Only the tests with threads are worth its slowness.
    scripts/build.sh "$preset" thread_tests
else
    scripts/build.sh "$preset"
fi
ctest --preset "$preset" --parallel "$(nproc)" "$@" </dev/null
