#!/usr/bin/env bash
# Installs, with apt-get, whatever the build and the test suite need and the
# machine does not have yet.  Sourced by run.sh and test.sh.
set -euo pipefail

rq_need_packages() {
    local missing=()
    local pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    echo "installing: ${missing[*]}"
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
}

# The library, the examples and the x86_64 test suite (the Python test-suite
# package ships the real-mail corpus that the MIME tests compare against).
RQ_BASE_PACKAGES=(build-essential cmake g++ googletest binutils pkg-config python3 python3-dateutil unicode-data libpython3.11-testsuite tzdata)
# The ABI check of the test suite (abidw, abidiff).
RQ_BASE_PACKAGES+=(abigail-tools)
# The i386 test suite.
RQ_I386_PACKAGES=(gcc-multilib g++-multilib)
