#!/bin/sh
# Programs that use an installation as any user's would, from its package files alone.
#   consumer.sh c       SOURCES ROOT WORK CC    C11 through pkg-config
#   consumer.sh readme  SOURCES ROOT WORK CC CXX   the README's first program, as C11 and C++17
#   consumer.sh cmake   SOURCES ROOT WORK CMAKE GENERATOR CXX   C++17 through find_package
#   consumer.sh fortran SOURCES ROOT WORK FC    Fortran through pkg-config and the module
#   consumer.sh moved   SOURCES ROOT WORK       the program works after a move, on the data beside it
#   consumer.sh removed SCRIPT ROOT WORK CMAKE MANIFEST   the uninstall script leaves nothing
# Ends with 77 (skipped) when pkg-config is missing.
set -eu
task=$1
sources=$2
root=$3
work=$4
rm -rf "$work"
mkdir -p "$work"
export TMPDIR="$work"
unset LD_LIBRARY_PATH || true

# Compiler arguments from the package file, for `eval` because a path with blanks comes quoted.
with_package() {
    command -v pkg-config >/dev/null || {
        echo "skipped, there is no pkg-config"
        exit 77
    }
    flags=$(PKG_CONFIG_PATH="$root/lib/pkgconfig" pkg-config "$@" morva)
}

case $task in
    removed)
        "$5" -DMANIFEST="$6" -P "$sources" >"$work/log"
        left=$(find "$root" -mindepth 1)
        [ -z "$left" ] || { printf 'left behind:\n%s\n' "$left"; exit 1; }
        ;;
    c)
        with_package --cflags --libs
        eval '"$5" -std=c11 -Wall -Wextra -Wpedantic -Werror "$sources/consumer.c" -o "$work/consumer"' "$flags"
        "$work/consumer"
        ;;
    readme)
        sed -n '/^```c$/,/^```$/{/^```/!p;}' "$root/share/doc/morva/README.md" >"$work/first.c"
        cp "$work/first.c" "$work/first.cpp"
        with_package --cflags --libs
        eval '"$5" -std=c11 -Wall -Wextra -Wpedantic -Werror "$work/first.c" -o "$work/c"' "$flags"
        eval '"$6" -std=c++17 -Wall -Wextra -Wpedantic -Werror "$work/first.cpp" -o "$work/cpp"' "$flags"
        for program in c cpp; do
            "$work/$program" 2>&1 | grep -q 'BHZ, BHN, BHE'
        done
        ;;
    cmake)
        "$5" -G "$6" -S "$sources/cmake" -B "$work/build" -DCMAKE_CXX_COMPILER="$7" -DCMAKE_PREFIX_PATH="$root" >"$work/log" 2>&1 ||
            { cat "$work/log"; exit 1; }
        "$5" --build "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
        "$work/build/consumer"
        ;;
    fortran)
        with_package --variable=fortran_module
        module=$flags
        with_package --libs
        eval '"$5" -std=f2018 -Wall -Wextra -Werror -J "$work"' "$module" '"$sources/consumer.f90" -o "$work/consumer"' "$flags"
        "$work/consumer"
        ;;
    moved)
        cp -R "$root" "$work/elsewhere"
        PATH="$work/elsewhere/bin:$PATH"
        wfreport "$work"/elsewhere/data/samples/*.gse2
        ;;
esac
