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

# The lines that a document shows for a shell under this name.
shown_lines() {  # DOCUMENT NAME
    awk -v mark="\`\`\`sh $2" '
        $0 == mark { inside = 1; next }
        inside && $0 == "```" { inside = 0 }
        inside { print }
    ' "$SOURCE/$1" >lines
    [ -s lines ] || { echo "$1 has no lines '$2'"; exit 1; }
    # Documents speak of an installation below /usr or $HOME/velmora, with its libraries in lib.
    sed "s,/usr/share,$prefix/share,g; s,\(/usr\|\$HOME/velmora\)/lib/python3,$prefix/lib/python3,g
         s,\$HOME/velmora/lib,$prefix/$LIBDIR,g
         s,\$HOME/velmora,$prefix,g" lines
}

# A source tree with what is built of it in "build".
make_tree() {
    mkdir -p tree/build
    cp -R "$SOURCE/include" "$SOURCE/examples" "$SOURCE/bindings" tree
    ln -s "$BUILD"/libvelmora.* "$BUILD/velmora-uninstalled.pc" tree/build
    cp -RL "$BUILD/python" tree/build
}

# Runs lines of a shell in a new directory, or a new tree, as a reader would, and compares what they
# print with what the documents show of the example.
lines_print_example() {  # PLACE EXAMPLE LINES
    rm -rf tree directory
    make_tree
    mkdir directory
    "$SOURCE/tests/example.sh" "examples/$2" sh -euc "cd '$work/$1'; $3"
}

# The line of an example's opening comment that builds and runs it.
own_line() {  # EXAMPLE
    head -n 12 "$SOURCE/examples/$1" |
        grep -oE '(cc|c\+\+) .*\$\(pkg-config .*|(python3|node) [a-z_]+\.(py|mjs)$' |
        sed 's, \*/$,,'
}

# Every example but those in JavaScript, by its own line behind those that say where velmora is.
each_example_runs() {  # PLACE NAME
    preparation=$(shown_lines docs/examples.md "$2")
    for example in "$SOURCE"/examples/*.c "$SOURCE"/examples/*.cpp "$SOURCE"/examples/*.py; do
        example=${example##*/}
        lines_print_example "$1" "$example" "$preparation
            $(own_line "$example")"
    done
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
    for part in runtime development python; do expected_files $part; done >expected
    present_files prefix >present
    same_lines expected present
    ;;
links)
    links_lead_to_files "$prefix"
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
pkg-config-shown)
    cp "$prefix"/share/doc/velmora/examples/* .
    shown_lines docs/handles.md host >script
    sh -eu script
    "$SOURCE/tests/example.sh" examples/tour.c "$work/tour_static"
    export LD_LIBRARY_PATH="$prefix/$LIBDIR"
    "$SOURCE/tests/example.sh" examples/tour.c "$work/tour_c"
    "$SOURCE/tests/example.sh" examples/tour.cpp "$work/tour_cpp"
    ;;
tree)
    unset PKG_CONFIG_PATH
    make_tree
    shown_lines docs/handles.md without-pkg-config >script
    (cd tree && sh -eu ../script)
    prints tree/build/hello_c hello.expected
    prints tree/build/hello_static hello.expected
    "$SOURCE/tests/example.sh" examples/hello.cpp "$work/tree/build/hello"
    ;;
examples-tree)
    unset PKG_CONFIG_PATH
    each_example_runs tree tree
    # What the document shows for all of them are the lines of some.
    shown_lines docs/examples.md anywhere >script
    while read -r line; do
        grep -qF -- "$line" "$SOURCE"/examples/*
    done <script
    ;;
examples-installed)
    export LD_LIBRARY_PATH="$prefix/$LIBDIR"
    each_example_runs directory installed
    ;;
examples-elsewhere)
    unset PKG_CONFIG_PATH
    each_example_runs directory elsewhere
    ;;
examples-javascript)
    # What npm makes of the tarball in a project that has nothing else: no network, no library.
    mkdir -p directory/node_modules
    (cd directory/node_modules && tar xzf "$BUILD"/node/velmora-node-"$VERSION".tgz &&
        mv package velmora)
    [ "$(cd directory && node -p 'require("velmora").version')" = "$VERSION" ]
    mv directory project
    rm -rf prefix
    unset PKG_CONFIG_PATH
    for example in "$SOURCE"/examples/*.mjs; do
        example=${example##*/}
        cp "$SOURCE/examples/$example" project
        "$SOURCE/tests/example.sh" "examples/$example" sh -euc "
            cd '$work/project'
            $(own_line "$example")"
    done
    # Where the addon is missing the package says how it is built, and the sources for it are there.
    rm -r project/node_modules/velmora/prebuilt
    if (cd project && node hello.mjs) 2>errors; then exit 1; fi
    grep -q 'Error: velmora has no addon .* from the sources in the package: run "npm run build"' errors
    # To build the engine again would prove no more.
    "$CMAKE" -S project/node_modules/velmora/sources -B build -DVELMORA_NODE_PACKAGE=ON \
        -DVELMORA_INSTALL=OFF >configure.log 2>&1 || { cat configure.log; exit 1; }
    ;;
python)
    # The lines of the package's README into virtual environments, without any index of packages.
    export PIP_NO_INDEX=1 PIP_FIND_LINKS='' PIP_CONFIG_FILE=/dev/null PIP_QUIET=1
    export PIP_DISABLE_PIP_VERSION_CHECK=1
    unset PYTHONPATH
    lines_print_example tree hello.py "$(shown_lines bindings/python/README.md tree)"
    tree/build/env/bin/python -c "
import importlib.metadata, velmora
assert velmora.__file__.startswith('$work/tree/build/env/'), velmora.__file__
assert importlib.metadata.version('velmora') == '$VERSION'
"
    tree/build/env/bin/python -m zipfile -l tree/build/velmora-*.whl >listed
    if grep -q pycache listed; then exit 1; fi
    chmod -R a-w "$prefix/share"
    lines_print_example directory hello.py "$(shown_lines bindings/python/README.md installed)"
    chmod -R u+w "$prefix/share"
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
