#!/usr/bin/env bash
# The main job: builds the module and its framework kit, then runs the
# command-line host from the output folder. Installs what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
cd build/default/bin
./lumhost "${@:-probe}"
