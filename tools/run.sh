#!/usr/bin/env bash
# The program's main job: installs what is missing, builds and runs.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh >/dev/null
cmake --preset linux >/dev/null
cmake --build --preset linux --target kestrel-cli >/dev/null
# Without arguments: the demo (a slave serving the demo device, polled live with alarms) until
# Ctrl-C. With arguments: kestrel-cli with them.
if [ $# -eq 0 ]; then set -- demo; fi
exec build/linux/src/cli/kestrel-cli "$@"
