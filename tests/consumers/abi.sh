#!/bin/sh
# Checks of what the libraries show to the outside. Ends with 77 (skipped) when a tool is missing.
#   abi.sh exports LIBRARY NAMES        the library exports the names listed in a file, no more, no less
#   abi.sh declarations CC INCLUDE FILE the headers agree with the C declarations in a file
#   abi.sh listed CC INCLUDE NAMES      the headers declare the names listed in a file, no more, no less
#   abi.sh headers CC CXX INCLUDE       each header compiles alone, as C11 and as C++17
#   abi.sh artefact LIBRARY NEEDED...   hardening, and no libraries needed but these
set -u
warnings="-Wall -Wextra -Wpedantic -Werror"
scratch=$(mktemp -d) || exit 1
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "abi: $*" >&2
    exit 1
}

need() {
    command -v "$1" >/dev/null || {
        echo "abi: skipped, there is no $1"
        exit 77
    }
}

# same_names WHAT EXPECTED FOUND: both files hold the same lines.
same_names() {
    LC_ALL=C sort -u "$2" >"$scratch/expected"
    LC_ALL=C sort -u "$3" >"$scratch/found"
    [ -s "$scratch/found" ] || fail "found no names in $1"
    diff "$scratch/expected" "$scratch/found" >"$scratch/diff" && return
    sed -n -e 's/^</  missing:/p' -e 's/^>/  not listed:/p' "$scratch/diff" >&2
    fail "$1 and the lists of abi/ differ"
}

check_exports() {
    need nm
    nm -D --defined-only "$1" >"$scratch/nm" || exit 1
    awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' "$scratch/nm" >"$scratch/names"
    same_names "${1##*/}" "$2" "$scratch/names"
}

check_declarations() {
    "$1" -std=c11 $warnings -fsyntax-only -I"$2" "$3"
}

# The names that follow the export mark, in preprocessed headers of one declaration a line.
check_listed() {
    printf '#include "morva.h"\n#include "skerrows.h"\n' |
        "$1" -std=c11 -E -P -I"$2" -x c - >"$scratch/text" || exit 1
    tr '\n' ' ' <"$scratch/text" | tr ';' '\n' |
        sed -n -e 's/__visibility__ *("default")/visibility("default")/' \
            -e 's/.*__attribute__ *((visibility *("default"))) *//p' |
        sed -e 's/(.*//' -e 's/ *\[.*//' -e 's/.*[ *]//' >"$scratch/names"
    same_names "the headers" "$3" "$scratch/names"
}

check_headers() {
    failed=0
    for header in "$3"/*.h "$3"/morva/*.h; do
        name=${header#"$3"/}
        printf '#include "%s"\nextern int alone;\n' "$name" >"$scratch/alone.c"
        cp "$scratch/alone.c" "$scratch/alone.cpp"
        "$1" -std=c11 $warnings -fsyntax-only -I"$3" "$scratch/alone.c" || failed=1
        "$2" -std=c++17 $warnings -fsyntax-only -I"$3" "$scratch/alone.cpp" || failed=1
    done
    [ $failed = 0 ] || fail "a header does not compile alone"
}

# must_hold FILE PATTERN WHAT: a line of what readelf printed matches.
must_hold() {
    grep -E -q "$2" "$scratch/$1" || fail "no $3"
}

check_artefact() {
    need readelf
    library=$1
    shift
    readelf -W -d "$library" >"$scratch/dynamic" || exit 1
    readelf -W -l "$library" >"$scratch/segments"
    readelf -W -n "$library" >"$scratch/notes" 2>/dev/null
    readelf -W --dyn-syms "$library" >"$scratch/symbols"
    must_hold segments 'GNU_RELRO' "read-only relocations"
    must_hold dynamic 'BIND_NOW|FLAGS.*NOW' "immediate binding"
    must_hold segments 'GNU_STACK .* RW ' "stack without execution"
    must_hold symbols '__stack_chk_fail' "stack protector"
    must_hold dynamic "SONAME.*\\[$(basename "$library" | sed 's/\(\.so\.[0-9]*\).*/\1/')\\]" "versioned SONAME"
    must_hold dynamic 'RUNPATH.*\[\$ORIGIN\]' "path to its neighbours"
    case $(uname -m) in
        x86_64) must_hold notes 'x86 feature:.*SHSTK' "shadow stack mark" ;;
    esac
    sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' "$scratch/dynamic" | while read -r needed; do
        for allowed in "$@"; do
            case $needed in "$allowed".so*) continue 2 ;; esac
        done
        case $needed in ld-linux*) ;; *) fail "needs $needed" ;; esac
    done
}

task=$1
shift
case $task in
    exports | declarations | listed | headers | artefact) "check_$task" "$@" ;;
    *) fail "no check called '$task'" ;;
esac
