#!/bin/sh
# Makes the Debian packages velmora, velmora-dev and python3-velmora, and the wheel for any other
# Python, in build/package.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build package
scripts/build.sh package all package
python3 bindings/python/wheel_backend.py \
    build/package/python/velmora/_velmora.abi3.so build/package
ls build/package/*.deb build/package/*.whl
