#!/bin/sh
# Makes the two Debian packages and looks at what they hold, what they say of themselves, and what
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

run_logged "$CPACK" --config "$BUILD/CPackConfig.cmake" -B "$work/packages"
architecture=$(dpkg --print-architecture)
runtime=$work/packages/velmora_${VERSION}_$architecture.deb
development=$work/packages/velmora-dev_${VERSION}_$architecture.deb

echo "== contents"
for part in runtime development; do
    package=$runtime
    [ $part = runtime ] || package=$development
    dpkg-deb -x "$package" "$work/$part"
    expected_files $part | sed 's,^,usr/,' >expected
    present_files $part >present
    same_lines expected present
    # Readable by everybody, writable by root, owned by root.
    if dpkg-deb -c "$package" | grep -Ev '^(drwxr-xr-x|-rw-r--r--|-rwxr-xr-x|lrwxrwxrwx) root/root '
    then
        exit 1
    fi
done

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

if [ "$(id -u)" -ne 0 ]; then
    exit 0
fi

echo "== installation and removal"
root=$work/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/usr"
dpkg-query -s libc6 libgcc-s1 libstdc++6 >"$root/var/lib/dpkg/status"
touch "$root/var/lib/dpkg/available"
# The directory has no programs, so the packages' scripts are run outside; the machine's own list of
# libraries is kept out of it.
mkdir programs
cat >programs/ldconfig <<END
#!/bin/sh
echo called >>"$work/ldconfig.calls"
END
chmod +x programs/ldconfig
in_root() {  # OPTION...
    PATH="$work/programs:$PATH" dpkg --root="$root" --log="$work/dpkg.log" \
        --force-script-chrootless "$@"
}

run_logged in_root -i "$runtime" "$development"
{ expected_files runtime; expected_files development; } | sed 's,^,usr/,' >expected
present_files root | grep -v '^var/lib/dpkg/' >present
same_lines expected present
[ "$(wc -l <ldconfig.calls)" -eq 1 ]
mkdir database
printf 'exit\n' | (cd database && timeout 60 "$root/usr/bin/velmora") >output

if in_root -r velmora >log 2>&1; then
    echo "the library can be removed from under velmora-dev"
    exit 1
fi
run_logged in_root -r velmora-dev velmora
present_files root | grep -v '^var/lib/dpkg/' >present || true
[ ! -s present ]
[ ! -e "$root/usr/share/doc/velmora" ]
[ "$(wc -l <ldconfig.calls)" -eq 2 ]
run_logged in_root -P velmora velmora-dev
if in_root -l 'velmora*' >log 2>&1; then
    cat log
    exit 1
fi
