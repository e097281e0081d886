#!/usr/bin/env bash
# Stages a sysroot for a cross build from Debian's own packages: the target's C library, and
# the libraries the build and the tests link (json-glib, GoogleTest, CLI11, fmt, Eigen).
#   scripts/stage-sysroot.sh ARCH [DIR]     ARCH: armhf or arm64; DIR: build/sysroot-ARCH
# The result is kept: a sysroot whose package list is unchanged is not staged again.
# Only the suites bookworm and bookworm-updates are used: the security suite's index for a
# foreign architecture does not download on every mirror, and none of these packages needs it.
set -euo pipefail
cd "$(dirname "$0")/.."

arch="${1:?usage: scripts/stage-sysroot.sh armhf|arm64 [DIR]}"
case "$arch" in
  armhf | arm64) ;;
  *)
    echo "stage-sysroot: unknown architecture '$arch' (armhf, arm64)" >&2
    exit 2
    ;;
esac
dir="${2:-build/sysroot-$arch}"
mirror="${EC_DEBIAN_MIRROR:-http://deb.debian.org/debian}"

PACKAGES=(
  libc6-dev libstdc++-12-dev
  libjson-glib-dev
  libcli11-dev libfmt-dev libeigen3-dev
  libgtest-dev libgmock-dev
)
want="$arch ${PACKAGES[*]}"
stamp="$dir/.staged"
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
  echo "stage-sysroot: $dir is up to date"
  exit 0
fi

rm -rf "$dir"
mkdir -p "$(dirname "$dir")"
include=$(IFS=,; echo "${PACKAGES[*]}")
echo "stage-sysroot: staging $dir from Debian bookworm ($arch)"
mmdebstrap --quiet --variant=extract --architectures="$arch" --include="$include" \
  bookworm "$dir" "deb $mirror bookworm main" "deb $mirror bookworm-updates main"
echo "$want" >"$stamp"
echo "stage-sysroot: done ($(du -sh "$dir" | cut -f1))"
