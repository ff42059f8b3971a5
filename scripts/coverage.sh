#!/bin/sh
# Runs all tests over counting objects and reports the line and branch coverage of src/:
# a table on standard output, pages in build/coverage/report/index.html.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build test bindings coverage
scripts/build.sh coverage
# Counts of an earlier run would be added to.
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$(nproc)" </dev/null

mkdir -p build/coverage/report
# The compiler's own branches for exceptions would drown the branches that the source has.
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    --html-details build/coverage/report/index.html build/coverage
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    --branches --print-summary build/coverage
