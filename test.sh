#!/usr/bin/env bash
# Sets up, builds and runs every check CI runs, in this order:
#   dev      the test suite in a debug build
#   asan     the test suite under AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     the test suite under ThreadSanitizer
#   clang    the libraries, plug-in and programs built by clang, warnings as errors
#   install  the clang build installed into build/stage: exports, RUNPATHs, consumers of the
#            support library (pkg-config, find_package), Debian packages, energy-sim run from
#            a moved copy of the tree (.ci/check-install.sh)
#   device   the plug-in and the support library built with -DEC_PLATFORM=device against a
#            sysroot staged from build/stage (.ci/check-device.sh)
#   armhf    cross-built for 32-bit ARM against a sysroot of Debian's armhf packages
#            (scripts/stage-sysroot.sh); the suite under qemu-arm, under ctest and as one
#            process; 64-bit time; week.txt's output byte for byte as on x86-64 (from the dev
#            build); the set's build cross-built (.ci/check-cross.sh)
#   arm64    the same for 64-bit ARM, without the set's build
# Arguments pick stages (install needs clang, device needs install). Exits non-zero on any
# failure.
set -euo pipefail
cd "$(dirname "$0")"

stages=("$@")
if [ ${#stages[@]} -eq 0 ]; then
  stages=(dev asan tsan clang install device armhf arm64)
fi

case " ${stages[*]} " in
  *" armhf "* | *" arm64 "*) bash scripts/setup-deps.sh --cross ;;
  *) bash scripts/setup-deps.sh ;;
esac

for stage in "${stages[@]}"; do
  start=$(date +%s)
  case "$stage" in
    dev | asan | tsan)
      echo "=== ${stage}: configure and build"
      cmake --preset "$stage" >/dev/null
      cmake --build --preset "$stage"
      echo "=== ${stage}: test"
      ctest --preset "$stage"
      ;;
    clang)
      echo "=== clang: configure and build"
      cmake --preset clang >/dev/null
      cmake --build --preset clang
      ;;
    install)
      echo "=== install: stage, consume, package, run moved"
      bash .ci/check-install.sh build/clang build/stage
      ;;
    device)
      echo "=== device: sysroot, configure and build"
      bash .ci/check-device.sh build/stage build/sysroot
      ;;
    armhf | arm64)
      echo "=== ${stage}: sysroot, cross build"
      bash scripts/stage-sysroot.sh "$stage"
      cmake --preset "$stage" >/dev/null
      cmake --build --preset "$stage"
      echo "=== ${stage}: test under qemu"
      ctest --preset "$stage"
      bash .ci/check-cross.sh "$stage"
      ;;
    *)
      echo "unknown stage '$stage' (dev asan tsan clang install device armhf arm64)" >&2
      exit 2
      ;;
  esac
  echo "=== ${stage}: $(($(date +%s) - start)) s"
done
