#!/usr/bin/env bash
# Sets up, builds and runs ZEBKIT.
#   ./build.sh demo   build (Release) and convert the built-in sample disk
#   ./build.sh test   build (Release) and run the whole test suite
#   ./build.sh deps   only install missing build dependencies
# The programs land in build/: build/zebconv, build/zebscan, build/zebsample.
set -euo pipefail
cd "$(dirname "$0")"
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}

# deps [test]: installs what a fresh Debian machine lacks. The build needs a
# compiler, CMake with its build program (make: --no-install-recommends does not
# bring it) and the test and benchmark libraries; only the test suite needs
# chromium, which draws zebscan's picture in one test. zlib reads and writes
# MFI images.
deps() {
    local need=()
    command -v cmake >/dev/null || need+=(cmake)
    command -v make >/dev/null || need+=(make)
    command -v g++ >/dev/null || need+=(g++)
    [ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
    [ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
    [ -f /usr/include/zlib.h ] || need+=(zlib1g-dev)
    if [ "${1:-}" = test ]; then
        command -v chromium >/dev/null || need+=(chromium)
    fi
    if [ ${#need[@]} -gt 0 ]; then
        tools/apt-install "${need[@]}"
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
        deps test
        build
        ctest --test-dir build --output-on-failure -j "$JOBS"
        ;;
    *)
        echo "usage: $0 {demo|test|deps}" >&2
        exit 22
        ;;
esac
