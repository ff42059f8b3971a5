#!/bin/sh
# Makes the Debian packages velmora, velmora-dev and python3-velmora, the wheel for any other Python,
# and the package for Node.js, in build/package.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build package bindings
scripts/build.sh package all package velmora_node_tarball
python3 bindings/python/wheel_backend.py \
    build/package/python/velmora/_velmora.abi3.so build/package
cp build/package/node/*.tgz build/package
ls build/package/*.deb build/package/*.whl build/package/*.tgz
