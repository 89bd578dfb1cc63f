#!/usr/bin/env bash
# The main job: installs what is missing, builds the release tree, and runs the library's
# real work through cmhost — it transcodes a short H.264 + AAC MP4 (made by ffmpeg, one of
# the test peers, from its test sources) into WebM with a filter on each track, shows what
# both hold, converts a generated tone and test video through the same filters, and lists
# the installed components.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release -DCMAKE_BUILD_TYPE=Release -DCM_BUILD_TESTS=OFF
cmhost=build/release/tools/cmhost
out=build/release/demo
mkdir -p "$out"

echo "== ffmpeg: a 4 s MP4 sample, H.264 640x360 25 fps and AAC 48 kHz stereo"
ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=s=640x360:r=25:d=4 \
    -f lavfi -i "sine=f=440:d=4:r=48000,pan=stereo|c0=c0|c1=c0" \
    -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac -b:a 128k "$out/sample.mp4"

echo "== cmhost convert: MP4 to WebM, gain -6 dB on the audio, invert on the video"
"$cmhost" convert "$out/sample.mp4" "$out/sample.webm" --filter gain:gain-db=-6 --filter invert

echo "== cmhost info"
"$cmhost" info "$out/sample.mp4"
"$cmhost" info "$out/sample.webm"

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
