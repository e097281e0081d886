#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: the debug build, then the
# AddressSanitizer + UndefinedBehaviorSanitizer build. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")"

bash scripts/setup-deps.sh

for preset in dev asan; do
  echo "=== ${preset}: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  echo "=== ${preset}: test"
  ctest --preset "$preset"
done
