#!/bin/sh
# Installs into an empty directory and looks at it from outside: install_test.sh CHECK, where each
# check is one test. common.sh tells what has to be in the environment.
set -eu
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"

# Where it is first installed is not where it is used: an installation can be moved.
"$CMAKE" --install "$BUILD" --prefix "$work/first" >/dev/null
mv first prefix
prefix=$work/prefix
export PKG_CONFIG_PATH="$prefix/$LIBDIR/pkgconfig"

# Runs a program in an empty directory of its own.
prints() {  # PROGRAM EXPECTED
    rm -rf database
    mkdir database
    (cd database && timeout 60 "$work/$1") >output
    diff "$2" output
}

configure() {  # PROJECT OPTION...
    project=$1
    shift
    "$CMAKE" -S "$SOURCE/tests/install/$project" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_COMPILER="$CC" -DCMAKE_CXX_COMPILER="$CXX" "$@" >configure.log 2>&1 ||
        { cat configure.log; exit 1; }
}

build() {
    "$CMAKE" --build "$work/build" >build.log 2>&1 || { cat build.log; exit 1; }
}

cat >hello.expected <<'END'
{
  "success": true,
  "message": "success!",
  "rows_affected": 0
}
{
  "success": true,
  "message": "success!",
  "rows_affected": 1
}
{
  "success": true,
  "message": "",
  "rows_affected": 1,
  "data": [
    {"name": "north", "colour": "red"}
  ]
}
END
hello=$prefix/share/doc/velmora/examples/hello.c

case "$1" in
files)
    { expected_files runtime; expected_files development; } >expected
    present_files prefix >present
    same_lines expected present
    ;;
soname)
    cd "prefix/$LIBDIR"
    [ "$(readlink libvelmora.so)" = "libvelmora.so.$SOVERSION" ]
    [ "$(readlink "libvelmora.so.$SOVERSION")" = "libvelmora.so.$VERSION" ]
    readelf -d libvelmora.so >dynamic
    grep -qF "Library soname: [libvelmora.so.$SOVERSION]" dynamic
    # A directory of the build tree would be searched on every machine.
    readelf -d "$prefix/bin/velmora" >>dynamic
    if grep -E 'RPATH|RUNPATH' dynamic; then exit 1; fi
    ;;
cmake)
    # Whatever the compiler's own default is: the targets ask for what the wrapper needs.
    configure consumer -DVELMORA_VERSION="$VERSION" -DCMAKE_CXX_STANDARD=17
    build
    printf "north's 40 2.5 1\n%s %s\n" "$VERSION" "$VERSION" >expected
    prints build/consumer_velmora expected
    prints build/consumer_static expected
    readelf -d build/consumer_velmora >dynamic
    grep -qF "[libvelmora.so.$SOVERSION]" dynamic
    readelf -d build/consumer_static >dynamic
    if grep -F libvelmora dynamic; then exit 1; fi
    ;;
cmake-c)
    configure plain_c -DHELLO="$hello"
    build
    prints build/hello_velmora hello.expected
    prints build/hello_static hello.expected
    ;;
pkg-config)
    [ "$(pkg-config --modversion velmora)" = "$VERSION" ]
    # The options are words of their own.
    # shellcheck disable=SC2046
    "$CC" "$hello" -o hello $(pkg-config --cflags --libs velmora)
    export LD_LIBRARY_PATH="$prefix/$LIBDIR"
    prints hello hello.expected
    ;;
pkg-config-static)
    # A program without any shared library proves the list of private ones to be complete.
    # shellcheck disable=SC2046
    "$CC" -static "$hello" -o hello $(pkg-config --static --cflags --libs velmora)
    prints hello hello.expected
    ;;
subdirectory)
    # Names that do not exist end the configuration; to build the engine again would prove no more.
    configure consumer -DVELMORA_SOURCE="$SOURCE" -DCMAKE_CXX_STANDARD=17 \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
    grep 'consumer\.cpp' build/compile_commands.json | grep -E -- '-std=(gnu|c)\+\+20 ' >compiled
    [ "$(wc -l <compiled)" -eq 2 ]
    # What a host installs is the host's own affair.
    "$CMAKE" --install build --prefix "$work/host" >/dev/null
    [ ! -e host ]
    ;;
subdirectory-c)
    configure plain_c -DHELLO="$hello" -DVELMORA_SOURCE="$SOURCE"
    ;;
standard)
    "$SOURCE/tests/wrapper_standard.sh" "$prefix/include"
    ;;
*)
    echo "install_test.sh: unknown check '$1'" >&2
    exit 2
    ;;
esac
