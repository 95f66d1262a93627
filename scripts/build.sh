#!/usr/bin/env bash
# Builds the library, its examples and tests, then runs the main example: a
# controller's ctPlay command travelling to a recorder as XML. Ends with
# qrvtool: a summary of a test clip, and a media command taken from XML to
# JSON and back to the same XML.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/deps.sh"
ensure_packages $QRV_TEST_PACKAGES

build="$root/build"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" -j "$(nproc)"
"$build/examples/typical_request"

qrvtool="$build/tool/qrvtool"
echo
echo "\$ qrvtool h264 info tests/data/h264/hrd_vui.h264"
"$qrvtool" h264 info "$root/tests/data/h264/hrd_vui.h264"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat >"$work/play.json" <<'EOF'
{"cmd": 2, "channel": 1, "speed": 65520, "position": 1800, "cmd_flags": 8272,
 "clip_id": "NEWS0612", "file_name": "/media/clips/news_0612.mov", "tc_type": 4}
EOF
echo
echo "\$ qrvtool mediacmd encode play.json > play.xml"
"$qrvtool" mediacmd encode "$work/play.json" >"$work/play.xml"
cat "$work/play.xml"
echo "\$ qrvtool mediacmd decode play.xml"
"$qrvtool" mediacmd decode "$work/play.xml"
echo "\$ qrvtool mediacmd decode --json play.xml | qrvtool mediacmd encode - | cmp - play.xml"
"$qrvtool" mediacmd decode --json "$work/play.xml" | "$qrvtool" mediacmd encode - | cmp - "$work/play.xml"
echo "same document"
