#!/bin/sh
# Configures and builds one preset: build.sh PRESET [TARGET...]
# Leaves the result in build/PRESET.
set -eu
cd "$(dirname "$0")/.."

preset=$1
shift
targets=""
if [ $# -gt 0 ]; then
    targets="--target $*"
fi

cmake --preset "$preset"
# The target names are words of their own.
# shellcheck disable=SC2086
cmake --build --preset "$preset" --parallel "$(nproc)" $targets
