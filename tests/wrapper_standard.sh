#!/bin/sh
# Holds velmora.hpp to one error, which says what is missing, for a compiler that is asked for less
# than C++20, and to none for C++20: wrapper_standard.sh INCLUDE_DIRECTORY.
# In the environment: CXX, the compiler.
set -eu

include=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
echo '#include "velmora/velmora.hpp"' >host.cpp

for standard in c++98 c++11 c++14 c++17; do
    if "$CXX" -std=$standard -I "$include" -fsyntax-only host.cpp >log 2>&1; then
        echo "velmora.hpp compiles with -std=$standard"
        exit 1
    fi
    grep -E '(error|warning): ' log >said
    if [ "$(wc -l <said)" -ne 1 ] ||
        ! grep -qF '"velmora.hpp needs C++20: compile with -std=c++20"' said; then
        echo "with -std=$standard:"
        cat log
        exit 1
    fi
done
"$CXX" -std=c++20 -I "$include" -fsyntax-only host.cpp
