#!/usr/bin/env bash
# Sets up, builds the plug-in and the host program, and meters a simulated day of the
# default device profile through the typical-day scenario. Extra arguments go to energy-sim
# (for example: ./run.sh --profile data/devices/vx65s9000.json --duration 7d).
set -euo pipefail
cd "$(dirname "$0")"

bash scripts/setup-deps.sh
cmake --preset app >/dev/null
cmake --build --preset app

if [ $# -eq 0 ]; then
  set -- --scenario data/scenarios/typical-day.txt --plot build/typical-day.svg
  echo "=== energy-sim --scenario data/scenarios/typical-day.txt --plot build/typical-day.svg"
fi
exec build/app/bin/energy-sim "$@"
