#!/bin/sh
# Builds the addon for this machine, from the sources that lie in the package or around it, and puts
# it where lib/native.js looks.
set -eu
cd "$(dirname "$0")"

sources=sources
build=build
if [ ! -d "$sources" ]; then
    sources=../..
    build=../../build/node-addon
fi
cmake -S "$sources" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVELMORA_NODE_PACKAGE=ON \
    -DVELMORA_INSTALL=OFF
cmake --build "$build" --target velmora_node --parallel "$(getconf _NPROCESSORS_ONLN)"
place=prebuilt/$(node -p 'process.platform + "-" + process.arch')
mkdir -p "$place"
cp "$build"/bindings/node/velmora.node "$place"
