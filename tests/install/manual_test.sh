#!/bin/sh
# The manual pages: manual_test.sh CHECK, where each check is one test. What is compared is the text
# that mandoc makes of a page, free of overprinting and so wide that only literal lines end early.
# In the environment: SOURCE, the source tree, and BUILD, the build tree with the shell.
set -eu

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

backspace=$(printf '\b')

# Leaves the page's text in the file "page".
render() {  # NAME
    mandoc -T ascii -O width=999 "$SOURCE/man/$1" >raw
    sed "s/.$backspace//g; s/^     //" raw >page
}

# The shell's own session behind "$ velmora", as it is shown and as it runs.
check_session() {  # NAME
    render "$1"
    sed -n '/^\$ velmora$/,/^velmora> exit$/p' page | sed 1d >shown
    grep -q '^velmora> exit$' shown
    mkdir database
    sed -n 's/^velmora> //p' shown | (cd database && timeout 60 "$BUILD/velmora") >answered
    # Without a terminal the commands are not in the output.
    awk '/^velmora> / { printf "velmora> "; next } { print }' shown | diff - answered
}

case "$1" in
lint)
    # Warnings and worse; style would ask for every page that is referred to to be installed.
    mandoc -T lint -W warning "$SOURCE"/man/*
    ;;
session)
    check_session "$2"
    ;;
program)
    render velmora.3
    sed -n '/^#include <stdio.h>$/,/^}$/p' page >shown
    sed '1,/^ \*\/$/d' "$SOURCE/examples/hello.c" >program
    diff program shown
    ;;
functions)
    render velmora.3
    while read -r name; do
        grep -q "^$name(.*);$" page || { echo "velmora.3 lacks $name"; exit 1; }
    done <"$SOURCE/cmake/exports.txt"
    ;;
grammar)
    render velmora-commands.7
    sed -n '/^command  *=/,/^clock /p' page >shown
    sed -n '/^command  *=/,/^clock /p' "$SOURCE/docs/commands.md" >grammar
    grep -q '^clock ' grammar
    diff grammar shown
    ;;
messages)
    # In the documents a message stands in backquotes in the first column of a table of messages;
    # one that begins with "... " shares its beginning with the one before it.
    render velmora-commands.7
    mv page commands
    render velmora.3
    # shellcheck disable=SC2016
    awk '/^\| message \|/ { inside = 1 } !/^\|/ { inside = 0 } inside' "$SOURCE/docs/commands.md" |
        sed 's/^| //; s/ | .*//' | grep -o '`[^`]*`' |
        sed 's/`//g; s/\\|/|/g; s/^\.\.\. //' >messages
    [ "$(wc -l <messages)" -ge 50 ]
    while read -r message; do
        grep -qF -- "$message" commands page || { echo "no page has $message"; exit 1; }
    done <messages
    ;;
*)
    echo "manual_test.sh: unknown check '$1'" >&2
    exit 2
    ;;
esac
