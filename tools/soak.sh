#!/usr/bin/env bash
# The long soak: one hour of polling a 50-detail structure against our own slave, with recording
# on, plus 100,000 manual transactions; the report (memory, descriptors, threads, failed reads)
# goes to stdout and build/soak-report.txt.
#   tools/soak.sh [SECONDS] [MANUAL_TRANSACTIONS] [INTERVAL_MS]   (defaults 3600 100000 250)
# Keep the interval below 500 ms: our slave drops a client silent for 500 ms, and structure polling
# does not reconnect.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset linux >/dev/null
cmake --build --preset linux --target reliability_soak >/dev/null
nice build/linux/tests/reliability_soak "${1:-3600}" "${2:-100000}" "${3:-250}" | tee build/soak-report.txt
exit "${PIPESTATUS[0]}"
