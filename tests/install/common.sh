# What install_test.sh and package_test.sh share: an empty directory to work in, and the files that
# belong into each of the two parts of an installation. Read by them with ".".
# In the environment: SOURCE and BUILD, the trees; CONFIGURATION, LIBDIR, VERSION and SOVERSION, as
# configured; CMAKE, CPACK, CC and CXX, the programs.
# shellcheck shell=sh

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit

# The listed files; of documents and examples, whatever the source has.
expected_files() {  # PART
    sed "s,@LIBDIR@,$LIBDIR,; s,@VERSION@,$VERSION,; s,@SOVERSION@,$SOVERSION,
         s,@CONFIGURATION@,$CONFIGURATION," "$SOURCE/tests/install/$1.txt"
    case "$1" in
    runtime)
        (cd "$SOURCE" && find docs -name '*.md' -o -name '*.svg')
        (cd "$SOURCE" && find bindings/python -type f ! -path '*/tests/*' ! -path '*/__pycache__/*')
        ;;
    development) (cd "$SOURCE" && find examples -type f) ;;
    esac | sed 's,^,share/doc/velmora/,'
}

present_files() {  # DIRECTORY
    (cd "$1" && find . ! -type d) | sed 's,^\./,,'
}

# Every relative link of every document has to lead to a file of the same installation.
links_lead_to_files() {  # PREFIX
    top=$(readlink -e "$1")
    find "$top" -name '*.md' >documents
    [ -s documents ]
    while read -r document; do
        { grep -oE '\]\([^)#:]+(#[^)]*)?\)' "$document" || true; } |
            sed 's/^](//; s/[)#].*//' >links
        while read -r link; do
            file=$(readlink -e "${document%/*}/$link") || file=nowhere
            case "$file" in
            "$top"/*) ;;
            *) echo "${document#"$top/"} links to $link" ;;
            esac
        done <links
    done <documents >dead
    cat dead
    [ ! -s dead ]
}

# Both name what differs and fail, unless they hold the same.
same_lines() {  # FILE FILE
    LC_ALL=C sort -o "$1" "$1"
    LC_ALL=C sort -o "$2" "$2"
    diff "$1" "$2"
}
