#!/usr/bin/env bash
# Builds and runs the whole test suite three times: x86_64, i386 and x86_64
# under AddressSanitizer and UndefinedBehaviorSanitizer (the first two also
# install the library and check the installed copy and its ABI), then builds
# an optimised x86_64 configuration.  Fails when any build or any test fails.
# Pass --clean to start from empty build trees.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
rq_need_packages "${RQ_BASE_PACKAGES[@]}" "${RQ_I386_PACKAGES[@]}"

presets=(default i386 asan)
if [ "${1:-}" = "--clean" ]; then
    for preset in "${presets[@]}"; do rm -rf "build/$preset"; done
    rm -rf build/release
fi

status=0
for preset in "${presets[@]}"; do
    echo "=== $preset ==="
    if ! cmake --preset "$preset" >/dev/null; then status=1; continue; fi
    if ! cmake --build --preset "$preset"; then status=1; continue; fi
    if ! ctest --preset "$preset"; then status=1; fi
done

# An optimised build, for the warnings that only -O3's inlining shows; its
# tests are the default preset's and are not run again.
echo "=== release (build only) ==="
if ! { cmake --preset release >/dev/null && cmake --build --preset release; }; then status=1; fi

if [ $status -ne 0 ]; then
    echo "test suite FAILED"
fi
exit $status
