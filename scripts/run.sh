#!/usr/bin/env bash
# The main job: installs what is missing, builds the release tree and runs the program
# that shows the library at work.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release -DCMAKE_BUILD_TYPE=Release -DCM_BUILD_TESTS=OFF
build/release/tools/cmversion
