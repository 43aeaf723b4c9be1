#!/usr/bin/env bash
# Installs a build into a scratch prefix and checks what a user of the
# installed library gets: the files and links, a SONAME of major 7, nothing
# pointing back into the source or build tree, and a program outside the
# tree that builds through pkg-config and through find_package and runs.
#
# Usage: consumer.sh <build-dir> <c-compiler> [<cflags>]
# The scratch prefix is a temporary directory outside both trees, removed
# when the check passes and kept (its path printed) when it fails.
set -euo pipefail
build=$(cd "$1" && pwd)
cc=$2
cflags=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/rqcore-consumer.XXXXXX")
fail() { echo "consumer check: $* (files kept in $work)" >&2; exit 1; }
mkdir "$work/src"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; fail "install failed"; }

# The library directory is wherever GNUInstallDirs put rqcore.pc's parent.
pc=$(find "$prefix" -name rqcore.pc -path '*/pkgconfig/*')
[ -n "$pc" ] || fail "no rqcore.pc installed"
libdir=$(dirname "$(dirname "$pc")")
for lib in rqcore.so.7.0.5180 rqcore.so.7 rqcore.so rqsis.so.1.0.0 rqsis.so.1 rqsis.so; do
    [ -e "$libdir/lib$lib" ] || fail "missing $libdir/lib$lib"
done
[ "$(readlink "$libdir/librqcore.so.7")" = librqcore.so.7.0.5180 ] || fail "librqcore.so.7 is not a link to the real file"
[ "$(readlink "$libdir/librqcore.so")" = librqcore.so.7 ] || fail "librqcore.so is not a link to the SONAME"
readelf -d "$libdir/librqcore.so.7.0.5180" | grep -q 'Library soname: \[librqcore.so.7\]' || fail "SONAME of librqcore is not librqcore.so.7"
readelf -d "$libdir/librqsis.so.1.0.0" | grep -q 'Library soname: \[librqsis.so.1\]' || fail "SONAME of librqsis is not librqsis.so.1"
[ -f "$prefix/include/rqcore/rqcore.h" ] && [ -f "$prefix/include/rqsis/rqsis.h" ] || fail "public headers missing"
[ ! -e "$prefix/include/rqsis/rqsis_test.h" ] || fail "the platform layer's test interface is installed"
[ -f "$prefix/share/rqcore/charmaps/charmap.config" ] || fail "data missing under share/rqcore"
if grep -rlF -e "$source" -e "$build" "$prefix/include" "$libdir/pkgconfig" "$libdir/cmake"; then
    fail "installed files above name the source or build tree"
fi

# The consumer is copied out, so that nothing of the tree is in reach.
cp "$here/consumer.c" "$here/CMakeLists.txt" "$work/src/"
expected="convert: 0x0
utf-8: e6 97 a5 e6 9c ac
base64: 0x0 5pel5pys
sis pid: ok"

check_output() {  # <how> <program> <datadir>
    local got
    got=$(LD_LIBRARY_PATH="$libdir" "$2" "$3") || fail "$1: the consumer failed: $got"
    [ "$got" = "$expected" ] || fail "$1: the consumer printed
$got
instead of
$expected"
}

export PKG_CONFIG_LIBDIR="$libdir/pkgconfig" PKG_CONFIG_PATH=""
datadir=$(pkg-config --variable=datadir rqcore)
[ "$datadir" = "$prefix/share/rqcore" ] || fail "pkg-config datadir is $datadir"
mkdir "$work/pkg-config"
# shellcheck disable=SC2046,SC2086
"$cc" $cflags -Wall -Wextra -Werror -o "$work/pkg-config/consumer" "$work/src/consumer.c" \
    $(pkg-config --cflags --libs rqcore) || fail "pkg-config build failed"
check_output pkg-config "$work/pkg-config/consumer" "$datadir"

cmake -S "$work/src" -B "$work/cmake" -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$cflags" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/cmake.log" 2>&1 \
    || { cat "$work/cmake.log"; fail "find_package configure failed"; }
cmake --build "$work/cmake" >>"$work/cmake.log" 2>&1 || { cat "$work/cmake.log"; fail "find_package build failed"; }
[ "$(cat "$work/cmake/datadir.txt")" = "$prefix/share/rqcore" ] || fail "rqcore_DATADIR is $(cat "$work/cmake/datadir.txt")"
check_output find_package "$work/cmake/consumer" "$prefix/share/rqcore"

# The installed demo finds the installed libraries and data on its own.
if [ -x "$prefix/bin/rqcore_demo" ]; then
    env -u LD_LIBRARY_PATH "$prefix/bin/rqcore_demo" >"$work/demo.log" 2>&1 || { cat "$work/demo.log"; fail "installed demo failed"; }
    # The zone file and catalogs were found: the first occurrence in UTC.
    grep -q "Tue Nov 24, 2026 8:00 UTC" "$work/demo.log" || { cat "$work/demo.log"; fail "installed demo: no calendar lines"; }
fi
# The installed data tool runs without the build tree's libraries.
if [ -x "$prefix/bin/rqdata" ]; then
    env -u LD_LIBRARY_PATH "$prefix/bin/rqdata" --version >"$work/rqdata.log" 2>&1 \
        || { cat "$work/rqdata.log"; fail "installed rqdata failed"; }
fi
rm -rf "$work"
echo "consumer check: installed, built with pkg-config and find_package, ran"
