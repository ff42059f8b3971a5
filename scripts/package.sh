#!/bin/sh
# Makes the Debian packages velmora and velmora-dev, and the package for Node.js, in build/package.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build package bindings
scripts/build.sh package package velmora_node_tarball
cp build/package/node/*.tgz build/package
ls build/package/*.deb build/package/*.tgz
