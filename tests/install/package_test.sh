#!/bin/sh
# Makes the Debian packages and looks at what they hold, what they say of themselves, and what
# they leave behind. common.sh tells what has to be in the environment.
#
# dpkg needs root to install; it does so below a directory of the test, with a register of packages
# of its own that knows only what this machine has of the packages depended on. Without root the
# packages are unpacked instead.
set -eu
# shellcheck source-path=SCRIPTDIR source=common.sh
. "$(dirname "$0")/common.sh"

run_logged() {  # COMMAND...
    "$@" >log 2>&1 || { cat log; exit 1; }
}

# What an installation has, with compressed manual pages and the licence as "copyright"; the
# documents of the others are those of velmora.
packaged_files() {  # PART
    expected_files "$1" | sed 's,/LICENSE$,/copyright,; /^share\/man\//s/$/.gz/; s,^,usr/,'
    case "$1" in
    runtime) echo usr/share/doc/velmora/changelog.gz ;;
    development) echo usr/share/doc/velmora-dev ;;
    tools) echo usr/share/doc/velmora-tools ;;
    esac
}

# The packages are readable by everybody, even if the builder's own files are not.
(umask 077; run_logged "$CPACK" --config "$BUILD/CPackConfig.cmake" -B "$work/packages")
architecture=$(dpkg --print-architecture)
runtime=$work/packages/velmora_${VERSION}_$architecture.deb
development=$work/packages/velmora-dev_${VERSION}_$architecture.deb
tools=$work/packages/velmora-tools_${VERSION}_$architecture.deb

echo "== contents"
for part in runtime development tools; do
    case $part in
    runtime) package=$runtime ;;
    development) package=$development ;;
    tools) package=$tools ;;
    esac
    dpkg-deb -x "$package" "$work/$part"
    packaged_files $part >expected
    present_files $part >present
    same_lines expected present
    # Readable by everybody, writable by root, owned by root.
    if dpkg-deb -c "$package" | grep -Ev '^(drwxr-xr-x|-rw-r--r--|-rwxr-xr-x|lrwxrwxrwx) root/root '
    then
        exit 1
    fi
    dpkg-deb -e "$package" $part.control
done
[ "$(readlink development/usr/share/doc/velmora-dev)" = velmora ]
[ "$(readlink tools/usr/share/doc/velmora-tools)" = velmora ]
for page in "$SOURCE"/man/*; do
    gzip -dc ./*/usr/share/man/man*/"${page##*/}.gz" | diff "$page" -
done

echo "== links of the documents"
for package in "$runtime" "$development"; do
    dpkg-deb -x "$package" "$work/both"
done
links_lead_to_files "$work/both"

echo "== licence"
copyright=runtime/usr/share/doc/velmora/copyright
grep -qx "Copyright: $(sed -n 's/^Copyright (c) //p' "$SOURCE/LICENSE")" $copyright
sed -n 's/^ //p' $copyright | sed 's/^\.$//' >present
sed '1,/^Copyright/d' "$SOURCE/LICENSE" | sed 1d | diff - present

echo "== control files"
# Nothing is run: a script for the time after removal would keep a removed package on record.
[ "$(present_files runtime.control | LC_ALL=C sort | xargs)" = "control md5sums shlibs triggers" ]
[ "$(present_files development.control | LC_ALL=C sort | xargs)" = "control md5sums" ]
[ "$(present_files tools.control | LC_ALL=C sort | xargs)" = "control md5sums" ]
[ "$(cat runtime.control/shlibs)" = "libvelmora $SOVERSION velmora (>= $VERSION)" ]
[ "$(cat runtime.control/triggers)" = "activate-noawait ldconfig" ]

echo "== fields"
field() {  # PACKAGE FIELD
    dpkg-deb -f "$1" "$2"
}
[ "$(field "$runtime" Package)" = velmora ]
[ "$(field "$runtime" Version)" = "$VERSION" ]
[ "$(field "$runtime" Section)" = database ]
# The versions of these are the build machine's.
[ "$(field "$runtime" Depends | sed 's/ ([^)]*)//g')" = "libc6, libgcc-s1, libstdc++6" ]
[ "$(field "$development" Package)" = velmora-dev ]
[ "$(field "$development" Version)" = "$VERSION" ]
[ "$(field "$development" Section)" = libdevel ]
[ "$(field "$development" Depends)" = "velmora (= $VERSION)" ]
[ "$(field "$tools" Package)" = velmora-tools ]
[ "$(field "$tools" Section)" = database ]
[ "$(field "$tools" Depends | sed 's/ ([^)]*)//g')" = \
    "velmora, libc6, libedit2, libgcc-s1, libstdc++6" ]

if [ "$(id -u)" -ne 0 ]; then
    exit 0
fi

echo "== installation and removal"
root=$work/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/usr"
dpkg-query -s libc6 libedit2 libgcc-s1 libstdc++6 >"$root/var/lib/dpkg/status"
touch "$root/var/lib/dpkg/available"
in_root() {  # OPTION...
    dpkg --root="$root" --log="$work/dpkg.log" "$@"
}

run_logged in_root -i "$runtime" "$development" "$tools"
{ packaged_files runtime; packaged_files development; packaged_files tools; } >expected
present_files root | grep -v '^var/lib/dpkg/' >present
same_lines expected present
mkdir database
printf 'exit\n' | (cd database && timeout 60 "$root/usr/bin/velmora") >output
timeout 60 "$root/usr/bin/velmora-tool" run --create database2 -c 'CREATE TABLE t n int'

if in_root -r velmora >log 2>&1; then
    echo "the library can be removed from under velmora-dev"
    exit 1
fi
run_logged in_root -r velmora-dev velmora-tools velmora
present_files root | grep -v '^var/lib/dpkg/' >present || true
[ ! -s present ]
[ ! -e "$root/usr/share/doc/velmora" ]
if dpkg-query --admindir="$root/var/lib/dpkg" -W 'velmora*' >log 2>&1; then
    cat log
    exit 1
fi
