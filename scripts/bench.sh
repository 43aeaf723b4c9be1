#!/usr/bin/env bash
# Builds the benchmarks (x86_64, release) and runs them, or the ones named:
#   scripts/bench.sh [bench_lists ...] [-- extra Google Benchmark flags]
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
rq_need_packages "${RQ_BASE_PACKAGES[@]}" pkg-config libbenchmark-dev libglib2.0-dev \
    libgmime-3.0-dev libssl-dev libicu-dev libb64-dev zlib1g-dev

cmake --preset bench >/dev/null
cmake --build --preset bench
names=()
while [ $# -gt 0 ] && [ "$1" != "--" ]; do names+=("$1"); shift; done
[ "${1:-}" = "--" ] && shift
if [ ${#names[@]} -eq 0 ]; then
    for exe in build/bench/bench/bench_*; do names+=("$(basename "$exe")"); done
fi
for name in "${names[@]}"; do
    echo "=== $name ==="
    "build/bench/bench/$name" "$@"
done
