#!/bin/sh
# Formats the C and C++ sources in the house style; with --check only tells what differs.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh lint
mode=-i
if [ "${1:-}" = --check ]; then
    mode="--dry-run -Werror"
fi
# The two words of the mode are meant to be split.
# shellcheck disable=SC2086
git ls-files -z --cached --others --exclude-standard '*.c' '*.h' '*.cpp' '*.hpp' |
    xargs -0 clang-format $mode
