#!/bin/sh
# Opens the prompt on the database in data/, with history and line editing where rlwrap is there.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build
scripts/build.sh release velmora_shell >&2

shell=$(pwd)/build/release/velmora
mkdir -p data
cd data
if [ -t 0 ] && command -v rlwrap >/dev/null 2>&1; then
    exec rlwrap "$shell"
fi
exec "$shell"
