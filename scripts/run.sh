#!/usr/bin/env bash
# Builds the library (x86_64) and runs the example program on the shipped
# sample data.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
rq_need_packages "${RQ_BASE_PACKAGES[@]}"

cmake --preset default >/dev/null
cmake --build --preset default --target rqcore_demo
./build/default/examples/rqcore_demo "$@"
