#!/bin/sh
# Static checks of src/ and include/: clang-tidy with the list of .clang-tidy, then cppcheck.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build lint
# Configured for clang, since the flags of gcc's own would mean nothing to clang-tidy.
cmake -B build/lint -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ >/dev/null

echo "clang-tidy over src/"
# Its analysis of a function's paths ends sooner than by itself: half the time, and the mistakes
# that it was tried with are still found. What takes longer paths is left to the sanitizers.
find src -name '*.cpp' -print0 | sort -z |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/lint --quiet \
        --extra-arg=-Xclang --extra-arg=-analyzer-config \
        --extra-arg=-Xclang --extra-arg=max-nodes=30000

echo "cppcheck over src/"
# Without its group "style", whose advice (an algorithm for every loop) is a matter of taste.
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability \
    --inline-suppr --error-exitcode=1 -j "$(nproc)" -I include -I src src
