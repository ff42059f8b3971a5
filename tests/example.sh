#!/bin/sh
# Runs an example in an empty directory and compares all that it prints with what the documents
# show: example.sh EXAMPLE COMMAND...
# Each block that begins "```output" with the example among the names behind it shows that; there
# has to be one. Status 77 of the command is passed on: then it could not be run here.
set -eu

example=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/database"
(cd "$work/database" && "$@") >"$work/printed" </dev/null

mark="^\`\`\`output (.* )?$example( .*)?\$"
shown=0
status=0
for document in "$root"/README.md "$root"/docs/*.md "$root"/bindings/*/README.md; do
    grep -Eq "$mark" "$document" || continue
    shown=$((shown + 1))
    awk -v mark="$mark" '
        $0 ~ mark { inside = 1; next }
        inside && $0 == "```" { exit }
        inside { print }
    ' "$document" >"$work/shown"
    diff -u --label "$document" --label "$example" "$work/shown" "$work/printed" || status=1
done
if [ "$shown" -eq 0 ]; then
    echo "No document shows what $example prints:" >&2
    cat "$work/printed"
    status=1
fi
exit "$status"
