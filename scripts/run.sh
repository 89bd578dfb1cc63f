#!/usr/bin/env bash
# The main job: installs what is missing, builds the release tree, and runs the library's
# real work through cmhost — it writes a test tone and a test video, converts each through
# a filter, shows what the results hold, and lists the installed components.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release -DCMAKE_BUILD_TYPE=Release -DCM_BUILD_TESTS=OFF
cmhost=build/release/tools/cmhost
out=build/release/demo
mkdir -p "$out"

echo "== cmhost generate: a 3 s tone and a 2 s test video"
"$cmhost" generate tone "$out/tone.wav" --seconds 3 --frequency 440
"$cmhost" generate video "$out/video.y4m" --seconds 2 --width 320 --height 240 --fps 25

echo "== cmhost convert: tone through the gain filter (-6 dB), video through the invert filter"
"$cmhost" convert "$out/tone.wav" "$out/tone-6dB.wav" --filter gain:gain-db=-6
"$cmhost" convert "$out/video.y4m" "$out/video-inverted.y4m" --filter invert

echo "== cmhost info"
"$cmhost" info "$out/tone-6dB.wav"
"$cmhost" info "$out/video-inverted.y4m"

echo "== cmhost components"
"$cmhost" components
