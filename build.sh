#!/usr/bin/env bash
# Sets up, builds and runs ZEBKIT.
#   ./build.sh demo   build (Release) and convert the built-in sample disk
#   ./build.sh test   build (Release) and run the whole test suite
#   ./build.sh deps   only install missing build dependencies
set -euo pipefail
cd "$(dirname "$0")"
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}

deps() {
    local need=()
    command -v cmake >/dev/null || need+=(cmake)
    command -v g++ >/dev/null || need+=(g++)
    [ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
    [ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
    command -v chromium >/dev/null || need+=(chromium)  # renders zebscan's SVG in a test
    if [ ${#need[@]} -gt 0 ]; then
        local sudo=""
        [ "$(id -u)" -eq 0 ] || sudo=sudo
        $sudo apt-get update -q
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${need[@]}"
    fi
}

build() {
    cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DZEBKIT_WERROR=ON "$@"
    cmake --build build -j "$JOBS"
}

case "${1:-}" in
    deps) deps ;;
    demo)
        deps
        build
        cmake --build build --target demo
        ;;
    test)
        deps
        build
        ctest --test-dir build --output-on-failure -j "$JOBS"
        ;;
    *)
        echo "usage: $0 {demo|test|deps}" >&2
        exit 22
        ;;
esac
