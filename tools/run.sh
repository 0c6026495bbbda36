#!/usr/bin/env bash
# The program's main job: installs what is missing, builds and runs. Arguments go to kestrel-cli.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh >/dev/null
cmake --preset linux >/dev/null
cmake --build --preset linux --target kestrel-cli >/dev/null
if [ $# -eq 0 ]; then set -- --help; fi
exec build/linux/src/cli/kestrel-cli "$@"
