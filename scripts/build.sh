#!/usr/bin/env bash
# Builds the library, its examples and tests, then runs the main example: a
# controller's ctPlay command travelling to a recorder as XML.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/deps.sh"
ensure_packages $QRV_TEST_PACKAGES

build="$root/build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" -j "$(nproc)"
"$build/examples/typical_request"
