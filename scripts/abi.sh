#!/usr/bin/env bash
# The ABI of librqcore.so and librqsis.so against the baselines under
# abi/<arch>/ (written by abidw from Debian's abigail-tools).
#
#   scripts/abi.sh --check  <build-dir>      fail when a function or variable
#                                            went away or changed, or a record
#                                            it reaches changed; added ones pass
#   scripts/abi.sh --update <build-dir>...   rewrite the baselines from these
#                                            builds and say what changed
#
# The builds must carry debug information (the default and i386 presets are
# RelWithDebInfo); the architecture is read from the library itself.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

usage() { echo "usage: $0 --check <build-dir> | --update <build-dir>..." >&2; exit 2; }
[ $# -ge 2 ] || usage
mode=$1
shift
case $mode in --check|--update) ;; *) usage ;; esac
for tool in abidw abidiff readelf; do
    command -v "$tool" >/dev/null || { echo "$0: $tool not found (Debian packages abigail-tools, binutils)" >&2; exit 2; }
done

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Only types that the public headers define are part of the ABI; locations
# and paths are left out so that the baseline does not depend on where or
# from which line numbers it was built.
dump() {  # <library> <headers-dir> <output>
    abidw --headers-dir "$2" --drop-private-types --no-show-locs --no-comp-dir-path --no-corpus-path \
        --out-file "$3.tmp" "$1"
    # Translation units are named by their path inside the repository.
    sed "s|path='$root/|path='|" "$3.tmp" >"$3"
}

arch_of() {
    case $(readelf -h "$1" | awk '/Class:/ {print $2}') in
        ELF32) echo i386 ;;
        ELF64) echo x86_64 ;;
        *) echo "$0: cannot tell the architecture of $1" >&2; exit 2 ;;
    esac
}

status=0
for build in "$@"; do
    for lib in rqcore rqsis; do
        so=$build/lib$lib.so
        [ -e "$so" ] || { echo "$0: $so not built" >&2; exit 2; }
        arch=$(arch_of "$so")
        baseline=$root/abi/$arch/lib$lib.abi
        current=$tmp/$arch-lib$lib.abi
        dump "$so" "$root/include/$lib" "$current"
        if [ "$mode" = --check ]; then
            [ -f "$baseline" ] || { echo "ABI check: no baseline abi/$arch/lib$lib.abi (scripts/abi.sh --update)"; status=1; continue; }
            rc=0
            abidiff --no-added-syms "$baseline" "$current" >"$tmp/report" 2>&1 || rc=$?
            if [ $rc -ne 0 ]; then
                if [ $((rc & 1)) -ne 0 ]; then
                    echo "ABI check: abidiff could not compare lib$lib.so ($arch) with its baseline:"
                else
                    echo "ABI check: lib$lib.so ($arch) is not compatible with abi/$arch/lib$lib.abi:"
                fi
                cat "$tmp/report"
                status=1
            fi
        else
            mkdir -p "$(dirname "$baseline")"
            if [ ! -f "$baseline" ]; then
                echo "abi/$arch/lib$lib.abi: new baseline"
            elif cmp -s "$baseline" "$current"; then
                echo "abi/$arch/lib$lib.abi: unchanged"
            else
                abidiff "$baseline" "$current" >"$tmp/report" 2>&1 || true
                if [ -s "$tmp/report" ]; then
                    echo "abi/$arch/lib$lib.abi: rewritten; against the previous baseline:"
                    sed 's/^/    /' "$tmp/report"
                else
                    echo "abi/$arch/lib$lib.abi: rewritten; no ABI difference, only its representation"
                fi
            fi
            cp "$current" "$baseline"
        fi
    done
done
exit $status
