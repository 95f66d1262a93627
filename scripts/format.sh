#!/usr/bin/env bash
# Formats the C and C++ sources with .clang-format.
#   scripts/format.sh           rewrites every tracked source in place
#   scripts/format.sh --check   changes nothing; lists the files that differ
#                               and fails when there are any
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/deps.sh"
ensure_packages $QRV_FORMAT_PACKAGES

mode=${1:-fix}
case "$mode" in
    fix|--check) ;;
    *) echo "usage: $0 [--check]" >&2; exit 2 ;;
esac

cd "$root"
mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h')
if [ "$mode" = fix ]; then
    clang-format -i "${files[@]}"
    exit 0
fi

differing=0
for f in "${files[@]}"; do
    if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then
        echo "not formatted: $f" >&2
        differing=$((differing + 1))
    fi
done
if [ "$differing" -gt 0 ]; then
    echo "$differing file(s) differ from .clang-format; run scripts/format.sh" >&2
    exit 1
fi
