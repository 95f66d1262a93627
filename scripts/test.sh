#!/usr/bin/env bash
# Builds and runs every test.
#   scripts/test.sh            GCC build in build/
#   scripts/test.sh sanitize   AddressSanitizer + UndefinedBehaviorSanitizer, in build-sanitize/
#   scripts/test.sh m32        32-bit (-m32) build with Debian's i386 packages, in build-m32/
#   scripts/test.sh clang      Clang build in build-clang/
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/deps.sh"
kind=${1:-plain}

args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DQRVUTIL_WARNINGS_AS_ERRORS=ON)
envs=()
case "$kind" in
    plain) ensure_packages $QRV_TEST_PACKAGES ;;
    sanitize)
        ensure_packages $QRV_TEST_PACKAGES
        args+=(-DQRVUTIL_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug) ;;
    m32)
        ensure_packages $QRV_TEST_PACKAGES
        ensure_packages $QRV_M32_PACKAGES
        args+=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/i386-linux-gnu.cmake")
        envs+=(PKG_CONFIG_LIBDIR=/usr/lib/i386-linux-gnu/pkgconfig:/usr/share/pkgconfig) ;;
    clang)
        ensure_packages $QRV_TEST_PACKAGES
        envs+=(CC=clang CXX=clang++) ;;
    *) echo "usage: $0 [plain|sanitize|m32|clang]" >&2; exit 2 ;;
esac

build="$root/build"
[ "$kind" = plain ] || build="$root/build-$kind"
env "${envs[@]}" cmake -S "$root" -B "$build" "${args[@]}"
env "${envs[@]}" cmake --build "$build" -j "$(nproc)"
env "${envs[@]}" ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
