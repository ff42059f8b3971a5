#!/bin/sh
# Makes the Debian packages velmora, velmora-dev and velmora-tools in build/package.
set -eu
cd "$(dirname "$0")/.."

scripts/bootstrap.sh build package
scripts/build.sh package package
ls build/package/*.deb
