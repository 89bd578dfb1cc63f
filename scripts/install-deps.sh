#!/usr/bin/env bash
# Installs the Debian 12 packages the project needs to build and test, skipping those that
# are already present. Runs apt-get only when something is missing.
set -euo pipefail

packages=(
    cmake ninja-build g++ clang pkg-config ccache
    libxml2-dev libxml2-utils libcurl4-openssl-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    # Interoperability tests of the RTP and RTSP code: an independent RTP decoder and a
    # real RTSP server (GStreamer's, driven from the system python).
    tshark
    python3 python3-gi gir1.2-gstreamer-1.0 gir1.2-gst-rtsp-server-1.0
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good
    # A real HTTP server with byte ranges for the HTTP reader plug-in's tests.
    nginx
    # The real trap receiver of the SNMP log tests, and the comparison in bench/logging.cpp.
    snmptrapd
    libspdlog-dev
    # The component and cmhost tests read media back, and receive RTP, with these.
    ffmpeg sox
    # The peers bench/compare measures the project against: gst-launch-1.0 pipelines for the
    # queues (fakesrc, queue, tee, identity, fakesink), ffmpeg for cmhost convert.
    gstreamer1.0-tools
    # The FFmpeg components (importer, decoders, encoders, exporter) build on these; the
    # API examples of ffmpeg-doc are the reference for their use.
    libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev ffmpeg-doc
    # The RTSP tests serve H.264 and AAC from GStreamer's RTSP server.
    gstreamer1.0-plugins-ugly gstreamer1.0-libav
    # Developer tools: line and branch coverage, the API reference and the man page.
    gcovr doxygen help2man
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo=sudo
export DEBIAN_FRONTEND=noninteractive
# wireshark-common asks whether non-root users may capture; the tests need no capture rights.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $sudo debconf-set-selections
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
