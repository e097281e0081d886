#!/usr/bin/env bash
# What a cross build (armhf, arm64) must show after its tests passed under ctest, each test in a
# process of its own:
#   - the whole suite as one process, under the emulator;
#   - armhf: the plug-ins read the clock through the 64-bit time entry points;
#   - the same output as this machine's build (build/dev, built here if missing): energy-sim
#     over data/scenarios/week.txt and 12 quiet hours after it (so that the block log holds
#     blocks at the end), in both queue modes: stdout and the final energy_log.dat, byte for
#     byte; the digests are printed;
#   - armhf: the set's build (-DEC_PLATFORM=device) cross-built against the Debian sysroot with
#     the simulated TV and the framework host, built for armhf, standing in for the set's
#     libraries (.ci/check-device.sh).
#   .ci/check-cross.sh armhf|arm64
set -euo pipefail
cd "$(dirname "$0")/.."
arch=${1:?usage: check-cross.sh armhf|arm64}
case "$arch" in
  armhf) triple=arm-linux-gnueabihf qemu=qemu-arm-static ;;
  arm64) triple=aarch64-linux-gnu qemu=qemu-aarch64-static ;;
  *)
    echo "cross check: unknown architecture '$arch' (armhf, arm64)" >&2
    exit 2
    ;;
esac
build=build/$arch
emulate=("$qemu" -L "build/sysroot-$arch")
fail() {
  echo "cross check ($arch): $*" >&2
  exit 1
}

echo "=== $arch: the suite as one process"
"${emulate[@]}" "$build/bin/unit_tests" --gtest_brief=1

if [ "$arch" = armhf ]; then
  echo "=== $arch: 64-bit time"
  bash .ci/check-time64.sh "$triple-nm" "$build/lib/libenergy-consumption.so" \
    "$build/lib/libenergy-consumption-blocks.so"
fi

echo "=== $arch: the same output as x86-64"
week() { # BUILD MODE [EMULATOR...]: "MODE stdout DIGEST energy_log.dat DIGEST"
  local bin=$1/bin/energy-sim mode=$2 dir
  shift 2
  dir=$(mktemp -d)
  mkdir "$dir/data"
  sed "s|^{|{\"dataDir\": \"$dir/data\",|" data/devices/vx55q7000.json >"$dir/profile.json"
  if ! "$@" "$bin" --profile "$dir/profile.json" --scenario data/scenarios/week.txt \
    --duration 7d12h --queue "$mode" --log-level none --no-progress >"$dir/out" 2>"$dir/err"; then
    cat "$dir/err" >&2
    rm -rf "$dir"
    return 1
  fi
  echo "$mode stdout $(sha256sum <"$dir/out" | cut -c1-16)" \
    "energy_log.dat $(if [ -f "$dir/data/energy_log.dat" ]; then sha256sum <"$dir/data/energy_log.dat" | cut -c1-16; else echo absent; fi)"
  rm -rf "$dir"
}
if [ ! -x build/dev/bin/energy-sim ]; then
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target energy-sim energy-consumption energy-consumption-blocks
fi
for mode in total blocks; do
  here=$(week build/dev "$mode")
  there=$(week "$build" "$mode" "${emulate[@]}")
  echo "x86-64 $here"
  echo "$arch  $there"
  [ "$here" = "$there" ] || fail "week.txt in $mode mode differs from x86-64"
done

if [ "$arch" = armhf ]; then
  echo "=== $arch: the set's build, cross-built"
  rm -rf "build/stage-$arch"
  cmake --install "$build" --prefix "$PWD/build/stage-$arch" >/dev/null
  bash .ci/check-device.sh "build/stage-$arch" "build/device-sysroot-$arch" "$arch"
fi
