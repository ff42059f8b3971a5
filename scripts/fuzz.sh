#!/bin/sh
# Runs every fuzzer for SECONDS_EACH seconds (60 by default), one after the other. Inputs that reach
# something new are kept in build/fuzz/corpus/NAME, beside the committed ones of fuzz/corpus/NAME.
set -eu
cd "$(dirname "$0")/.."

seconds=${SECONDS_EACH:-60}
scripts/bootstrap.sh build fuzz
scripts/build.sh fuzz

root=$(pwd)
# Freed memory is kept from reuse for a while; with more of it a short input costs more than it runs.
export ASAN_OPTIONS="quarantine_size_mb=4${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
count=0
for program in "$root"/build/fuzz/fuzz/*_fuzzer; do
    [ -x "$program" ] || continue
    count=$((count + 1))
    name=$(basename "$program" _fuzzer)
    grown=$root/build/fuzz/corpus/$name
    seeds=$root/fuzz/corpus/$name
    mkdir -p "$grown" "$root/build/fuzz/findings"
    [ -d "$seeds" ] || seeds=
    echo "== $name, $seconds s"
    "$program" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=2500 \
        -print_final_stats=1 -close_fd_mask=1 -dict="$root/fuzz/commands.dict" \
        -artifact_prefix="$root/build/fuzz/findings/$name-" "$grown" ${seeds:+"$seeds"}
done
if [ "$count" -eq 0 ]; then
    echo "There is no fuzzer in build/fuzz/fuzz" >&2
    exit 1
fi
