#!/bin/sh
# Shows velmora at work: builds a release, feeds examples/demo.vel to the real shell, and builds and
# runs the sample host against the real library. Bounded in time, needs no terminal.
#
# examples/demo.vel holds one command a line. A line that begins with '#' is commentary, printed
# and not run. The line "exit" ends a session; what follows it runs in a new shell in the same
# directory, which shows a restart.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build tools
scripts/build.sh release velmora velmora_shell
# The companion as well, which a plain release goes without.
cmake --preset release -DVELMORA_TOOLS=ON >/dev/null
cmake --build --preset release --parallel "$(nproc)" --target velmora_tool

root=$(pwd)
build=$root/build/release
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/shop" "$work/host"

# Splits the script into one file of lines for each session, session.1, session.2 and so on.
awk -v prefix="$work/session." '
    BEGIN { count = 1 }
    $0 == "exit" { count++; next }
    $0 != "" { print > (prefix count) }
' examples/demo.vel

# A shell that is not at a terminal shows no commands, so each is put behind its prompt here.
show_session() {  # LINES OUTPUT
    awk -v lines="$1" '
        BEGIN {
            while ((getline line < lines) > 0) text[++count] = line
            RS = "velmora> "
        }
        function comments() {
            for (i++; i <= count && text[i] ~ /^#/; i++) print text[i]
        }
        NR == 1 { printf "%s", $0; next }
        { comments(); printf "velmora> %s\n%s", text[i], $0 }
        END { comments(); print "velmora> exit" }
    ' "$2"
}

number=1
while [ -e "$work/session.$number" ]; do
    lines=$work/session.$number
    { grep -v '^#' "$lines" || true; echo exit; } >"$work/input"
    (cd "$work/shop" && timeout 60 "$build/velmora" <"$work/input" >"$work/output")
    show_session "$lines" "$work/output"
    echo
    number=$((number + 1))
done

echo "== The sample host, examples/host.cpp, linked with libvelmora.so"
c++ -std=c++20 -O2 -I include examples/host.cpp -o "$work/sample_host" \
    -L "$build" -lvelmora "-Wl,-rpath,$build"
(cd "$work/host" && timeout 60 "$work/sample_host" </dev/null)

echo
echo "== The shop as a page to look at"
report=$build/shop.html
# The shell left its files in the form of the plain functions.
"$build/velmora-tool" run "$work/shop" -c CHECKPOINT
(cd "$work" && "$build/velmora-tool" report shop -o "$report")
echo "$report"
